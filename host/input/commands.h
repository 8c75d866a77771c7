// SPDX-License-Identifier: MIT
// What the host's user may ask for: on standard input, one command a line in words, and by the
// control socket, one a line as a JSON object. One table has them all; and what an SMS has to be.
#pragma once

#include "host/input/settings_file.h"
#include "host/state/status.h"

#include <optional>
#include <string>
#include <string_view>

namespace kelo_host
{

// clang-format off
enum class command_verb { nothing, sim, set, restart, reload, sms, gps, help, quit, // in words,
                          status, figures, messages, results, watch, at };          // and not
// clang-format on

struct user_command { // NOLINT(bugprone-exception-escape): to destroy a json_value throws nothing
    command_verb verb = command_verb::nothing; // of an empty line or a comment
    int sim = 0;
    std::string number;
    std::string text; // of the message, or the AT command
    setting_fields settings;
    int timeout_s = 0; // of the AT command, 0: the standard
    // of a request alone
    json_value id = nullptr;   // goes back with its answer
    bool wait = false;         // the answer comes once its end is known
    bool show_private = false; // identities, numbers and texts in it
};

// What became of a command, for whoever gave it.
struct reply {
    bool done = true;
    std::string line;                         // may be empty
    int number = 0;                           // of the message, or of the AT command
    json_value fields = json_value::object(); // for a request
};

// Nothing for what is no command; then `error` says why.
std::optional<user_command> parse_command(std::string_view line, std::string& error);

// The same for a request, whose id comes back even then.
std::optional<user_command> parse_request(std::string_view line, json_value& id,
                                          std::string& error);

const char* verb_name(command_verb verb);

std::string command_help(); // the commands in words, for people
json_value request_help();  // the requests, each with its fields

// What is wrong with a message, empty for nothing.
std::string message_fault(std::string_view number, std::string_view text);

} // namespace kelo_host
