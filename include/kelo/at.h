/* SPDX-License-Identifier: MIT */
/* kelo/at.h: the record of one AT command, and the commands that a host may change.
 *
 * The text of a command is stored without a line ending and goes out with CR LF.
 */
#ifndef KELO_AT_H
#define KELO_AT_H

#include <kelo/list.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

struct gsm_mobile;
struct gsm_event;

/* Flow numbers. A flow is one pass over an ordered list of commands. */
#define FLOW_START    1 /* first walk after the port was opened */
#define FLOW_RELOAD   2 /* walk after cellular_reload, on the open port */
#define FLOW_SMS_TEXT 3 /* sends one text mode message */
#define FLOW_SMS_PDU  4 /* sends one PDU */

/* Bits of at_info.flags. */
#define AT_FLAG_IGNORE    2u  /* a custom item asks to pass this command over */
#define AT_FLAG_CUSTOM    4u  /* the node was made from a custom item */
#define AT_FLAG_SENT      8u  /* picked in this pass of the flow */
#define AT_FLAG_ONCE_DONE 16u /* answered once in this process, and that is enough */
#define AT_FLAG_SKIP      32u /* nothing to do in this pass */
#define AT_FLAG_VOICE     64u /* a voice or audio command */

/* at_info.code of a node made from a custom item. */
#define AT_CODE_CUSTOM 63

/* Reads one line of modem output while its command runs. `line` is writable, terminated, not empty,
 * and holds no CR LF at its end. Returns the address of gsm_event with its code just written, or
 * NULL when the line means no event. */
typedef struct gsm_event* (*at_handler)(struct gsm_mobile* mobile, char* line);

struct at_info;

/* Runs right before a command goes out: leaves a text in `cmd` or sets AT_FLAG_SKIP and
 * returns 1, and the command is passed over; else returns 0. */
typedef int (*at_pre_treat)(struct gsm_mobile* mobile, struct at_info* at);

/* One AT command: a catalogue row and a node of a flow list alike. */
struct at_info {
    int id;                 /* command number; flows and custom items name a command by it */
    char* name;             /* key of a catalogue row in the modem's profile file; NULL in nodes */
    char* cmd;              /* text to send; NULL in a private node until its pre-treatment ran */
    int timeout;            /* seconds of silence to wait for the command's end, per try */
    int code;               /* catalogue ordinal; nothing interprets it */
    unsigned int flags;     /* AT_FLAG_* */
    at_handler handler;     /* gets each line that arrives while the command runs */
    int seq;                /* position in the flow; the lowest unsent goes out first */
    at_pre_treat pre_treat; /* runs right before it goes out, or NULL */
    int retries;            /* tries allowed; 0 and 1 both mean one */
    int countdown;          /* seconds left of the current try */
    int retries_left;       /* tries left */
    char* cmd_template;     /* text from the profile file, with its $NAME placeholders */
    char* custom_cmd;       /* text from a custom item: replaces cmd, bypasses pre-treatment */
    int custom_seq;         /* seq from a custom item; 0 means none */
    struct KELO_LIST_HEAD node; /* link in the flow list */
};

/* One change that a host makes to a command of a start or reload flow. The host keeps the items and
 * their texts alive and unchanged for the life of the process, and fills cell_at_config_h before
 * cellular_gsm_init. */
struct at_config_item {
    int sim;                    /* 1 or 2 */
    int flow;                   /* FLOW_START or FLOW_RELOAD */
    int id;                     /* command; an id that the flow does not have adds a command */
    int ignore;                 /* non-zero: pass the command over */
    int timeout;                /* seconds; 0 leaves the command's own */
    int seq;                    /* new position; 0 leaves the command's own */
    char* cmd;                  /* replacement text without line ending, or NULL */
    struct KELO_LIST_HEAD node; /* link in cell_at_config_h */
};

/* Head of the list of at_config_item; empty at load, only read by the library. */
extern struct KELO_LIST_HEAD cell_at_config_h;

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
