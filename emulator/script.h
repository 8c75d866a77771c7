// SPDX-License-Identifier: MIT
// Orders one a line, from a file or from standard input, carried out one behind the other while the
// modem goes on; with the orders that the tool alone has: sleep, expect, quit.
#pragma once

#include "emulator/answers.h"
#include "emulator/modem.h"

#include <string>

namespace kelo_emulator
{

// Whether to go on behind an order, or why not.
enum class run_state {
    on,
    failed, // so many orders have failed that this is the end
    quit,
    signalled,
};

struct script_run {
    emulated_modem& modem;
    const answer_printer& answers;
    int signals;           // becomes readable when the process is to end
    int most_failures;     // the last one ends the script; 0: none does
    int failures = 0;      // so far
    std::size_t heard = 0; // the first command behind the one that an `expect` found
};

// Opens a script, "-" is standard input. Waits for the writer of a FIFO. -1, and what is wrong with
// it in `error`.
int open_script(const std::string& path, std::string& error);

// One order. `place` stands ahead of its complaints, `line` is its number there.
run_state take_order(script_run& run, const std::string& text, const std::string& place = "",
                     std::size_t line = 0);
// All orders that come from `fd`. Complaints name their line when `name` is not empty.
run_state run_script(script_run& run, int fd, const std::string& name = "");
void wait_for_signal(const script_run& run);

} // namespace kelo_emulator
