// SPDX-License-Identifier: MIT
// The keeper: keeps the device online with nobody near, where a host asks for it.
//
// Threads: the Keeper thread lives here; the calls come in on any thread.
// Words that leave: keeper_on, link_held; by way of the record below, all that kelo/keeper.h gives
// out.
#pragma once

#include "handlers/sim_guard.h"
#include "link/link.h"
#include <kelo/keeper.h>

#include <cstdint>

namespace kelo
{

// What a pass sees of the world.
struct keeper_sight {
    bool running = false; // an init has been, no stop
    bool wanted = false;  // the modem task is to run
    bool busy = false;    // a start, stop, reload or restart is under way
    bool there = false;   // a node for the AT port
    bool open = false;    // the port is open, on that node, and the task reads it
    int open_error = 0;   // errno of the last try to open it
    int heard = 0;        // reads that held something
    bool at_work = false; // the modem works on a command of the host's, which may take minutes
    bool walked = false;  // the flow is through
    bool unknown_module = false;
    bool unlisted = false; // its very name is
    bool reload_wanted = false;
    bool start_wanted = false;
    sim_view sim;
    bool identified = false; // an IMSI was read
    bool pin_set = false;    // for the active slot
    bool registered = false;
    bool denied = false;
    bool ready = false; // CELL_STATUS_READY
    int radio = 0;      // 1 + <fun> of an answer to AT+CFUN?, 0: none
    bool link_wanted = false;
    bool link_up = false;
    link_state link = link_state::waiting;
    std::int64_t link_due_ms = 0;
    bool reset_wanted = false; // by the dialer
};

// What it does to the world; the tests put their own in its place.
struct keeper_tools {
    keeper_sight (*look)();
    void (*restart)(); // the modem task, on a thread of its own
    void (*reload)();
    void (*reset_radio)();
    void (*send_at)(const char* text);
    void (*drop)(int& word); // takes a wish down
    void (*hold_link)(bool held);
    void (*redial)();                          // what was dialed without a network
    void (*unlock)();                          // the SIM counts as ready
    void (*show_lock)(unsigned int status);    // the bit of the status word, or 0
    void (*say)(const char* text, int number); // a format with one %d, or none
    void (*tell)(kelo_reason reason);          // a new one
};

// The waits, a row each in keeper_pass.cpp.
enum wait_name {
    wait_start,  // a port that can't be opened
    wait_wish,   // starts that events ask for
    wait_pin,    // for a SIM whose PIN has been sent
    wait_reload, // reloads that events ask for
    wait_ask,    // for registration
    wait_sim,    // for the SIM
    wait_nudge,  // for a word of the modem
    wait_search, // a radio that searches
    wait_redial, // a radio through which no dialer comes
    wait_count
};
struct wait_state {
    std::int64_t due_ms = 0;
    int times = 0; // that it was over since all was well
};

// What one pass keeps for the next.
struct keeper_state {
    const keeper_tools* tools;
    kelo_keeper rules{};
    wait_state waits[wait_count] = {};
    kelo_figures figures{};
    kelo_reason reason = KELO_REASON_STOPPED;
    bool was_running = false;
    bool was_there = false;
    bool was_open = false;
    bool was_registered = false;
    bool was_well = false;    // registered, or online
    bool fresh = true;        // the task has been started and has not been looked at since
    bool spoke = false;       // the modem, since then
    bool radio_asked = false; // the same
    int heard = 0;
    int hang_step = 0;            // of the ladder for a modem that hangs
    int stuck_number = 0;         // of the call of `stuck` that is due, 0 for none
    std::int64_t last_ms = 0;     // of the last pass
    std::int64_t silent_ms = 0;   // time with the port open and no word
    std::int64_t radio_on_ms = 0; // since then, as far as we know
    std::int64_t sim_well_ms = 0; // of the last pass with a SIM
    std::int64_t ready_ms = 0;    // of the last pass in which the modem was ready
    std::int64_t link_ms = 0;     // and the link up
    std::int64_t online_ms = 0;
    std::int64_t offline_ms = 0;
    std::int64_t outage_ms = 0; // length of the one under way
    std::int64_t longest_ms = 0;
    std::int64_t action_ms = 0; // when the next thing is done
};

// One pass. Gives the milliseconds until the next.
int keeper_pass(keeper_state& state, std::int64_t now_ms);

} // namespace kelo
