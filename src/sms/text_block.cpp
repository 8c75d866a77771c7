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
    auto wanted = static_cast<std::size_t>(
        std::vsnprintf(text + length, sizeof text - length, format, values));
    if (wanted >= sizeof text - length) {
        text[length] = '\0';
        print();
        wanted = static_cast<std::size_t>(std::vsnprintf(text, sizeof text, format, again));
    }
    length = std::min(length + wanted, sizeof text - 1);
    va_end(again);
    va_end(values);
}

void text_block::print()
{
    if (length > 0)
        diag_plain("%s", text);
    length = 0;
}

} // namespace kelo
