// SPDX-License-Identifier: MIT
#include "support/owned.h"

#include "support/diag.h"

#include <cstring>

namespace kelo
{

void* memory_refused(std::size_t size)
{
    diag_plain("no memory for %zu bytes\n", size);
    return nullptr;
}

text_pointer text_duplicate(const char* text)
{
    if (text == nullptr)
        return nullptr;
    const std::size_t length = std::strlen(text);
    text_pointer copy = text_room(length);
    if (copy != nullptr)
        std::memcpy(copy.get(), text, length);
    return copy;
}

} // namespace kelo
