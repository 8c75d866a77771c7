// Commands of the host's user, one a line, and what an SMS has to be.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kelo_host
{

enum class command_verb { nothing, sim, set, restart, reload, sms, gps, help, quit };

struct user_command {
    command_verb verb = command_verb::nothing; // of an empty line or a comment
    int sim = 0;
    std::string number;
    std::string text; // of the message, or the fields of `set`
};

// Nothing for what is no command; then `error` says why.
std::optional<user_command> parse_command(std::string_view line, std::string& error);

// The commands, for people.
extern const char command_help[];

// What is wrong with a message, empty for nothing.
std::string message_fault(std::string_view number, std::string_view text);

} // namespace kelo_host
