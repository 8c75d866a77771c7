// SPDX-License-Identifier: MIT
// Bounded text: copies into the fixed fields of records, searches, and columns between commas.
#pragma once

#include <cstddef>
#include <cstring>

namespace kelo
{

// Fills a field with `source`, up to its end, the first character of `ends` or the field's size,
// and zeroes the rest.
void text_copy(char* field, std::size_t size, const char* source, const char* ends);
void text_copy(char* field, std::size_t size, const char* source);

template <std::size_t size> inline void text_set(char (&field)[size], const char* source)
{
    text_copy(field, size, source);
}

template <std::size_t size>
inline void text_set(char (&field)[size], const char* source, const char* ends)
{
    text_copy(field, size, source, ends);
}

// The same of a field that has zeros behind its text: quicker, nothing is looked for.
template <std::size_t size, std::size_t known>
inline void text_widen(char (&field)[size], const char (&source)[known])
{
    static_assert(known <= size);
    std::memcpy(field, source, known);
    if constexpr (known < size)
        std::memset(field + known, 0, size - known);
}

template <std::size_t size> inline void text_clear(char (&field)[size])
{
    std::memset(field, 0, size);
}

// Where `needle` stands in `text`, or null.
template <class Char> Char* text_find(Char* text, const char* needle)
{
    return std::strstr(text, needle);
}
inline bool text_has(const char* text, const char* needle)
{
    return std::strstr(text, needle) != nullptr;
}
bool text_begins(const char* text, const char* prefix);

// Whether a control character other than a tab stands in `text`. To a modem such a character ends a
// command or a message, or takes it back: none may reach the port inside a value.
bool text_has_control(const char* text);

// The text `offset` characters behind `text`, or its end where it is shorter than that.
const char* text_skip(const char* text, std::size_t offset);

// Notes where up to `room` columns of a text begin, a run of commas counting as one separator, and
// gives their number. A column ends at the next comma; none is empty.
std::size_t text_columns(const char* text, const char** columns, std::size_t room);

// The number of commas up to the end of the text or its first line feed.
int text_commas(const char* text);

} // namespace kelo
