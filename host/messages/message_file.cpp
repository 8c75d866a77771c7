// SPDX-License-Identifier: MIT
#include "host/messages/message_file.h"

#include "host/input/commands.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <strings.h>

namespace kelo_host
{

namespace
{

constexpr unsigned longest_validity = 635040; // minutes, 63 weeks

std::string_view trimmed(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t\r");
    return first == text.npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

bool same_word(std::string_view one, std::string_view other)
{
    return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

// Takes a line off, without its end; `end` receives that.
std::string_view next_line(std::string_view& rest)
{
    const size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    return line;
}

std::string_view name_of_header(std::string_view line)
{
    return trimmed(line.substr(0, line.find(':')));
}

// ISO 8859-1, but for the eight places where 8859-15 has other characters: the euro sign is what
// people mean.
std::string utf8_of_latin(std::string_view bytes)
{
    constexpr std::pair<unsigned char, unsigned> others[] = {
        {0xa4, 0x20ac}, {0xa6, 0x160}, {0xa8, 0x161}, {0xb4, 0x17d},
        {0xb8, 0x17e},  {0xbc, 0x152}, {0xbd, 0x153}, {0xbe, 0x178}};
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        unsigned code = byte;
        for (const auto& [place, other] : others)
            if (byte == place)
                code = other;
        if (code < 0x80) {
            text += c;
        } else if (code < 0x800) {
            text += static_cast<char>(0xc0 | code >> 6);
            text += static_cast<char>(0x80 | (code & 0x3f));
        } else {
            text += static_cast<char>(0xe0 | code >> 12);
            text += static_cast<char>(0x80 | (code >> 6 & 0x3f));
            text += static_cast<char>(0x80 | (code & 0x3f));
        }
    }
    return text;
}

// Of "yes" and "no" in the ways in which they are written.
bool take_flag(std::string_view value, bool& flag)
{
    for (const char* yes : {"yes", "true", "on", "1"})
        if (same_word(value, yes))
            return flag = true;
    flag = false;
    for (const char* no : {"no", "false", "off", "0"})
        if (same_word(value, no))
            return true;
    return false;
}

// Returns what is wrong.
std::string take_header(std::string_view name, std::string_view value, outgoing_file& file,
                        bool& latin)
{
    bool flag = false;
    if (same_word(name, "To")) {
        file.number = value;
    } else if (same_word(name, "Flash") || same_word(name, "Report") || same_word(name, "Resend")) {
        if (!take_flag(value, flag))
            return std::string(name) + " takes yes or no";
        if (same_word(name, "Resend"))
            file.resend = flag;
        else
            (same_word(name, "Flash") ? file.options.flash : file.options.report) = flag;
    } else if (same_word(name, "Validity")) {
        unsigned minutes = 0;
        const auto [stop, error] =
            std::from_chars(value.data(), value.data() + value.size(), minutes);
        if (error != std::errc{} || stop != value.data() + value.size() || minutes < 5 ||
            minutes > longest_validity)
            return "Validity takes minutes, 5 to " + std::to_string(longest_validity);
        file.options.validity = minutes;
    } else if (same_word(name, "Alphabet")) {
        latin = same_word(value, "ISO");
        if (!latin && !same_word(value, "UTF-8"))
            return "Alphabet takes UTF-8 or ISO";
    }
    return "";
}

} // namespace

std::string parse_outgoing(std::string_view content, outgoing_file& file)
{
    std::string fault;
    bool latin = false;
    while (!content.empty()) {
        const std::string_view line = trimmed(next_line(content));
        if (line.empty())
            break;
        const size_t colon = line.find(':');
        if (colon == line.npos)
            continue;
        const std::string wrong =
            take_header(name_of_header(line), trimmed(line.substr(colon + 1)), file, latin);
        if (fault.empty())
            fault = wrong;
    }
    if (content.ends_with('\n'))
        content.remove_suffix(1);
    if (content.ends_with('\r'))
        content.remove_suffix(1);
    file.text = latin ? utf8_of_latin(content) : std::string(content);
    if (!fault.empty())
        return fault;
    if (file.number.empty())
        return "no header To";
    if (!is_utf8(file.text))
        return "the text is no UTF-8";
    return message_fault(file.number, file.text);
}

std::string with_headers(std::string_view content, std::string_view lines)
{
    constexpr const char* ours[] = {"Sent",  "Failed",    "Fail_reason", "Message_id",
                                    "Modem", "Delivered", "Undelivered"};
    std::string file;
    while (!content.empty()) {
        const std::string_view line = next_line(content);
        if (trimmed(line).empty())
            break;
        const bool old = std::any_of(std::begin(ours), std::end(ours), [&](const char* name) {
            return same_word(name_of_header(line), name);
        });
        if (!old)
            file.append(line) += '\n';
    }
    return file.append(lines).append("\n").append(content);
}

std::string with_line(std::string_view content, std::string_view line)
{
    const size_t end = content.find("\n\n"); // behind the headers that we have written
    std::string file(content);
    return end == content.npos ? file : file.insert(end + 1, std::string(line) + "\n");
}

std::string incoming_content(const whole_message& message, const std::string& received)
{
    const kelo_message& head = message.head;
    std::string file;
    const auto put = [&](const char* name, const std::string& value) {
        file += std::string(name) + ": " + printable(value) + "\n";
    };
    put("From", head.sender);
    if (head.smsc[0] != '\0')
        put("From_SMSC", head.smsc);
    if (head.time[0] != '\0')
        put("Sent", std::string(head.time) + " " + zone_text(head.zone));
    put("Received", received);
    put("Alphabet", head.data != 0 ? "binary" : "UTF-8");
    if (head.message_class >= 0)
        put("Class", std::to_string(head.message_class));
    if (head.port_to >= 0)
        put("Ports",
            "to " + std::to_string(head.port_to) + ", from " + std::to_string(head.port_from));
    put("Parts", std::to_string(head.parts - head.missing) + " of " + std::to_string(head.parts));
    return file + "\n" + message.text;
}

std::string local_time()
{
    const time_t now = time(nullptr);
    tm parts{};
    char text[32] = "";
    localtime_r(&now, &parts);
    std::strftime(text, sizeof text, "%F %T ", &parts);
    return text + zone_text(static_cast<int>(parts.tm_gmtoff / 900));
}

} // namespace kelo_host
