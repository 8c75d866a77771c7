// The modem core: the one modem record, its start and stop, the task that owns the AT port, events
// and the status word.
//
// Threads: the mobile task lives here. Starts, stops and reloads come in on the threads of the host
// and on those that the library starts for them; cell_start_lock lets one of them in at a time.
// Words that leave: everything in kelo/gsm.h, and those below.
#pragma once

#include "support/lock.h"
#include "support/words.h"
#include <kelo/gsm.h>

#include <cstdint>

namespace kelo
{

// The record's name is taken by the record itself, so the type needs one of its own.
using event = struct gsm_event;

// ---- The record (record.cpp)

// The pointer that every accessor uses; null after libgsm_mobile_free.
extern gsm_mobile* mobile;
inline gsm_mobile* modem_record()
{
    return word_get(mobile);
}

// Writes the code into gsm_event and gives its address. The caller holds record_lock.
event* raise_event(int code);

// The full cell id behind g_mobile.cid, guarded by record_lock: 5G cells have 36 bits.
extern std::uint64_t full_cell_id;

// ---- Start and stop (lifecycle.cpp)

extern int cell_start_lock;     // taken by start, stop and reload, one at a time
extern int mobile_task_run;     // the mobile task goes on while this is non-zero
extern int mobile_task_stopped; // no mobile task runs; the task's last act is to set it

int libgsm_init(gsm_mobile** place, unsigned char low_power);
int libgsm_start(gsm_mobile* rec, int sim);
void libgsm_stop(gsm_mobile* rec);
void cellular_gsm_free();
void* cellular_start_thread(void* argument);

// ---- The mobile task (task.cpp)

extern int gsm_init_flag; // 1: the modem has finished its own start, commands and timers may run

void* corvel_mobile_dchannel(void* record);
bool on_mobile_task();

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

// ---- The port (port.cpp)

constexpr int port_limit = 128; // device indices run from 0 to 127

void libgsm_search_usb_port(gsm_mobile* rec);
int libgsm_mobile_open_usb(gsm_mobile* rec);
int libgsm_mobile_setup_serial(gsm_mobile* rec);
void libgsm_mobile_close_usb(gsm_mobile* rec);
int mobile_device_exist();

// The open descriptor, or -1.
int port_descriptor(gsm_mobile* rec);

// ---- Events (events.cpp)

extern int sim_failed_count;
extern int sim_cpin_count;
extern int sms_pending_count; // messages handed in and not yet answered
extern int no_signal_count;

int mobile_handle_event(gsm_mobile* rec, event* what);

} // namespace kelo
