// SPDX-License-Identifier: MIT
// What runs inside the modem besides the radio: its MQTT client and its GPS. Readers of their
// reports, and what they do at a tick of the idle task.
//
// Threads: settings and polls come in on host threads; readers and ticks run on the mobile task.
// Words that leave: none; callbacks of the host are called without any lock.
#pragma once

#include "core/core.h"

namespace kelo
{

// ---- MQTT (mqtt.cpp)

int libgsm_set_cellular_wake();              // idle tick: an attempt, when one is due
int libgsm_check_mqtt_sub(const char* line); // every line, ahead of its handler
int libgsm_mqtt_urc_error(const char* text); // to the host's report callback
int libgsm_stop_mqtt_update();               // waits for an attempt under way

event* qmtconn_handler(gsm_mobile* rec, char* line);

// ---- GPS (gps.cpp)

int libgsm_send_gps_location();                  // every timer tick
int libgsm_check_gps_location(const char* line); // every line, ahead of its handler
event* gps_handler(gsm_mobile* rec, char* line);

} // namespace kelo
