#include "host/commands.h"

namespace kelo_host
{

namespace
{

constexpr std::string_view blanks = " \t";

std::string_view trim(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == text.npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// Takes the first word off `rest`.
std::string_view next_word(std::string_view& rest)
{
    const std::string_view word = rest.substr(0, rest.find_first_of(blanks));
    rest = trim(rest.substr(word.size()));
    return word;
}

struct verb_row {
    std::string_view name;
    command_verb verb;
};
constexpr verb_row rows[] = {
    {"sim", command_verb::sim},         {"set", command_verb::set},
    {"restart", command_verb::restart}, {"reload", command_verb::reload},
    {"sms", command_verb::sms},         {"gps", command_verb::gps},
    {"help", command_verb::help},       {"quit", command_verb::quit},
};

command_verb find_verb(std::string_view name)
{
    for (const verb_row& row : rows)
        if (name == row.name)
            return row.verb;
    return command_verb::nothing;
}

// Takes the arguments of a command. Returns what is wrong.
std::string take_arguments(user_command& command, std::string_view rest)
{
    switch (command.verb) {
    case command_verb::sim:
        if (rest != "1" && rest != "2")
            return "sim takes 1 or 2";
        command.sim = rest[0] - '0';
        return "";
    case command_verb::set:
        command.text = rest;
        return rest.empty() ? "set takes fields, as apn=internet auth=1" : "";
    case command_verb::sms:
        command.number = next_word(rest);
        command.text = rest;
        return message_fault(command.number, command.text);
    default:
        return rest.empty() ? "" : "it takes nothing behind it";
    }
}

} // namespace

const char command_help[] =
    "sim 1|2, set NAME=VALUE..., restart, reload, sms NUMBER TEXT, gps, help, quit";

std::optional<user_command> parse_command(std::string_view line, std::string& error)
{
    std::string_view rest = trim(line);
    user_command command;
    if (rest.empty() || rest.front() == '#')
        return command;
    const std::string_view name = next_word(rest);
    command.verb = find_verb(name);
    error = command.verb == command_verb::nothing
                ? "no command '" + std::string(name) + "': there are " + command_help
                : take_arguments(command, rest);
    return error.empty() ? std::optional(command) : std::nullopt;
}

std::string message_fault(std::string_view number, std::string_view text)
{
    const std::string_view digits = number.substr(number.starts_with('+') ? 1 : 0);
    if (digits.empty() || digits.size() > 20 ||
        digits.find_first_not_of("0123456789") != digits.npos)
        return "a message goes to a number: up to 20 digits, with '+' ahead when international";
    if (text.empty())
        return "the message is empty";
    if (text.find('\0') != text.npos)
        return "the message holds a NUL";
    return "";
}

} // namespace kelo_host
