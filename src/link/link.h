// The data link: dialer, probes, radio reset, SIM selection.
//
// Threads: the dialer thread lives here.
// Words that leave: cell_network_up, is_pin_ready.
#pragma once

#include "core/core.h"
#include <kelo/link.h>

#include <cstddef>

namespace kelo
{

// ---- The dialer (dialer.cpp)

// What the dialer does to the world outside; the tests put their own in its place.
struct dialer_tools {
    int (*interface_present)(const char* interface);
    int (*link_ping)(const char* interface, const char* target, int wait);
    int (*run)(const char* line);
    int (*send_at)(const char* text);
    int (*reset_radio)();
    int (*restart)();
    void (*sleep)(int seconds);
};
// What one pass keeps for the next. All thresholds count passes.
struct dialer_state {
    const dialer_tools* tools;
    int qeng_ticks = 25;    // link-up passes since the last serving cell query
    int ping_ticks = 0;     // link-up passes since the last supervision
    int ping_wait = 5;      // seconds that the next supervision ping may take
    int ping_fails = 0;     // failed pings in a row
    int dial_countdown = 0; // passes without interface until the next dial
    int dial_attempts = 0;  // dials since the link last came up
    int sim_wait_ticks = 0; // passes without SIM or modem
};

// One pass. Gives the microseconds to sleep ahead of the next, or -1 to end the thread.
long dialer_pass(dialer_state& state);

void dialer_run(dialer_state& state);
void* dialer_thread(void* tools); // a dialer_tools

// Writes the dial command of the working settings and says it. 0; -1, a message and an empty buffer
// when a value can't be given to the dialer or the line does not fit.
int dialer_command_build(char* buffer, std::size_t size);

// ---- The probes (probes.cpp)

// What the first summary line of ping says.
struct ping_summary {
    int transmitted = 1;
    int received = 0;
};
ping_summary ping_summary_read(char* line);

int link_ping(const char* interface, const char* target, int wait); // 1 up, 0 down
int interface_present(const char* interface);                       // 1 listed, that is up

// ---- Recovery (recovery.cpp)

// Switches the radio off and on, three seconds. 0, or -1 without a record.
int libgsm_reset_base_station();

// ---- SIM selection (sim_select.cpp)
int gpio_select_simcard(int sim);

} // namespace kelo
