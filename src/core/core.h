// SPDX-License-Identifier: MIT
// What all of the library stands on: the modem record and the event record, the words that threads
// share, the status word, the settings with the slots of the SIMs, and the AT port.
//
// Threads: any. record_lock guards the record and the event, settings_lock the settings, port_lock
// the descriptor; every shared word goes through word_get and its kin.
// Words that leave: all of words.cpp, where each has a line of its own.
#pragma once

#include "support/lock.h"
#include "support/words.h"
#include <kelo/gsm.h>
#include <kelo/settings.h>
#include <kelo/trace.h>

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

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

// Of a reg_status: in the home network, or roaming.
constexpr bool is_registered(int status)
{
    return status == KELO_REGISTRATION_HOME || status == KELO_REGISTRATION_ROAMING;
}

// Writes the code into gsm_event and gives its address. The caller holds record_lock.
event* raise_event(int code);

// The full cell id behind g_mobile.cid, guarded by record_lock: 5G cells have 36 bits.
extern std::uint64_t full_cell_id;

// Forgets what belongs to a SIM and a network; the module's identity and all settings stay.
void libgsm_reset_cell_info(gsm_mobile* rec);

// ---- Shared words (words.cpp; the exported ones are declared in kelo/)

extern int gsm_init_flag;
extern int flow_walked;
extern int verizon_flag;
extern int cell_start_flag;
extern int cell_restart_flag;
extern int sim_failed_count;
extern int sim_cpin_count;
extern int no_signal_count;
extern int mqtt_conn_lost;
extern int sms_pending_count;
extern int g_mode_no_service;
extern int attach_timeout;
extern int sms_reports_wanted;

// With a keeper the rooms below it act with more care, and tell it what they see.
extern int keeper_on;
extern int link_held;
extern int reads_heard;
extern int modem_at_work;
extern int port_error;
extern int body_due;
extern int radio_answer;
extern int link_trouble;
extern int link_due_s;
extern int radio_reset_wanted;
extern int redial_wanted;
extern int start_count;
extern int reload_count;
extern int radio_reset_count;
extern int dial_count;
extern int link_loss_count;

void cell_restart_flag_set();
void cell_restart_flag_reset();
int cell_restart_flag_get();

// ---- The mobile task's identity (record.cpp)

// The thread that says it first is the mobile task, until it says that it ends.
void mobile_task_begins();
void mobile_task_ends();
bool on_mobile_task();

// ---- Settings and SIM slots (settings.cpp)

// The working copy as it stands at one moment: old or new, never a mix. Its texts are terminated.
cellular_setting start_settings_copy();

// What of it says how the link is pinged.
struct ping_settings {
    int enable;
    char target[sizeof cellular_setting::ping_target];
};
ping_settings start_ping_settings();

// Both of the library's copies, or the working one alone, take the host's record.
void settings_store(const cellular_setting& wanted);
void start_settings_store(const cellular_setting& wanted);

// The host's record with every text terminated inside its field, and zeroes behind it.
cellular_setting settings_cleaned(const cellular_setting& from);

// Fills the slot of SIM 1 from the settings, by way of the exported texts.
void sim_slot_fill(const cellular_setting& wanted, int scan_code);
void sim_slot_fill_texts(const cellular_setting& wanted); // its scan code stays
void sim_slot_set_scan_code(int scan_code);

int select_scanmode(int sim); // of the slot, into the modem record
void copy_sim_settings();     // PIN and service centre of the active SIM, into the modem record
const char* cellular_get_pincode();
const char* cellular_get_smscenter();
void pin_of_slot(int sim, char (&pin)[64]); // of that SIM and no other; empty for none

// ---- Setters of the record (setters.cpp)

// Whether a text may stand between the quotes of a command; says so when not. Null may: no text.
bool accepts_text(const char* what, const char* text);

// ---- The port (port.cpp)

constexpr int port_limit = KELO_AT_PORT_NONE; // device indices run from 0 to 127

void libgsm_search_usb_port(gsm_mobile* rec);
int libgsm_mobile_open_usb(gsm_mobile* rec);
int libgsm_mobile_setup_serial(gsm_mobile* rec);
void libgsm_mobile_close_usb(gsm_mobile* rec);
int mobile_device_exist();

// Whether a start would find a port: the one that the host has named, or one of the modem's.
bool port_there();

// Whether the open port is not, or no longer, the device of its name.
bool port_lost(gsm_mobile* rec);

void port_hung_up(); // it is traced

// The open descriptor, or -1.
int port_descriptor(gsm_mobile* rec);

// ---- What goes over the port, for the host's callback (port_trace.cpp)

// write(2), begun anew after a signal, and read(2).
ssize_t port_put(int fd, const char* bytes, std::size_t length);
ssize_t port_take(int fd, char* bytes, std::size_t size);
void port_trace(kelo_port_happening what, const char* path);

// Calls the callback for what waits, without a lock; for a thread that holds one it does nothing.
void port_trace_deliver();
void port_trace_pause(bool pause); // as long as a lock is held that is no lock_scope

} // namespace kelo
