// SPDX-License-Identifier: MIT
#include "support/text.h"

#include <algorithm>

namespace kelo
{

void text_copy(char* field, std::size_t size, const char* source, const char* ends)
{
    std::size_t length = 0;
    while (length + 1 < size && source[length] != '\0' &&
           std::strchr(ends, source[length]) == nullptr)
        length++;
    std::memmove(field, source, length);
    std::memset(field + length, 0, size - length);
}

void text_copy(char* field, std::size_t size, const char* source)
{
    const std::size_t length = strnlen(source, size - std::min<std::size_t>(size, 1));
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

std::size_t text_columns(const char* text, const char** columns, std::size_t room)
{
    std::size_t count = 0;
    while (count < room && *(text += std::strspn(text, ",")) != '\0') {
        columns[count++] = text;
        text += std::strcspn(text, ",");
    }
    return count;
}

int text_commas(const char* text)
{
    int count = 0;
    for (; *text != '\0' && *text != '\n'; text++)
        count += *text == ',';
    return count;
}

} // namespace kelo
