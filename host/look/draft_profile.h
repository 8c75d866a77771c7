// SPDX-License-Identifier: MIT
// The first profile file of a module, from what it answers. Nothing is sent that changes anything
// in the modem: names, and the test forms of commands (AT+X=?).
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kelo_host
{

struct at_answer {
    enum class end { ok, refused, silent } how = end::silent;
    std::vector<std::string> lines; // without echo and final result
};
using at_question = std::function<at_answer(const std::string& command)>;

struct profile_draft {
    std::string text;  // of the file; empty with a fault
    std::string fault; // in words
    int status = 0;    // exit status of the program
};

// From any answers: bounded, printable, and clean in the eyes of check_profiles.
profile_draft draft_profile(const at_question& ask);

// Of the modem at this port, empty for none. Each answer is waited for 3 s at most, and a modem
// that says nothing three times is given up.
profile_draft draft_profile_at(const std::string& port);

} // namespace kelo_host
