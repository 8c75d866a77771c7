// SPDX-License-Identifier: MIT
// Lines of fields, as the files and the commands of this host have them: `name=value`, `name="a
// text"`, `name='a text'` or a bare `name`, blanks between, a comment behind '#'.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kelo_host
{

struct line_field {
    std::string name;
    std::optional<std::string> value; // none: a bare word
    bool quoted = false;
};

// Takes the next field off `rest`; nothing at the end of the line or at a comment.
// A fault leaves its text in `error`.
std::optional<line_field> next_field(std::string_view& rest, std::string& error);

} // namespace kelo_host
