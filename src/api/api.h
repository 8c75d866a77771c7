// The host's interface: settings and bring-up, status queries, setters of the record, MQTT and GPS
// inside the modem.
//
// Threads: the calls come in on host threads; the MQTT and GPS ticks run on the mobile task; the
// dialer thread and the start read the settings through the copying calls below.
// Words that leave: g_netWorkCardFlag, start_status, needSetApn, global_quagga_stop, cell_pdpdeact.
#pragma once

#include "core/gsm.h"
#include <kelo/settings.h>

namespace kelo
{

// settings.cpp

// The working copy as it stands at one moment: old or new, never a mix. Its texts are terminated.
cellular_setting start_settings_copy();

// Both of the library's copies, or the working one alone, take the host's record.
void settings_store(const cellular_setting& wanted);
void start_settings_store(const cellular_setting& wanted);

// The host's record with every text terminated inside its field, and zeroes behind it.
cellular_setting settings_cleaned(const cellular_setting& from);

void net_mode_to_scan_code(int net_mode);

// Non-zero: the chosen 3G mode can't be served, so kelo_get_cellular reports no service.
extern int g_mode_no_service;
extern int attach_timeout; // 50 or more; its unit is the host's

// bring_up.cpp

// How long an init after a stop waits for the threads of the run before it.
extern int end_wait_ms;

// setters.cpp

// Whether a text may stand between the quotes of a command; says so when not. Null may: no text.
bool accepts_text(const char* what, const char* text);

// mqtt.cpp
int libgsm_set_cellular_wake();              // idle tick
int libgsm_check_mqtt_sub(const char* line); // every line, ahead of its handler
int libgsm_mqtt_urc_error(const char* text); // to the host's report callback
int libgsm_stop_mqtt_update();               // waits for an attempt under way

// gps.cpp
int libgsm_send_gps_location();                  // every timer tick
int libgsm_check_gps_location(const char* line); // every line, ahead of its handler

} // namespace kelo
