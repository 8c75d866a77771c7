// SPDX-License-Identifier: MIT
#include "support/scan.h"

#include "support/text.h"

#include <algorithm>
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

// Decimal the nearest int, else the low 64 bits.
std::uint64_t value_of(const char* digits, const char* end, int base, bool negative)
{
    const std::uint64_t most = base == 16 ? UINT64_MAX
                               : negative ? -std::int64_t{INT_MIN}
                                          : INT_MAX;
    std::uint64_t number = 0;
    for (; digits < end && number <= most; digits++)
        number = number * static_cast<unsigned>(base) +
                 static_cast<unsigned>(*digits <= '9' ? *digits - '0' : (*digits | 32) - 'a' + 10);
    number = std::min(number, most);
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
    bits = value_of(digits, text, base, negative);
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
