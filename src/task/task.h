// SPDX-License-Identifier: MIT
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
#include <utility>

namespace kelo
{

// ---- Start and stop (lifecycle.cpp, restart.cpp)

// Who runs, and who may change that: one record under one mutex, a leaf. The exported word
// cell_repower_lock belongs to it, too: 1 while the restart's thread stops and starts.
struct lifecycle {
    enum { idle, running, stopping } run = idle; // from an init to the next stop
    bool init_under_way = false;
    bool start_thread = false; // the threads of the last init, until they are over
    bool dialer_thread = false;
    bool cell_start_lock = false;    // a start, stop or reload is under way
    bool restart_gate = false;       // a restart was wished for, its thread has not begun yet
    bool mobile_task_run = false;    // the mobile task is to go on
    bool mobile_task_stopped = true; // no mobile task runs, not even one that is yet to begin
    bool at_ready = false;           // a start once got as far as its task

    bool nothing_runs() const;
};

extern lock life_lock;
extern lifecycle life;

// Looks at the record, or changes it, in one step.
template <class Step> auto in_life(const Step& step)
{
    const lock_scope<life_lock> hold;
    return step(life);
}

// True for the one caller that found the flag down, which is up then.
inline bool life_take(bool lifecycle::*flag)
{
    return !refused_in_fork("lifecycle") &&
           in_life([&](lifecycle& now) { return !std::exchange(now.*flag, true); });
}
inline void life_set(bool lifecycle::*flag, bool value)
{
    in_life([&](lifecycle& now) { now.*flag = value; });
}
inline bool life_get(bool lifecycle::*flag)
{
    return in_life([&](const lifecycle& now) { return now.*flag; });
}

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
    std::int64_t armed_ms = 0;      // monotonic, of the running command
    std::int64_t errand_ms = 0;     // monotonic, when the errand had nothing to do, or had its turn
    bool asked = false;             // the last errand was a command of the host's
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
