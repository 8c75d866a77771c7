// SPDX-License-Identifier: MIT
#include "emulator/record_line.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace kelo_record
{

namespace
{

constexpr std::string_view arrows[] = {">>", "<<", "--"};

void append_shown(std::string& text, unsigned char byte)
{
    char shown[8];
    if (byte == '\r' || byte == '\n' || byte == '\\')
        std::snprintf(shown, sizeof shown, "\\%c", byte == '\r' ? 'r' : byte == '\n' ? 'n' : '\\');
    else
        std::snprintf(shown, sizeof shown, byte < ' ' || byte > 126 ? "\\x%02X" : "%c", byte);
    text += shown;
}

// Takes one byte off the text; nothing for what no byte is shown as.
std::optional<char> take_byte(std::string_view& text)
{
    const char first = text[0];
    text.remove_prefix(1);
    if (first < ' ' || first > 126)
        return std::nullopt;
    if (first != '\\')
        return first;
    const char kind = text.empty() ? '\0' : text[0];
    text.remove_prefix(std::min<std::size_t>(text.size(), 1));
    if (kind == 'r' || kind == 'n')
        return kind == 'r' ? '\r' : '\n';
    if (kind == '\\')
        return kind;
    unsigned char byte = 0;
    const std::string_view digits = text.substr(0, 2);
    const auto [end, fault] =
        std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
    if (kind != 'x' || digits.size() != 2 || fault != std::errc() || end != digits.data() + 2)
        return std::nullopt;
    text.remove_prefix(2);
    return static_cast<char>(byte);
}

// `12.345`, taken off the text: at most nine digits ahead of the point.
std::optional<long long> take_ms(std::string_view& text)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    unsigned long long seconds = 0;
    unsigned int parts = 0;
    const char* const all = text.data() + text.size();
    const auto whole = std::from_chars(text.data(), all, seconds);
    if (whole.ec != std::errc() || whole.ptr - text.data() > 9 || all - whole.ptr < 4 ||
        *whole.ptr != '.')
        return std::nullopt;
    const auto rest = std::from_chars(whole.ptr + 1, whole.ptr + 4, parts);
    if (rest.ec != std::errc() || rest.ptr != whole.ptr + 4)
        return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(rest.ptr - text.data()));
    return static_cast<long long>(seconds * 1000 + parts);
}

} // namespace

std::string text_of(const record_line& line)
{
    char time[32];
    std::snprintf(time, sizeof time, "%5lld.%03lld ", line.ms / 1000, line.ms % 1000);
    std::string text = time;
    text += arrows[static_cast<std::size_t>(line.from)];
    text += ' ';
    for (const char byte : line.bytes)
        append_shown(text, static_cast<unsigned char>(byte));
    return text;
}

std::optional<record_line> parse_line(std::string_view text)
{
    record_line line;
    const auto ms = take_ms(text);
    if (!ms || text.size() < 4 || text[0] != ' ' || text[3] != ' ')
        return std::nullopt;
    const auto* const arrow = std::ranges::find(arrows, text.substr(1, 2));
    if (arrow == std::end(arrows))
        return std::nullopt;
    line.ms = *ms;
    line.from = static_cast<origin>(arrow - std::begin(arrows));
    text.remove_prefix(4);
    while (!text.empty()) {
        const auto byte = take_byte(text);
        if (!byte)
            return std::nullopt;
        line.bytes += *byte;
    }
    return line;
}

} // namespace kelo_record
