#include "support/text.h"

#include <climits>
#include <cstdarg>
#include <cstdlib>

namespace kelo
{

void text_copy(char* field, std::size_t size, const char* source)
{
    text_copy_until(field, size, source, "");
}

void text_copy_until(char* field, std::size_t size, const char* source, const char* ends)
{
    std::size_t length = 0;
    while (length + 1 < size && source[length] != '\0' &&
           std::strchr(ends, source[length]) == nullptr)
        length++;
    std::memmove(field, source, length);
    std::memset(field + length, 0, size - length);
}

bool text_begins(const char* text, const char* prefix)
{
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

bool text_has_control(const char* text)
{
    for (; *text != '\0'; text++) {
        const auto byte = static_cast<unsigned char>(*text);
        if ((byte < 0x20 && byte != '\t') || byte == 0x7f)
            return true;
    }
    return false;
}

const char* text_skip(const char* text, std::size_t offset)
{
    return text + strnlen(text, offset);
}

char* text_duplicate(const char* text)
{
    return text == nullptr ? nullptr : strdup(text);
}

std::size_t text_columns(char* text, char** columns, std::size_t room)
{
    std::size_t count = 0;
    char* rest = nullptr;
    for (char* column = strtok_r(text, ",", &rest); column != nullptr && count < room;
         column = strtok_r(nullptr, ",", &rest))
        columns[count++] = column;
    return count;
}

int text_commas(const char* text)
{
    int count = 0;
    for (; *text != '\0' && *text != '\n'; text++)
        count += *text == ',';
    return count;
}

namespace
{

bool is_space(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

const char* skip_space(const char* text)
{
    while (is_space(*text))
        text++;
    return text;
}

int digit_value(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return INT_MAX;
}

// One number of the given base behind white space; moves `text` behind it. False for none.
bool scan_number(const char*& text, int base, bool& negative, std::uint64_t& magnitude)
{
    const char* at = skip_space(text);
    negative = *at == '-';
    if (*at == '-' || *at == '+')
        at++;
    if (base == 16 && at[0] == '0' && (at[1] == 'x' || at[1] == 'X') && digit_value(at[2]) < 16)
        at += 2;
    if (digit_value(*at) >= base)
        return false;
    magnitude = 0;
    for (; digit_value(*at) < base; at++) {
        const auto digit = static_cast<std::uint64_t>(digit_value(*at));
        if (base == 10 && magnitude > INT_MAX)
            continue; // far beyond an int already: only the sign matters any more
        magnitude = magnitude * static_cast<std::uint64_t>(base) + digit;
    }
    text = at;
    return true;
}

int clamp_to_int(bool negative, std::uint64_t magnitude)
{
    if (magnitude > INT_MAX)
        return negative ? INT_MIN : INT_MAX;
    return negative ? -static_cast<int>(magnitude) : static_cast<int>(magnitude);
}

std::uint64_t apply_sign(bool negative, std::uint64_t magnitude)
{
    return negative ? 0 - magnitude : magnitude;
}

} // namespace

int text_scan(const char* text, const char* format, ...)
{
    va_list targets;
    va_start(targets, format);
    int values = 0;
    while (*format != '\0') {
        if (is_space(*format)) {
            text = skip_space(text);
            format++;
            continue;
        }
        if (*format != '%') {
            if (*text != *format)
                break;
            text++;
            format++;
            continue;
        }
        format++;
        bool negative = false;
        std::uint64_t magnitude = 0;
        if (*format == 'd') {
            if (!scan_number(text, 10, negative, magnitude))
                break;
            *va_arg(targets, int*) = clamp_to_int(negative, magnitude);
            format++;
        } else if (*format == 'x') {
            if (!scan_number(text, 16, negative, magnitude))
                break;
            *va_arg(targets, int*) =
                static_cast<int>(static_cast<std::uint32_t>(apply_sign(negative, magnitude)));
            format++;
        } else if (format[0] == 'l' && format[1] == 'x') {
            if (!scan_number(text, 16, negative, magnitude))
                break;
            *va_arg(targets, std::uint64_t*) = apply_sign(negative, magnitude);
            format += 2;
        } else {
            // A word, or a set of the form [^…].
            char ends[16] = " \t\n\v\f\r";
            const bool word = *format == 's';
            if (word) {
                text = skip_space(text);
                format++;
            } else {
                format += 2;
                const std::size_t width = std::strcspn(format, "]");
                if (width == 0 || width >= sizeof ends)
                    break;
                std::memcpy(ends, format, width);
                ends[width] = '\0';
                format += width + 1;
            }
            char* const target = va_arg(targets, char*);
            const std::size_t size = va_arg(targets, std::size_t);
            const std::size_t length = std::strcspn(text, ends);
            if (length == 0)
                break;
            text_copy_until(target, size, text, ends);
            text += length;
        }
        values++;
    }
    va_end(targets);
    return values;
}

} // namespace kelo
