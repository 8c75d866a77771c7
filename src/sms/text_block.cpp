// SPDX-License-Identifier: MIT
#include "sms/sms.h"

#include "support/diag.h"

#include <cstdarg>
#include <cstdio>

namespace kelo
{

void text_block::add(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    va_list again;
    va_copy(again, values);
    auto wanted =
        static_cast<std::size_t>(std::vsnprintf(text + length, most + 1 - length, format, values));
    if (wanted > most - length) {
        print();
        wanted = static_cast<std::size_t>(std::vsnprintf(text, most + 1, format, again));
    }
    length = std::min(length + wanted, most);
    va_end(again);
    va_end(values);
}

void text_block::put_cut(std::string_view line)
{
    length = static_cast<std::size_t>(put_piece(text + length, ahead(line, most - length)) - text);
}

char* text_block::put_piece(char* to, std::string_view piece)
{
    std::memcpy(to, piece.data(), piece.size());
    return to + piece.size();
}

char* text_block::put_piece(char* to, octet number)
{
    if (number >= 100)
        *to++ = static_cast<char>('0' + number / 100);
    if (number >= 10)
        *to++ = static_cast<char>('0' + number / 10 % 10);
    *to++ = static_cast<char>('0' + number % 10);
    return to;
}

char* text_block::put_piece(char* to, hex one)
{
    static constexpr char digits[] = "0123456789abcdef";
    if (one.number != 0) {
        *to++ = '0';
        *to++ = 'x';
    }
    if (one.number >= 16)
        *to++ = digits[one.number >> 4];
    *to++ = digits[one.number & 15];
    return to;
}

void text_block::print()
{
    if (length > 0)
        diag_text(text, length);
    length = 0;
}

} // namespace kelo
