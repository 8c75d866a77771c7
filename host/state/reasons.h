// SPDX-License-Identifier: MIT
// Why the device is not online, in words for people: what each reason means, what to try, and the
// exit status that goes with it. docs/troubleshooting.md says it at length.
#pragma once

#include <kelo/keeper.h>

#include <string>
#include <string_view>

namespace kelo_host
{

// Where it is wrong. The number is the exit status of a host that has waited in vain.
enum class reason_group { start = 1, port = 10, module, sim, network, link };

struct reason_row {
    kelo_reason reason;
    reason_group group;
    const char* meaning;
    const char* hint; // what to try; empty where all is well
};
const reason_row& row_of(kelo_reason reason);
const reason_row* row_of(std::string_view word); // of kelo_reason_name, or null

// One line, the word included. A module that no flow knows is called by its name.
std::string line_of(kelo_reason reason);

// The line for such a module once it has told its name and revision; empty for every other.
std::string unknown_module();

// What a host can wait for.
struct goal {
    const char* name;
    bool (*holds)();
};
const goal* goal_named(std::string_view name); // or null

} // namespace kelo_host
