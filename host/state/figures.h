// SPDX-License-Identifier: MIT
// What is counted: the keeper's figures and what became of messages.
#pragma once

#include "host/state/status.h"

#include <kelo/messages.h>

namespace kelo_host
{

// Since the start. What the library lost, since too many waited at once, counts as lost alone.
struct message_counts {
    int received = 0;
    int sent = 0, failed = 0, unknown = 0, not_written = 0, refused = 0; // by enum kelo_sms_state
    int delivered = 0, undelivered = 0;                                  // by status reports, parts
    int messages_lost = 0, results_lost = 0, reports_lost = 0;
};

void count(message_counts& counts, const kelo_sms_result& result);
void count(message_counts& counts, const kelo_sms_report& report);

// The name of an enum kelo_action, or null for none and for one of a later library.
const char* action_name(int action);

// One object of named numbers; null for what is not known. `seconds` since the start.
json_value read_figures(const message_counts& counts, long seconds);

} // namespace kelo_host
