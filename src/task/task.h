// The mobile task: the one thread that walks flows and listens to the modem, what it does with each
// event, and how it is started, stopped, reloaded and restarted.
//
// Threads: the mobile task lives here. Starts, stops and reloads come in on the threads of the host
// and on those that the library starts for them. A restart runs on a thread of its own, since
// cellular_stop waits for the mobile task, and the mobile task may be the one that asked.
// Words that leave: cell_repower_lock, cell_first_boot, is_pin_ready, the status word.
#pragma once

#include "at/at.h"

#include <cstdint>

namespace kelo
{

// ---- Start and stop (lifecycle.cpp, restart.cpp)

extern int cell_start_lock;     // taken by start, stop and reload, one at a time
extern int mobile_task_run;     // the mobile task goes on while this is non-zero
extern int mobile_task_stopped; // no mobile task runs; the task's last act is to set it
extern int restart_gate;

int libgsm_init(gsm_mobile** place, unsigned char low_power);
int libgsm_start(gsm_mobile* rec, int sim);
void libgsm_stop(gsm_mobile* rec);
void cellular_gsm_free();
void* cellular_start_thread(void* argument);
void* restart_cellular_thread(void* argument);

// ---- The task (task.cpp)

void* corvel_mobile_dchannel(void* record);

// What the task's rooms below make of the exchange.
extern const exchange_hooks task_hooks;

// What one pass of the task keeps for the next.
struct task_state {
    at_info* running = nullptr;     // result of the last choice; null while no command runs
    std::int64_t last_us = 0;       // time of day of the last pass, ahead of its sleep
    std::int64_t last_quiet_ms = 0; // monotonic, of the last poll that met silence
    std::int64_t last_tick_ms = 0;  // monotonic, of the last timer tick
    int low_power_credit = 0;
    bool hung_up = false; // said already that the port is hung up
};

// Microseconds to sleep ahead of a pass that starts at now_us; notes now_us for the next.
long task_pace(task_state& state, std::int64_t now_us);

// One pass. False ends the task.
bool task_pass(gsm_mobile* rec, task_state& state);

// ---- Events (events.cpp)

int mobile_handle_event(gsm_mobile* rec, event* what);

} // namespace kelo
