/* kelo/settings.h: what a host configures: the modem record's settings, and the slot of each SIM.
 *
 * Every setter may be called from any thread, before the start too, and from inside a callback of
 * the library. It stores its value under the library's lock and sends nothing: a later command or
 * flow uses it. All return 0, or -1 where nothing was stored: while there is no modem record
 * (libgsm_mobile_free), or for a text that is refused.
 *
 * Texts go out between the quotes of AT commands. One that holds a quote (") or a control character
 * (CR, LF, Ctrl-Z, Escape and all others) is refused with a message, and the record stays as it
 * was. A text longer than its field is cut. Texts are copied; the host keeps its own.
 */
#ifndef KELO_SETTINGS_H
#define KELO_SETTINGS_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Access point name, user and password of the data context: at most 127 characters each, NULL for
 * none. auth: 0 none, 1 PAP, 2 CHAP, 3 both; sent to the modem as it is. With one of the texts
 * refused, none of the four values changes. */
int libgsm_set_apn(const char* apn, const char* user, const char* password, int auth);

/* SIM PIN, at most 63 characters (real ones have 4 to 8 digits, 3GPP TS 31.101 9.5.1). NULL changes
 * nothing; an empty text forgets the PIN. The PIN goes out only straight after the modem has asked
 * for one. Every start and reload set it again from the slot of the active SIM. */
int libgsm_set_pincode(const char* text);

/* SMS service centre number, at most 31 characters; NULL or an empty text for none. Every start and
 * reload set it again from the slot of the active SIM. */
int libgsm_set_smscenter(const char* text);

/* Wanted scan mode: 0 automatic, 1 as the module has it (GSM on most), 2 WCDMA, 3 LTE, 9 by
 * cell_network_switch LTE with NR or NR alone, 10 NR alone. Other values go to modules that take a
 * number as they are. Used by the next flow. */
int libgsm_set_scanmode(int value);

/* Non-zero: the command that selects the UCS2 character set ahead of a PDU is passed over. */
int libgsm_set_smsmode(int value);

/* VoLTE setting for modules that have one: 0 off, 1 on, up to three digits. Used by the next flow.
 */
int libgsm_set_volte(int value);

/* SIM slot to switch to by command: 1 or 2; any other value asks for no switch. Used once, by the
 * next flow of a module whose commands have a slot selection. */
int libgsm_set_simslot(int value);

/* One SIM's configuration. All zero at load. The library reads the texts at each start and reload
 * and keeps no copy: they must stay alive and unchanged. NULL stands for none. A host fills a slot
 * of its own before the start, or between cellular_stop and cellular_start. */
struct cell_sim_cfg {
    int scan_code; /* scan mode at the next start: 2 gives 3, 4 gives 2, 6 gives 1, 7 gives 9,
                    * 8 gives 10, any other value 0 (see libgsm_set_scanmode) */
    const char* apn;
    const char* auth;
    const char* user;
    const char* password;
    const char* pin;  /* NULL leaves the PIN that the record has */
    const char* smsc; /* NULL empties the service centre number of the record */
};

/* The slot of SIM 1 or 2; NULL for any other number. */
struct cell_sim_cfg* cell_sim_config(int sim);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
