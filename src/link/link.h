// SPDX-License-Identifier: MIT
// The data link: dialer, probes, radio reset, SIM selection.
//
// Threads: the dialer thread lives here.
// Words that leave: cell_network_up, is_pin_ready.
#pragma once

#include "core/core.h"
#include <kelo/link.h>

#include <cstddef>
#include <cstdint>

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

// ---- The dialer with a keeper (kept_link.cpp)

// What it waits for, in seconds but for the spread; the keeper's figures.
struct link_waits {
    int dial_s = 45;
    int redial_s = 10;
    int redial_most_s = 900;
    int spread_percent = 20;
    int dial_spread_s = 0;
    char second_target[64] = "";
};
void link_waits_set(const link_waits& waits);

// The wait behind so many failures in a row, doubled from the first to the most, with its spread.
std::int64_t backoff_ms(int first_s, int most_s, int spread_percent, int failures);

// What keeps the link from being up; the keeper tells it to the host.
enum class link_state { waiting, no_dialer, dialing, no_address, no_ping, up };

// What it does to the world besides; the tests put their own in its place.
struct kept_link_tools {
    bool (*interface_up)(const char* interface);
    bool (*interface_addressed)(const char* interface);
    bool (*program_there)(const char* name);
    int (*link_ping)(const char* interface, const char* target, int wait);
    int (*run)(const char* line);
    int (*start)(const char* line);          // its process, or -1
    bool (*ended)(int process, int& status); // status: of its exit, or -1
    void (*signal)(int process, int number); // to it and what it has started
    void (*sleep_ms)(int ms);
    int (*send_at)(const char* text);
};
struct kept_link_state {
    const kept_link_tools* tools;
    int process = -1;               // the dialer that runs
    bool attempt = false;           // a dial is on its way
    int failures = 0;               // in a row
    std::int64_t dialed_ms = 0;     // of the attempt
    std::int64_t due_ms = 0;        // of the next, 0: not planned yet
    std::int64_t interface_ms = -1; // when the interface came up, -1 while it is down
    std::int64_t up_ms = 0;         // when the link was last verified up
    std::int64_t supervise_ms = 0;  // of the next supervision
    std::int64_t cell_ms = 0;       // of the next question for the serving cell
    const char* said = nullptr;     // what is missing, said already
};
long kept_link_pass(kept_link_state& state, std::int64_t now_ms);

// The tools of the dialer thread, by whether a keeper is on.
struct link_tools {
    const dialer_tools* plain;
    const kept_link_tools* kept;
};
void dialer_run(dialer_state& state, kept_link_state& kept_state);
void* dialer_thread(void* tools); // a link_tools

// Writes the command without the mark that leaves it in the background.
int dialer_line_build(char* buffer, std::size_t size);
bool link_stopping();

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
bool interface_up(const char* interface);        // by the kernel's word, without a program
bool interface_addressed(const char* interface); // IPv4, or IPv6 beyond the link
int interface_present(const char* interface);    // 1 listed, that is up

// ---- Recovery (recovery.cpp)

// Switches the radio off and on, three seconds. 0, or -1 without a record.
int libgsm_reset_base_station();

// ---- SIM selection (sim_select.cpp)
int gpio_select_simcard(int sim);

} // namespace kelo
