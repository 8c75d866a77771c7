// SPDX-License-Identifier: MIT
#include "sms/sms.h"

#include "support/diag.h"

#include <cstdarg>
#include <cstdio>

namespace kelo
{

namespace
{

struct digits {
    char text[12];
    int first = sizeof text;

    digits(unsigned int number, unsigned int base, int least)
    {
        for (; number != 0 || least > 0; number /= base, least--)
            text[--first] = "0123456789abcdef"[number % base];
    }
    std::string_view all() const
    {
        return {text + first, sizeof text - static_cast<std::size_t>(first)};
    }
};

struct decimal : digits {
    explicit decimal(int number)
        : digits(number < 0 ? 0 - static_cast<unsigned int>(number)
                            : static_cast<unsigned int>(number),
                 10, 1)
    {
        if (number < 0)
            text[--first] = '-';
    }
};

} // namespace

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

void text_block::put_piece(std::string_view piece)
{
    const std::size_t fits = std::min(piece.size(), most - length);
    std::memcpy(text + length, piece.data(), fits);
    length += fits;
}

void text_block::put_piece(int number)
{
    put_piece(decimal(number).all());
}

void text_block::put_piece(hex one)
{
    digits all(one.number, 16, 1);
    if (one.number != 0) {
        all.text[--all.first] = 'x';
        all.text[--all.first] = '0';
    }
    put_piece(all.all());
}

void text_block::print()
{
    if (length > 0)
        diag_text(text, length);
    length = 0;
}

} // namespace kelo
