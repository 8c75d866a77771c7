// Texts, files and folders that end with the scope that holds them.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <memory>

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

// A text of `length` characters with nothing in it yet, terminated; null without memory.
inline text_pointer text_room(std::size_t length)
{
    return text_pointer(static_cast<char*>(std::calloc(length + 1, 1)));
}

} // namespace kelo
