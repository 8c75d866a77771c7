/* SPDX-License-Identifier: MIT */
/* kelo/settings.h: what a host configures, and how it brings the library up, changes it and stops
 * it.
 *
 *     struct cellular_setting settings = {0};   filled by the host
 *     kelo_init_cellular(&settings, 0);         returns at once; the modem comes up on other
 * threads
 *     ... the calls of kelo/status.h, and changes of settings ...
 *     kelo_deinit_cellular();
 *
 * Unless a call says otherwise it may be made from any thread, and from inside a callback of the
 * library. Records and texts of the host are copied; the library keeps no reference to them.
 */
#ifndef KELO_SETTINGS_H
#define KELO_SETTINGS_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- What the numbers mean ----------------------------------------------------------------- */

/* Authentication of the data context: auth of cellular_setting, gsm_mobile and libgsm_set_apn.
 * Modem and dialer get the number as it is, and read 3 in their own way. */
enum kelo_auth {
    KELO_AUTH_NONE = 0,
    KELO_AUTH_PAP = 1,
    KELO_AUTH_CHAP = 2,
    KELO_AUTH_PAP_OR_CHAP = 3, /* as a modem reads it (AT+QICSGP, AT$QCPDPP) */
    KELO_AUTH_MSCHAP = 3,      /* as g_Auth and a dialer read it */
    KELO_AUTH_MSCHAPV2 = 4
};

/* cellular_setting.net_mode: the networks to use. Any other number is as KELO_NET_AUTOMATIC. */
enum kelo_net_mode {
    KELO_NET_AUTOMATIC = 0,
    KELO_NET_LTE = 1,
    KELO_NET_UMTS = 2,       /* see kelo_set_cellular */
    KELO_NET_MODULE = 3,     /* KELO_SCAN_MODULE at the start, automatic in a change */
    KELO_NET_LTE_AND_NR = 4, /* LTE and 5G */
    KELO_NET_NR = 5          /* 5G alone */
};

/* libgsm_set_scanmode: the networks to use, in the library's own numbers. */
enum kelo_scan_mode {
    KELO_SCAN_AUTOMATIC = 0,
    KELO_SCAN_MODULE = 1, /* as the module has it, GSM on most */
    KELO_SCAN_WCDMA = 2,
    KELO_SCAN_LTE = 3,
    KELO_SCAN_SWITCHED = 9, /* by cell_network_switch LTE with NR or NR alone */
    KELO_SCAN_NR = 10       /* NR alone */
};

/* cell_sim_cfg.scan_code: the scan mode of a SIM, in numbers of its own. Any other number is as
 * KELO_SCAN_CODE_AUTOMATIC. */
enum kelo_scan_code {
    KELO_SCAN_CODE_AUTOMATIC = 0,
    KELO_SCAN_CODE_LTE = 2,      /* KELO_SCAN_LTE */
    KELO_SCAN_CODE_WCDMA = 4,    /* KELO_SCAN_WCDMA */
    KELO_SCAN_CODE_MODULE = 6,   /* KELO_SCAN_MODULE */
    KELO_SCAN_CODE_SWITCHED = 7, /* KELO_SCAN_SWITCHED */
    KELO_SCAN_CODE_NR = 8        /* KELO_SCAN_NR */
};

/* ---- The settings -------------------------------------------------------------------------- */

/* Texts are terminated; one that fills its field without a terminator is cut by its last character.
 * An empty text stands for none. A text with a quote (") or a control character never gets into the
 * modem record: it is refused with a message there, and the record keeps what it has. */
struct cellular_setting {
    int enable;         /* non-zero: the data link is wanted */
    char apn[32];       /* access point name */
    char user[256];     /* user name of the access point */
    char password[32];  /* its password */
    char pin[64];       /* SIM PIN, 4 to 8 digits (3GPP TS 31.101 9.5.1) */
    int auth;           /* enum kelo_auth */
    int net_mode;       /* enum kelo_net_mode */
    int attach_timeout; /* values below 50 count as 50. The library stores it and reads it nowhere:
                         * the unit is the host's */
    int ping_enable;    /* 0: the link counts as up without a ping */
    char ping_target[32]; /* host name or address that is pinged through wwan0 */
};

/* The record as last given to kelo_init_cellular or kelo_set_cellular, its texts terminated. The
 * library does not read it; a host that changes settings from several threads reads it under a lock
 * of its own. */
extern struct cellular_setting g_cellSet;

/* ---- Bring-up, change, stop ---------------------------------------------------------------- */

/* Stores the settings and starts the library: the modem is opened and walked on threads of the
 * library. low_power non-zero: commands wait until the modem says that it is up (three silent
 * seconds at most), the start has low power's own first commands, and the APN is always sent.
 *
 * Once per process, or again after kelo_deinit_cellular (a host that wants the new run to go on has
 * set global_quagga_stop back to 0 ahead of it). A second call is refused with a message and
 * changes nothing while the library runs. After a stop it first waits for the threads of the old
 * run to end and closes their port: mostly two seconds, 60 at most, then it is refused with a
 * message. So is a call on the mobile task, that is from a callback, and a NULL. */
void kelo_init_cellular(const struct cellular_setting* settings, unsigned char low_power);

/* Applies new settings to a running library, without a restart:
 *
 *     enable                         at once
 *     apn, user, password, auth      at the next dial; the modem record keeps its own
 *     pin                            at the next start or reload
 *     net_mode                       at once, by two commands a second apart, and at each start
 *     ping_enable, ping_target       at the next ping
 *     attach_timeout                 at once
 *
 * and raises cell_pdpdeact, so that the host sees a change. With enable 0 the link is
 * switched off and wwan0 and wwan0.1 are taken down (kelo_system); nothing is sent, the SIM's slot
 * stays, and a dialer that runs is not stopped. Blocks for a second, longer while the port refuses
 * writes. Returns 1, or 0 for NULL.
 *
 * A host calls it for a net_mode that has changed, and kelo_set_cellular_but_mode for all else.
 * With net_mode 2 the link counts as without service unless the operator is "CHN-UNICOM", also when
 * the mode was 2 all along and the link is up: from then on each kelo_get_cellular takes wwan0
 * down, until a call with another net_mode. A start in that mode (kelo_init_cellular,
 * kelo_cellular_restart) has no such rule. */
int kelo_set_cellular(const struct cellular_setting* settings);

/* The same for all but net_mode: the modem keeps its mode, nothing is sent, cell_pdpdeact is not
 * raised, wwan0 stays as it is, and the slot of SIM 1 is filled whatever enable is. Does not block.
 * Returns 1, or 0 for NULL. */
int kelo_set_cellular_but_mode(const struct cellular_setting* settings);

/* Applies new settings and restarts the modem task: apn, user, password, auth and pin go into the
 * modem record at once, and the restarted flow sends the APN to the modem; net_mode with the start.
 * The start then takes the PIN of the active SIM's slot, where there is one. g_cellSet and the
 * attach time-out stay. Returns once the restart is on its way. NULL does nothing, with a message.
 */
void kelo_cellular_restart(const struct cellular_setting* settings);

/* Ends an MQTT update, for which it waits until an attempt under way is out (five seconds as a
 * rule, see kelo/mqtt.h), and asks every thread of the library to end at its next look at
 * global_quagga_stop. Otherwise returns at once. The AT port stays open, and the dialer program and
 * wwan0 stay up. */
void kelo_deinit_cellular(void);

/* What the calls above are made of. A host that is content with those needs none of these. */

int init5G(const struct cellular_setting* settings, unsigned char low_power); /* 0, or -1: refused,
                                                                               * or no thread */
int deinit5G(void);                                                           /* 0 */
void cellular_restart(const struct cellular_setting* settings); /* kelo_cellular_restart */

/* Fills the slot of SIM 1 and the texts below from the settings, sends the two commands of net_mode
 * and, with apply_attach non-zero, stores attach_timeout and raises cell_pdpdeact. A text wider
 * than its buffer is cut, a PIN that wide is left out: both with a message. NULL does nothing but
 * say so. Blocks for a second. */
void set_5G_para(const struct cellular_setting* settings, int apply_attach);

void set_network_card_flag(int value); /* g_netWorkCardFlag */
void set_attach_timeout(int value);    /* values below 50 count as 50 */

/* The working copy, which the dialer reads at every dial and ping. Its address stays; the record
 * may change at any moment, and a host that wants to read it whole changes no settings meanwhile.
 */
struct cellular_setting* get_start_cellular_status(void);

extern int g_netWorkCardFlag;  /* non-zero: the data link is wanted */
extern int g_stability5GCount; /* set to 0 by the init; for the host's own use */

/* Texts of the slot of SIM 1, filled by set_5G_para. */

extern char g_Apn[32];      /* access point name */
extern char g_Usr[32];      /* its user name */
extern char g_passWard[32]; /* its password */
extern char g_Pin[32];      /* SIM PIN */
extern char g_Auth[32];     /* "pap", "chap", "ms-chap", "ms-chapv2" or "none" */

/* ---- SIM cards ----------------------------------------------------------------------------- */

/* One SIM's configuration. All zero at load. The library reads the texts at each start and reload
 * and keeps no copy: they must stay alive and unchanged. NULL stands for none. The library fills
 * the slot of SIM 1 from the settings; a host fills a slot itself before the start, or between
 * cellular_stop and cellular_start. */
struct cell_sim_cfg {
    int scan_code;        /* enum kelo_scan_code: the scan mode at the next start */
    const char* apn;      /* access point name */
    const char* auth;     /* its authentication, as g_Auth */
    const char* user;     /* its user name */
    const char* password; /* its password */
    const char* pin;      /* NULL leaves the PIN that the record has */
    const char* smsc;     /* NULL empties the service centre number of the record */
};

/* The slot of SIM 1 or 2; NULL for any other number. */
struct cell_sim_cfg* cell_sim_config(int sim);

/* Switches to a SIM, 1 or 2: a module of family 14 by command in the next flow that holds it, any
 * other by the switch behind /dev/brgpio, at once. selected_card follows; where the device can't be
 * opened it stays, with a message on standard error. Settings of that SIM reach the modem with the
 * restart or reload that the host asks for next. Returns 0 in every case. */
int mobile_select_simcard(int sim);

int cellular_switch_simcard(void); /* does nothing, returns 0 */

void sim_switch_flag_set(int value); /* a word that nothing reads */

/* ---- The modem record's settings ----------------------------------------------------------- */

/* Each setter stores its value under the library's lock and sends nothing: a later command or flow
 * uses it. All return 0, or -1 where nothing was stored: while there is no modem record
 * (libgsm_mobile_free), or for a text that is refused.
 *
 * Texts go out between the quotes of AT commands. One that holds a quote (") or a control character
 * (CR, LF, Ctrl-Z, Escape and all others) is refused with a message, and the record stays as it
 * was. A text longer than its field is cut. */

/* Access point name, user and password of the data context: at most 127 characters each, NULL for
 * none. auth: enum kelo_auth; sent to the modem as it is. With one of the texts
 * refused, none of the four values changes. */
int libgsm_set_apn(const char* apn, const char* user, const char* password, int auth);

/* SIM PIN, at most 63 characters (real ones have 4 to 8 digits, 3GPP TS 31.101 9.5.1). NULL changes
 * nothing; an empty text forgets the PIN. The PIN goes out only straight after the modem has asked
 * for one. Every start and reload set it again from the slot of the active SIM. */
int libgsm_set_pincode(const char* text);

/* SMS service centre number, at most 31 characters; NULL or an empty text for none. Every start and
 * reload set it again from the slot of the active SIM. */
int libgsm_set_smscenter(const char* text);

/* Wanted scan mode, enum kelo_scan_mode. Other values go to modules that take a number as they are.
 * Used by the next flow. */
int libgsm_set_scanmode(int value);

/* Non-zero: the command that selects the UCS2 character set ahead of a PDU is passed over. */
int libgsm_set_smsmode(int value);

/* VoLTE setting for modules that have one: 0 off, 1 on, up to three digits. Used by the next flow.
 */
int libgsm_set_volte(int value);

/* SIM slot to switch to by command: 1 or 2; any other value asks for no switch. Used once, by the
 * next flow of a module whose commands have a slot selection. */
int libgsm_set_simslot(int value);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
