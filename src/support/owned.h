// SPDX-License-Identifier: MIT
// Memory, and what holds texts, files and folders until its scope ends.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <utility>

namespace kelo
{

struct release {
    void operator()(char* text) const { std::free(text); }
    void operator()(std::FILE* file) const { std::fclose(file); }
    void operator()(DIR* folder) const { closedir(folder); }
};
using text_pointer = std::unique_ptr<char, release>;
using file_pointer = std::unique_ptr<std::FILE, release>;
using folder_pointer = std::unique_ptr<DIR, release>;

// Says that this much was refused, and gives null.
void* memory_refused(std::size_t size);

// Zeroed memory, for free(); null without memory, behind a line that says so. In line, so that each
// place that asks is a place of its own to whoever watches the asking.
[[gnu::always_inline]] inline void* memory_for(std::size_t size)
{
    void* const memory = std::calloc(size, 1);
    return memory != nullptr ? memory : memory_refused(size);
}

// A text of `length` characters with nothing in it yet, terminated; null without memory.
[[gnu::always_inline]] inline text_pointer text_room(std::size_t length)
{
    return text_pointer(static_cast<char*>(memory_for(length + 1)));
}

// A copy; null for null, and without memory.
text_pointer text_duplicate(const char* text);

// For the fields of plain records, and what the threads share, which must not be destroyed under
// them at the end of main: the old text ends.
inline void text_replace(char*& field, text_pointer text)
{
    const text_pointer old(std::exchange(field, text.release()));
}

} // namespace kelo
