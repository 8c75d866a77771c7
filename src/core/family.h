// SPDX-License-Identifier: MIT
// Habits of module families. A host says the family by its code in is_quectel; what a code changes
// is asked by the habit's name.
#pragma once

namespace kelo
{

bool left_alone();            // the task neither sends nor reads
bool ports_from_1();          // the AT port is at index 1 or above, not 2
bool reports_creg();          // "+CREG" comes by itself and counts
bool reports_cereg();         // "+CEREG" the same
bool cereg_begins_with_n();   // also in the form with three commas
bool acknowledges_sms();      // a message has to be acknowledged by command
bool reports_simst();         // "^SIMST" tells of the SIM
bool sim_failures_escalate(); // to reloads, and to a start
bool restarts_when_down();    // registration lost three times: a start instead of a reload
bool slot_by_command();       // the SIM is switched by a command, not by a line of the board
bool slot_ends_on_ok();       // of that command, whose report comes late or not at all
bool slow_to_start();         // 20 s to the first answer, 30 s to the SIM's state
bool slowest_to_start();      // 60 s to the first answer

} // namespace kelo
