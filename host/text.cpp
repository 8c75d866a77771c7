// SPDX-License-Identifier: MIT
#include "host/text.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace kelo_host
{

size_t utf8_length(std::string_view text)
{
    const auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char first = byte(0);
    const size_t length = first < 0x80   ? 1
                          : first < 0xc2 ? 0
                          : first < 0xe0 ? 2
                          : first < 0xf0 ? 3
                          : first < 0xf5 ? 4
                                         : 0;
    if (length == 0 || text.size() < length)
        return 0;
    for (size_t at = 1; at < length; at++)
        if ((byte(at) & 0xc0) != 0x80)
            return 0;
    if ((first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) > 0x9f) ||
        (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) > 0x8f))
        return 0; // overlong, surrogate, beyond the last code point
    return length;
}

std::string printable(std::string_view text)
{
    std::string clean;
    while (!text.empty()) {
        const size_t length = utf8_length(text);
        const auto first = static_cast<unsigned char>(text[0]);
        const bool is_control = length == 1
                                    ? first < 0x20 || first == 0x7f
                                    : first == 0xc2 && static_cast<unsigned char>(text[1]) < 0xa0;
        if (length == 0 || is_control)
            clean += '?';
        else
            clean += text.substr(0, length);
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return clean;
}

bool is_utf8(std::string_view text)
{
    while (!text.empty()) {
        const size_t length = utf8_length(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

bool write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t done = write(fd, text.data(), text.size());
        if (done < 0 && errno != EINTR)
            return false;
        text.remove_prefix(done > 0 ? static_cast<size_t>(done) : 0);
    }
    return true;
}

} // namespace kelo_host
