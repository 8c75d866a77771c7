/* kelo/mqtt.h: the MQTT client inside the modem.
 */
#ifndef KELO_MQTT_H
#define KELO_MQTT_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Takes an error report: the modem's whole "+QMTSTAT" line, or "Mqtt is lost". Called on the mobile
 * task, which it must not hold up; the text is valid during the call. It may call the library. */
typedef void (*mqtt_urc_handler)(const char* text);

/* Sets the callback for error reports; NULL for none. Returns 0. */
int kelo_set_urc_callback(mqtt_urc_handler callback);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
