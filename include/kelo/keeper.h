/* SPDX-License-Identifier: MIT */
/* kelo/keeper.h: keeps the device online with nobody near.
 *
 *     kelo_keep(NULL);                       before or after the init
 *     kelo_init_cellular(&settings, 0);
 *     ... kelo_get_reason(), kelo_get_figures(), and the calls of kelo/status.h ...
 *     kelo_deinit_cellular();
 *
 * Without it the library leaves to its host what to do when a port, a SIM, a network or a dialer
 * fails. With it a thread of the library, "Keeper", does that: it obeys the reload and start flags
 * and the lost context's (cell_pdpdeact), which the host then leaves alone; it watches /dev, and
 * starts the modem task anew when its port is back; it is patient with a radio that searches,
 * redials with growing pauses, guards the SIM's PIN, and gets a modem that hangs going again.
 *
 * Every call may be made from any thread, and from inside a callback of the library. None blocks.
 */
#ifndef KELO_KEEPER_H
#define KELO_KEEPER_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- Why the device is not online ---------------------------------------------------------- */

/* One word at any time. The first that holds, from the port up to the link. */
enum kelo_reason {
    KELO_REASON_STOPPED,        /* no keeper, no init, or a stop */
    KELO_REASON_NO_PORT,        /* no device node for the AT port */
    KELO_REASON_NO_PERMISSION,  /* it may not be opened by this process */
    KELO_REASON_PORT_IN_USE,    /* another program has it */
    KELO_REASON_NO_ANSWER,      /* the modem has said nothing yet, or nothing for silent_s */
    KELO_REASON_UNKNOWN_MODULE, /* no flow is known for its model and revision */
    KELO_REASON_PIN_REQUIRED,   /* and none is set, or it is held back: too few tries are left */
    KELO_REASON_PIN_REFUSED,    /* the SIM has refused it; it is not sent again */
    KELO_REASON_PUK_REQUIRED,   /* the SIM is locked */
    KELO_REASON_NO_SIM,
    KELO_REASON_SIM_FAILED,
    KELO_REASON_SEARCHING,  /* not registered yet */
    KELO_REASON_DENIED,     /* the network has refused the registration */
    KELO_REASON_NO_DIALER,  /* no program quectel-CM in PATH */
    KELO_REASON_DIALING,    /* the data interface is not up yet */
    KELO_REASON_NO_ADDRESS, /* it is up, without an address */
    KELO_REASON_NO_PING,    /* neither target answers, none is set, or there is no ping program */
    KELO_REASON_ONLINE      /* all that the settings ask for is there: with enable 0 registration */
};

enum kelo_reason kelo_get_reason(void); /* the one that holds */

/* "stopped", "no port", "no permission", "port in use", "no answer", "unknown module",
 * "PIN required", "PIN refused", "PUK required", "no SIM", "SIM failed", "searching", "denied",
 * "no dialer", "dialing", "no address", "no ping", "online"; "unknown" for any other number. */
const char* kelo_reason_name(enum kelo_reason reason);

/* ---- What a host may choose ---------------------------------------------------------------- */

/* All times are in seconds, from 1 to 86400. */
struct kelo_keeper {
    size_t size; /* of this record as the host knows it: set it ahead of everything */

    unsigned int search_s;      /* a radio that searches is left alone for so long, 360 */
    unsigned int search_most_s; /* then for twice as long each time, up to this, 1800 */
    unsigned int ask_s;         /* between two questions to a modem that is not ready, 15 */

    unsigned int dial_s;         /* a dialer may take so long to bring the interface up, 45 */
    unsigned int redial_s;       /* pause behind the first failure, twice as long behind each, 10 */
    unsigned int redial_most_s;  /* up to this, 900 */
    unsigned int spread_percent; /* of those pauses, either way, 0 to 50: so that the devices of a
                                  * network do not act in step, 20 */

    unsigned int pin_tries_least; /* a PIN goes out only with so many tries left, 1 to 3, 3. One
                                   * that is set after another was refused, or held back, goes out
                                   * with two. The tries are
                                   * asked by AT+CPINR (3GPP TS 27.007 8.65) or what the module has
                                   * instead; where it has nothing, a PIN is sent once */

    unsigned int silent_s;         /* without a word: the modem hangs, 60 */
    unsigned int first_restart_s;  /* then AT+CFUN=1,1 (3GPP TS 27.007 8.2) so long behind its last
                                    * word, 120 */
    unsigned int second_restart_s; /* once more, 600 */
    unsigned int power_s;          /* then `stuck`, and again after twice as long each time, 900 */

    char second_ping_target[64]; /* the link is up when this or the settings' target answers; empty
                                  * for none */

    /* The modem hangs for good: its power is to be switched off and on. `number` counts from 1, and
     * anew once the modem has spoken. NULL for none. Called on the Keeper thread, which waits for
     * its end; never while a start is under way. */
    void (*stuck)(int number, void* context);
    void* context; /* given to it */

    /* The first dial behind a start, a lost link or a new registration waits up to so long, by
     * chance, 0 to 3600: a cell or a gateway that comes back does not meet all its devices at
     * once. 0: at once */
    unsigned int dial_spread_s;
};

/* Fills the first `size` bytes, which the host has set, with the figures above. 0; -1 for NULL or a
 * size that does not go beyond `size` itself. */
int kelo_keeper_defaults(struct kelo_keeper* keeper);

/* Switches the keeper on, or gives it new figures. NULL takes the defaults. A record that is
 * shorter than the library's leaves the rest at the defaults. Also lets go of what is known of a
 * refused PIN: the host has said that it may be sent again, with `pin_tries_least` tries left. 0;
 * -1 with a message, and everything as it was, for a figure out of its range, a record that is too
 * short, a child of a fork, and where no thread can be made. */
int kelo_keep(const struct kelo_keeper* keeper);

/* Switches it off: the library then acts as without it. The thread ends within a second, or with
 * the callback that it is in. Returns 0. */
int kelo_keep_stop(void);

/* ---- What it has seen ---------------------------------------------------------------------- */

/* What the keeper waits to do next. */
enum kelo_action {
    KELO_ACTION_NONE,
    KELO_ACTION_START,         /* start the modem task */
    KELO_ACTION_ASK,           /* ask for registration, or for the SIM */
    KELO_ACTION_RADIO_RESET,   /* switch the radio off and on */
    KELO_ACTION_MODEM_RESTART, /* AT+CFUN=1,1 */
    KELO_ACTION_POWER,         /* `stuck` */
    KELO_ACTION_DIAL           /* start the dialer */
};

/* Events are counted since the process began, times since the first kelo_keep, in seconds. */
struct kelo_figures {
    size_t size;                   /* of this record as the library knows it */
    unsigned int starts;           /* of the modem task, whoever asked for them */
    unsigned int reloads;          /* the same */
    unsigned int radio_resets;     /* radio off and on, without the reloads' */
    unsigned int dials;            /* starts of the dialer program */
    unsigned int link_losses;      /* of a link that was up */
    unsigned int port_losses;      /* of a port that was open */
    unsigned int modem_restarts;   /* AT+CFUN=1,1 and `stuck` */
    unsigned int online_s;         /* online in all */
    unsigned int offline_s;        /* not online in all */
    unsigned int last_outage_s;    /* the one under way, or the last; the first lasts from kelo_keep
                                    * to the first time online */
    unsigned int longest_outage_s; /* the one under way counts */
    long long registered_at;       /* time of day of the last registration, seconds since 1970; 0
                                    * for none */
    int pin_tries;                 /* left, or -1: unknown */
    int action;                    /* of enum kelo_action */
    unsigned int action_in_s;      /* when */
};

/* Fills the first `size` bytes. 0; -1 for NULL. */
int kelo_get_figures(struct kelo_figures* figures, size_t size);

/* ---- The port ------------------------------------------------------------------------------ */

/* Names the AT port, for starts from now on: a path of at most 31 characters, "/dev/ttyUSB6" or one
 * that udev keeps. NULL or "" finds it as ever, as the first device from index 2, or 1, on. For a
 * device with a serial adapter beside the modem, which shifts the numbers. With or without the
 * keeper. 0; -1 with a message for a path that is too long or does not begin with '/'. */
int kelo_set_port(const char* path);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
