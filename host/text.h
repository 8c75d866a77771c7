// Texts from outside: what of them may go to a terminal.
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

} // namespace kelo_host
