// SPDX-License-Identifier: MIT
// The SIM guard: what the SIM says of itself, and, while a keeper is on, whether its PIN may go
// out. A card takes three wrong PINs in its life between two right ones, and then its owner has to
// come.
//
// Runs on the mobile task, but for sim_guard_look and sim_guard_rule. Its record is guarded by
// record_lock.
#pragma once

#include "core/core.h"

namespace kelo
{

enum class sim_state { unknown, ready, pin, puk, missing, failed };

// What is known of the card in use.
struct sim_view {
    sim_state state = sim_state::unknown;
    int tries = -1;        // of its PIN, -1 unknown
    bool refused = false;  // the PIN that its slot has
    bool may_send = false; // that PIN, as far as the guard is asked
};
sim_view sim_guard_look();

// With how many tries left a PIN may go out; forgets a refusal.
void sim_guard_rule(int tries_least);

// Each line of the modem.
void sim_guard_hear(const char* line);

// What becomes of the command that sends the PIN: it passes, or asks something else first and then
// has its turn again, or goes out.
enum class pin_step { pass, ask, send };
pin_step sim_guard_next(char (&text)[64]); // of the question, or the PIN

// A line while that command runs. True when it was of the dialogue on the PIN.
bool sim_guard_answer(gsm_mobile* rec, const char* line);

} // namespace kelo
