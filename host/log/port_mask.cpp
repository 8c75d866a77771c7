// SPDX-License-Identifier: MIT
#include "host/log/port_mask.h"

#include "host/log/private.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <utility>

namespace kelo_host
{

namespace
{

constexpr size_t npos = std::string_view::npos;
constexpr char ctrl_z = 0x1a, escape = 0x1b;

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

bool is_hex(char c)
{
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool is_blank(char c)
{
    return static_cast<unsigned char>(c) <= ' ';
}

bool is_word(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

size_t run_of(std::string_view text, size_t from, bool (*is)(char))
{
    const auto begin = text.begin() + static_cast<long>(from);
    return static_cast<size_t>(std::find_if_not(begin, text.end(), is) - begin);
}

bool is_all_hex(std::string_view line)
{
    constexpr size_t least = 20; // the shortest PDU that holds a number or a text
    return line.size() >= least && line.size() % 2 == 0 &&
           std::all_of(line.begin(), line.end(), is_hex);
}

// Heads of one line of hexadecimal digits end with its length; those of a text tell a time.
bool is_pdu_head(std::string_view line)
{
    return line.find('/') == npos && !line.empty() && is_digit(line.back());
}

// Reads a PDU octet by octet; what is beyond its end reads as 0 and can't be kept.
class octets
{
  public:
    explicit octets(std::string_view hex) : hex_(hex) {}

    size_t keep()
    {
        unsigned value = 0;
        const std::string_view octet = hex_.substr(at_, 2);
        std::from_chars(octet.data(), octet.data() + octet.size(), value, 16);
        keep(1);
        return value;
    }
    void keep(size_t count) { text += take(count); }
    std::string_view take(size_t count)
    {
        const std::string_view taken = hex_.substr(at_, 2 * count);
        at_ += taken.size();
        return taken;
    }

    std::string text;

  private:
    std::string_view hex_;
    size_t at_ = 0;
};

// "+QFUPL="name",1234,100": the bytes follow, with a CR LF behind them.
size_t upload_size(std::string_view line)
{
    constexpr std::string_view mark = "+QFUPL=";
    const size_t at = line.find(mark);
    const size_t comma = at == npos ? npos : line.find(',', at);
    size_t size = 0;
    if (comma == npos || comma + 1 >= line.size())
        return 0;
    const std::string_view number = line.substr(comma + 1);
    std::from_chars(number.data(), number.data() + number.size(), size);
    constexpr size_t most = 1 << 24;
    return size == 0 || size > most ? 0 : size + 2;
}

// Answers with other numbers than private ones, which are needed to understand them.
bool has_counts(std::string_view line)
{
    for (const std::string_view mark : {"+CUSD", "+QMTRECV", "+QGPSLOC"})
        if (line.starts_with(mark))
            return false;
    return line.find(": ") != npos;
}

} // namespace

// Digits in place of others: the same for the same ones, as long as they are remembered.
std::string port_mask::digits(std::string_view run)
{
    constexpr size_t most = 1000, longest = 64;
    if (const auto known = others_.find(run); known != others_.end())
        return known->second;
    std::string other;
    for (size_t i = 0; i < run.size(); i++)
        other += static_cast<char>('0' + random_() % 10);
    if (others_.size() >= most)
        others_.clear();
    if (run.size() <= longest)
        others_.emplace(run, other);
    return other;
}

std::string port_mask::identity(std::string_view run)
{
    constexpr size_t kept = 6;
    return std::string(run.substr(0, kept)) + digits(run).substr(kept);
}

// Everything; but `counts`: numbers outside quotes, of up to three digits.
std::string port_mask::shape(std::string_view text, bool counts)
{
    constexpr size_t longest_count = 3;
    std::string clean;
    bool quoted = false;
    for (size_t at = 0; at < text.size();) {
        const size_t length = run_of(text, at, is_digit);
        if (length == 0) {
            const char c = text[at++];
            quoted ^= c == '"';
            const bool stays = is_blank(c) || std::string_view("\",.:+-/>").find(c) != npos;
            clean += stays ? c : 'x';
            continue;
        }
        const std::string_view run = text.substr(at, length);
        const char ahead = at == 0 ? ' ' : text[at - 1];
        at += length;
        const char behind = at < text.size() ? text[at] : ' ';
        const bool is_count = counts && !quoted && length <= longest_count && !is_word(ahead) &&
                              ahead != '+' && !is_word(behind);
        const bool identifies = ahead != '+' && is_identity(length, length);
        clean += is_count ? std::string(run) : identifies ? identity(run) : digits(run);
        if (identifies && is_hex(behind)) // the end of an ICCID
            clean += text[at++];
    }
    return clean;
}

// Identities and numbers wherever they stand. What follows an x is a mask of bands.
std::string port_mask::runs(std::string_view text, bool of_host)
{
    constexpr size_t least_number = 7;
    std::string clean;
    for (size_t at = 0; at < text.size();) {
        const size_t length = run_of(text, at, is_digit);
        const char ahead = at == 0 ? ' ' : text[at - 1];
        const bool hidden = ahead == '+'
                                ? length >= least_number
                                : ahead != 'x' && is_identity(length, run_of(text, at, is_hex));
        const std::string_view run = text.substr(at, std::max<size_t>(length, 1));
        if (!hidden)
            clean += run;
        else
            clean += of_host ? "*" : ahead == '+' ? digits(run) : identity(run);
        at += run.size();
    }
    return clean;
}

std::string port_mask::pdu(std::string_view hex)
{
    octets in(hex);
    const auto other_digits = [&](size_t count) {
        const std::string_view taken = in.take(count);
        std::string other = digits(taken);
        for (size_t i = 0; i < taken.size(); i++)
            in.text += is_digit(taken[i]) ? other[i] : taken[i];
    };
    const auto fill = [&](size_t count) {
        for (size_t left = in.take(count).size(); left > 1; left -= 2)
            in.text += "20";
    };
    const auto address = [&] {
        constexpr size_t alphanumeric = 0x50, kind = 0x70;
        const size_t count = (in.keep() + 1) / 2;
        (in.keep() & kind) == alphanumeric ? fill(count) : other_digits(count);
    };
    if (const size_t center = in.keep(); center > 0) {
        in.keep(1);
        other_digits(center - 1);
    }
    const size_t first = in.keep();
    const size_t type = first & 3;
    if (type != 0)
        in.keep(1); // the reference
    address();
    if (type == 2) {
        in.keep(7 + 7 + 1); // two times and what became of it
    } else {
        constexpr size_t of_validity[] = {0, 7, 1, 7};
        in.keep(2); // protocol and coding
        in.keep(type == 0 ? 7 : of_validity[(first >> 3) & 3]);
        in.keep(1); // the length of the text
        constexpr size_t has_header = 0x40, longest_header = 32;
        if ((first & has_header) != 0)
            if (const size_t length = in.keep(); length <= longest_header)
                in.keep(length);
    }
    fill(hex.size());
    return in.text;
}

std::string port_mask::command(std::string_view line)
{
    message_ = false;
    upload_left_ = upload_size(line);
    body_next_ = line.find("+CMGS=") != npos || line.find("+CMGW=") != npos;
    size_t cut = secret_from(line);
    if (!show_) {
        cut = std::min(cut, personal_from(line));
        if (line.starts_with("ATD"))
            cut = std::min<size_t>(cut, 3);
    }
    const std::string_view open = line.substr(0, cut);
    return (show_ ? std::string(open) : runs(open, true)) + (cut < line.size() ? "*" : "");
}

std::string port_mask::written(std::string_view bytes)
{
    if (upload_left_ > 0) {
        upload_left_ -= std::min(upload_left_, bytes.size());
        return std::string(bytes.size(), '*');
    }
    const size_t end = bytes.find_last_not_of("\r\n") + 1; // 0 for npos
    const bool ends = end > 0 && (bytes[end - 1] == ctrl_z || bytes[end - 1] == escape);
    if (body_next_ || ends) {
        message_ = std::exchange(body_next_, !ends) || body_next_; // its echo
        as_pdu_ = false;
        if (show_ || end == ends)
            return std::string(bytes);
        return "*" + std::string(ends ? bytes.substr(end - 1) : "");
    }
    if (end == bytes.size() && end > 0)
        return std::string(bytes.size(), '*'); // of no command: a file
    return command(bytes.substr(0, end)) + std::string(bytes.substr(end));
}

std::string port_mask::line(std::string_view line, bool cut)
{
    if (hide_rest_)
        return shape(line, false);
    const size_t secret = secret_from(line);
    if (secret < line.size()) {
        const std::string open =
            show_ ? std::string(line.substr(0, secret)) : runs(line.substr(0, secret), false);
        std::string rest; // where its fields begin and end
        bool quoted = false, hidden = false;
        for (const char c : line.substr(secret)) {
            const bool stays = c == '"' || (c == ',' && !quoted) || c == '\r';
            quoted ^= c == '"';
            if (stays || !hidden)
                rest += stays ? c : '*';
            hidden = !stays;
        }
        return open + rest;
    }
    if (show_)
        return std::string(line);
    if (is_message_head(line)) {
        message_ = true;
        as_pdu_ = is_pdu_head(line);
    } else if (is_all_hex(line)) {
        message_ = message_ && !as_pdu_;
        return pdu(line);
    } else if (message_ && !is_result(line) && !line.empty()) {
        return shape(line, false);
    }
    size_t from = personal_from(line);
    if (cut) // its last word may go on
        from = std::min(
            from, static_cast<size_t>(std::find_if_not(line.rbegin(), line.rend(), is_word).base() -
                                      line.begin()));
    from = std::min(from, line.size());
    return runs(line.substr(0, from), false) + shape(line.substr(from), has_counts(line) && !cut);
}

std::string port_mask::read(std::string_view bytes, bool cut)
{
    std::string clean;
    while (!bytes.empty()) {
        const size_t end = bytes.find('\n');
        std::string_view whole = bytes.substr(0, end);
        bytes.remove_prefix(whole.size() + (end != npos));
        const size_t length = whole.find_last_not_of('\r') + 1; // 0 for npos
        clean += line(whole.substr(0, length), cut && end == npos);
        clean += whole.substr(length);
        hide_rest_ = cut && end == npos && (hide_rest_ || std::ranges::any_of(whole, is_word));
        if (end != npos)
            clean += '\n';
    }
    return clean;
}

void port_mask::forget()
{
    upload_left_ = 0;
    body_next_ = message_ = hide_rest_ = false;
}

} // namespace kelo_host
