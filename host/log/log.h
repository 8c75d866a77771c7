// SPDX-License-Identifier: MIT
// The library's lines: masked, and with a time or a priority ahead.
#pragma once

#include <kelo/log.h>

#include <string>
#include <string_view>

namespace kelo_host
{

struct log_options {
    int fd = 1;
    kelo_log_level most = KELO_LOG_DEBUG; // what is less important is left out
    bool show_private = false;
};

// Takes the lines over. A reader that has stopped costs a thread of the library a second once; from
// then on lines are dropped until it reads again, and their number is said.
void start_log(const log_options& options);

// What stands ahead of a line: a priority of the journal, or the time and the level.
std::string log_prefix(kelo_log_level level, bool for_journal);

} // namespace kelo_host
