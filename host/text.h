// SPDX-License-Identifier: MIT
// Texts: what of those from outside may go to a terminal, and their way into a file.
#pragma once

#include <string>
#include <string_view>

namespace kelo_host
{

// As `text`, with what could act on a terminal, or is no UTF-8, replaced by '?'.
std::string printable(std::string_view text);

// Length of the well-formed UTF-8 sequence at the start of what is not empty, 0 for none.
size_t utf8_length(std::string_view text);

bool is_utf8(std::string_view text);

// False, with errno, when not all of it could be written.
bool write_all(int fd, std::string_view text);

} // namespace kelo_host
