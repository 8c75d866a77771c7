// SPDX-License-Identifier: MIT
#include "support/scan.h"

#include "support/text.h"

#include <charconv>
#include <climits>

namespace kelo
{

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

// The nearest int.
int decimal(bool negative, const char* digits, const char* end)
{
    int number = 0;
    if (std::from_chars(digits, end, number).ec == std::errc::result_out_of_range)
        return negative ? INT_MIN : INT_MAX;
    return negative ? -number : number;
}

// The low 64 bits: no digit ahead of the last sixteen has a say.
std::uint64_t hexadecimal(bool negative, const char* digits, const char* end)
{
    std::uint64_t number = 0;
    std::from_chars(end - digits > 16 ? end - 16 : digits, end, number, 16);
    return negative ? 0 - number : number;
}

} // namespace

bool take_number(const char*& text, int base, std::uint64_t& bits)
{
    const char* const set = base == 10 ? "0123456789" : "0123456789abcdefABCDEF";
    const char* digits = skip_space(text);
    const bool negative = *digits == '-';
    if (*digits == '-' || *digits == '+')
        digits++;
    if (base == 16 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X') &&
        std::strspn(digits + 2, set) > 0)
        digits += 2;
    text = digits + std::strspn(digits, set);
    bits = base == 10 ? static_cast<std::uint64_t>(decimal(negative, digits, text))
                      : hexadecimal(negative, digits, text);
    return digits != text;
}

bool take_part(const char*& text, const char* literal)
{
    for (; *literal != '\0'; literal++) {
        if (is_space(*literal))
            text = skip_space(text);
        else if (*text++ != *literal)
            return false;
    }
    return true;
}

bool take_part(const char*& text, const text_part& part)
{
    if (!take_part(text, part.opening))
        return false;
    const std::size_t length = std::strcspn(text, part.ends);
    if (length == 0)
        return false;
    text_copy(part.field, part.size, text, part.ends);
    text += length;
    return take_part(text, part.closing);
}

} // namespace kelo
