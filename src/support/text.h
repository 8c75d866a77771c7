// Bounded text: copies into the fixed fields of records, cuts at commas, and a scanner for the
// lines of a modem that never writes past a target and has one reading for every number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kelo
{

// Fills a field with `source` up to its end or the field's, and zeroes the rest.
void text_copy(char* field, std::size_t size, const char* source);

// The same, but the source ends at the first character of `ends` too.
void text_copy_until(char* field, std::size_t size, const char* source, const char* ends);

template <std::size_t size> inline void text_set(char (&field)[size], const char* source)
{
    text_copy(field, size, source);
}

template <std::size_t size>
inline void text_set_until(char (&field)[size], const char* source, const char* ends)
{
    text_copy_until(field, size, source, ends);
}

template <std::size_t size> inline void text_clear(char (&field)[size])
{
    std::memset(field, 0, size);
}

// Where `needle` stands in `text`, or null.
inline char* text_find(char* text, const char* needle)
{
    return std::strstr(text, needle);
}
inline const char* text_find(const char* text, const char* needle)
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

// Heap copy; null for null or without memory. The caller frees it.
char* text_duplicate(const char* text);

// Cuts `text` in place at its commas, a run of commas counting as one separator, and notes up to
// `room` columns; columns beyond that are dropped. Gives their number. No column is empty.
std::size_t text_columns(char* text, char** columns, std::size_t room);

// The number of commas up to the end of the text or its first line feed.
int text_commas(const char* text);

// Scans `text` by `format` and gives the number of values read, as sscanf does, with these
// conversions and no others:
//   %d       int*: decimal; beyond the range of an int, the nearest int
//   %x       int*: hexadecimal, the low 32 bits of the number
//   %lx      std::uint64_t*: hexadecimal, the low 64 bits
//   %s       char*, std::size_t: a word, up to a blank
//   %[^"]    char*, std::size_t: up to the next character that is named (any set of them)
// A word or set reads at least one character or fails. A text longer than its target (whose size
// includes the terminator) is cut on its way in and the scan goes on behind all of it. A target is
// zero-filled behind its text; a conversion that fails leaves its target and all behind it as they
// were. A blank in the format takes any white space, none included, as do the numbers ahead of
// themselves.
int text_scan(const char* text, const char* format, ...);

} // namespace kelo
