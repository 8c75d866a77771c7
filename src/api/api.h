// The host's interface: per-SIM settings, setters of the record, MQTT and GPS inside the modem.
//
// Threads: setters come in on host threads; the MQTT and GPS ticks run on the mobile task.
// Words that leave: none but what the public headers name.
#pragma once

#include "core/gsm.h"
#include <kelo/settings.h>

namespace kelo
{

// mqtt.cpp
int libgsm_set_cellular_wake();              // idle tick
int libgsm_check_mqtt_sub(const char* line); // every line, ahead of its handler
int libgsm_mqtt_urc_error(const char* text); // to the host's report callback

// gps.cpp
int libgsm_send_gps_location();                  // every timer tick
int libgsm_check_gps_location(const char* line); // every line, ahead of its handler

} // namespace kelo
