/* SPDX-License-Identifier: MIT */
/* kelo/mqtt.h: the MQTT client inside the modem.
 *
 * The library brings the modem's client (number 0) up to one confirmed subscription, called an
 * update, and does no more: no MQTT packet passes through it. A host hands in its settings
 * (kelo_set_cellular_wake), is told by a callback when the subscription stands, and watches two
 * things from then on: the flag of incoming messages, and the error reports, on which it hands its
 * settings in again. Commands and reports are those of Quectel's MQTT, FILE and SSL AT commands
 * manuals.
 *
 * Every call may be made from any thread and from inside both callbacks.
 */
#ifndef KELO_MQTT_H
#define KELO_MQTT_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Told with 1 when the subscription is confirmed. Called on the mobile task, which it must not hold
 * up. It may call the library, a new kelo_set_cellular_wake included. */
typedef void (*mqtt_done_handler)(int result);

/* mqtt_config.tls_mode; any other value is as KELO_TLS_OF_MODEM. */
enum kelo_tls {
    KELO_TLS_NONE,     /* plain */
    KELO_TLS_OF_MODEM, /* TLS as the modem is configured */
    KELO_TLS_FILES /* TLS with the three files of the settings uploaded and both sides checked */
};

/* Every text is terminated within its field. */
struct mqtt_config {
    int update_pending; /* ignored; the library's own copy has 1 until the update ends */
    int tls_mode;       /* enum kelo_tls */
    char host[64];      /* name or address of the broker */
    char port[16];      /* digits */
    char client_id[64]; /* MQTT client identifier */
    char user[256];     /* MQTT user name */
    char password[256]; /* MQTT password */
    char topic[64];     /* the one topic filter that is subscribed to, with QoS 0 */
    char ca_file[64];   /* path of the CA certificate, PEM, on this device */
    char cert_file[64]; /* path of the client's certificate */
    char key_file[64];  /* path of the client's key */
    int keepalive;      /* seconds, 0 to 3600, as the modem takes it */
    mqtt_done_handler mqtt_done_callback; /* should be set; without it nobody is told */
};

/* Starts an update. The settings are copied, and nothing of them is used before the copy is
 * complete. While the SIM is ready and the modem registered (in low power mode at once) an attempt
 * is made on the first idle second of the process and on every sixth after an attempt or after a
 * step of it that the modem confirmed, each from the disconnect on, without a limit: until the
 * subscription is confirmed or kelo_deinit_cellular ends the update, which waits for an attempt
 * under way. With global_quagga_stop set an attempt ends within a second. New settings go out with
 * the next attempt; what the modem says about an attempt with other settings, or ahead of the open
 * of the one under way, does not count. For a broker that takes longer, or a fleet of devices, see
 * kelo_set_mqtt_backoff.
 *
 * An attempt holds the mobile task up for 3.2 seconds, 4.8 with three files. A file that can't be
 * read is passed over; one that is no regular file or has more than KELO_MQTT_FILE_LIMIT bytes,
 * too, with a message.
 *
 * Returns 0, or -1 with a message and nothing changed: for NULL, for a text that is not terminated,
 * for a quote or a control character in host, client_id, user, password or topic, for an empty
 * host, port or topic, and for a port with anything but digits. Does not wait for an attempt. */
int kelo_set_cellular_wake(const struct mqtt_config* config);

#define KELO_MQTT_FILE_LIMIT 65536 /* bytes of a certificate or key at most */

/* Non-zero: attempts give the modem time to answer, and keep away from a broker that refuses, each
 * device by itself (off at the start of the process; 0 switches it off again). In idle seconds:
 *
 *     modem silent behind a step     80 to 96 until the next attempt
 *     refused, or dropped within a   10, doubled with each further failure up to 640, and 20 %
 *     minute of the confirmation     more or less
 *     first attempt of an update     0 to 10 where a subscription stood or the modem was not
 *                                    registered before, else none
 *     other settings                 5 at most, and failures count from 0
 *
 * Returns 0. */
int kelo_set_mqtt_backoff(int on);

/* 1 while an update is pending, else 0. */
int kelo_check_mqtt_update(void);

/* Takes an error report: the modem's whole "+QMTSTAT" line, or "Mqtt is lost". Called on the mobile
 * task, which it must not hold up; the text is valid during the call. It may call the library. */
typedef void (*mqtt_urc_handler)(const char* text);

/* Sets the callback for error reports; NULL for none. Returns 0. */
int kelo_set_urc_callback(mqtt_urc_handler callback);

/* 1 since the modem reported an MQTT message ("+QMTRECV"), until cleaned. */
int kelo_is_mqtt_received(void);
int kelo_clean_mqtt_received(void); /* returns 0 */

/* Reads a whole file of any size into a new buffer, which the caller frees with free(); a NUL
 * stands behind the content. Returns the length in bytes; 1 without a buffer for a NULL path; -1
 * without a buffer when the file can't be opened, measured, allocated for or read in full. A buffer
 * that is not given is NULL in *out. */
int ReadFile2String(const char* path, char** out);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
