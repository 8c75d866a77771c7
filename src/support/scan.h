// SPDX-License-Identifier: MIT
// A scanner for the lines of a modem that never writes past a target and has one reading for every
// number: scan(text, "+CSQ: ", dec(rssi), ",", dec(ber)).
//
// The parts of a line are taken from the left. The first that is not there ends the scan, and
// leaves its target and all behind it as they were. The parts are texts, whose blanks take any
// white space, none included, and these:
//   dec(int)             decimal; beyond the range of an int, the nearest int
//   hex(int or wider)    hexadecimal, the low bits of the number
//   until(char[], ends)  up to the next character that is one of `ends`
//   word(char[])         behind white space, up to more of it
//   quoted(char[])       between two quotes
// A number may have white space and a sign ahead of it, one of base 16 then a "0x"; it may go to a
// std::optional as well. A text has one character at least. A text longer than its field is cut on
// its way in, and the scan goes on behind all of it; the field is zero-filled behind its text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace kelo
{

template <class T> struct number_part {
    T& to;
    int base;
};
template <class T> number_part<T> dec(T& to)
{
    return {to, 10};
}
template <class T> number_part<T> hex(T& to)
{
    return {to, 16};
}

struct text_part {
    char* field;
    std::size_t size;
    const char *opening, *ends, *closing;
};
template <std::size_t size> text_part until(char (&field)[size], const char* ends)
{
    return {field, size, "", ends, ""};
}
template <std::size_t size> text_part word(char (&field)[size])
{
    return {field, size, " ", " \t\n\v\f\r", ""};
}
template <std::size_t size> text_part quoted(char (&field)[size])
{
    return {field, size, "\"", "\"", "\""};
}

// Each takes one part of the text and moves behind it; false when it is not there.
bool take_part(const char*& text, const char* literal);
template <std::size_t size> bool take_part(const char*&, char (&)[size]) = delete; // no literal
bool take_part(const char*& text, const text_part& part);
bool take_number(const char*& text, int base, std::uint64_t& bits);

inline void put_bits(int& to, std::uint64_t bits)
{
    to = static_cast<int>(bits);
}
inline void put_bits(std::uint64_t& to, std::uint64_t bits)
{
    to = bits;
}
template <class T> void put_bits(std::optional<T>& to, std::uint64_t bits)
{
    put_bits(to.emplace(), bits);
}

template <class T> bool take_part(const char*& text, number_part<T> part)
{
    std::uint64_t bits = 0;
    const bool there = take_number(text, part.base, bits);
    if (there)
        put_bits(part.to, bits);
    return there;
}

// True when all parts were there.
template <class... Parts> [[gnu::always_inline]] inline bool scan(const char* text, Parts... parts)
{
    return (take_part(text, parts) && ...);
}

} // namespace kelo
