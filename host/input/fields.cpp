// SPDX-License-Identifier: MIT
#include "host/input/fields.h"

#include <algorithm>

namespace kelo_host
{

namespace
{

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

} // namespace

std::optional<line_field> next_field(std::string_view& rest, std::string& error)
{
    while (!rest.empty() && is_blank(rest.front()))
        rest.remove_prefix(1);
    if (rest.empty() || rest.front() == '#')
        return std::nullopt;

    const size_t name_end = std::min(rest.find_first_of("= \t#"), rest.size());
    line_field field{std::string(rest.substr(0, name_end)), std::nullopt, false};
    rest.remove_prefix(name_end);
    if (rest.empty() || rest.front() != '=')
        return field;
    rest.remove_prefix(1);

    if (!rest.empty() && (rest.front() == '"' || rest.front() == '\'')) {
        const char quote = rest.front();
        const size_t end = rest.find(quote, 1);
        if (end == std::string_view::npos) {
            error = "the text of " + field.name + " has no closing " + quote;
            return std::nullopt;
        }
        field.value = std::string(rest.substr(1, end - 1));
        field.quoted = true;
        rest.remove_prefix(end + 1);
        if (!rest.empty() && !is_blank(rest.front()) && rest.front() != '#') {
            error = "a blank is missing behind the text of " + field.name +
                    " (a text that holds \" goes into '...')";
            return std::nullopt;
        }
        return field;
    }
    const size_t end = std::min(rest.find_first_of(" \t#"), rest.size());
    field.value = std::string(rest.substr(0, end));
    rest.remove_prefix(end);
    return field;
}

} // namespace kelo_host
