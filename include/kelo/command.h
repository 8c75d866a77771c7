/* SPDX-License-Identifier: MIT */
/* kelo/command.h: a command of the host's, and its answer.
 *
 *     int number = kelo_ask("AT+CSQ", 10);
 *     ... kelo_take_answer() gives, once, what the modem said to it ...
 *
 * The command goes out on the thread of the modem task while no flow runs, no message is on its way
 * and nothing else waits for an answer, so that it falls into nothing, at most two in a second.
 * What it changes in the modem stays changed until the modem's, or the library's, next start.
 *
 * Every call may be made from any thread. None blocks. After a fork, the child's are refused.
 * 3GPP TS 27.007, ITU-T V.250.
 */
#ifndef KELO_COMMAND_H
#define KELO_COMMAND_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

#define KELO_COMMAND_LONGEST 511  /* characters of a command */
#define KELO_ANSWER_LONGEST  8191 /* bytes of the lines of an answer; what is longer is cut */
#define KELO_ASKS            8    /* commands that wait, or whose answer was not taken yet */
#define KELO_ASK_TIME        20   /* seconds for timeout_s 0 */
#define KELO_ASK_MOST_TIME   600  /* seconds that may be asked for */

/* Why a command is refused. */
enum kelo_ask_fault {
    KELO_ASK_NO_COMMAND = -1, /* no "AT" ahead, not printable ASCII, a quote without its pair, too
                                 long, or more than KELO_ASK_MOST_TIME */
    KELO_ASK_UNFIT = -2,      /* it draws a prompt, data or texts of others (AT+CMGS, AT+CMGR,
                                 AT+QISEND, ATD ...), or changes the form of answers (ATV, ATE,
                                 AT+CMUX ...) */
    KELO_ASK_FULL = -3,       /* KELO_ASKS */
    KELO_ASK_STOPPED = -4,    /* no modem task runs, or it has no port */
    KELO_ASK_NO_MEMORY = -5
};
const char* kelo_ask_fault_text(int fault); /* for people; "?" for others */

/* Sends one line: "AT", "ATI", and any of the extended commands ("AT+", "AT^" ...), also several of
 * these with ";" between. timeout_s: seconds of the modem's silence, from its going out, in which
 * its end has to come; 0: KELO_ASK_TIME. Returns its number, above 0, or an enum kelo_ask_fault. */
int kelo_ask(const char* command, unsigned int timeout_s);

/* How a command ended. */
enum kelo_ask_end {
    KELO_ASK_OK = 1,    /* "OK" */
    KELO_ASK_ERROR,     /* "ERROR" */
    KELO_ASK_CME_ERROR, /* "+CME ERROR: n", TS 27.007 9.2 */
    KELO_ASK_CMS_ERROR, /* "+CMS ERROR: n", TS 27.005 3.2.5 */
    KELO_ASK_DATA, /* the modem wanted a text, or went over to data; it was told to leave that */
    KELO_ASK_TIMED_OUT, /* it came to no end. The modem may still do it */
    KELO_ASK_NOT_SENT,  /* it had no turn in 120 s: a flow, messages */
    KELO_ASK_PORT_LOST  /* or the modem task was stopped; if it was not sent before, it never is */
};
const char* kelo_ask_end_name(int end); /* "ok", "error", "CME error", "CMS error", "data",
                                         * "timed out", "not sent", "port lost"; "?" for others */

/* The answer to a command, beside its lines. */
struct kelo_answer {
    size_t size;      /* of this record as the library knows it */
    int number;       /* of kelo_ask */
    int end;          /* enum kelo_ask_end */
    int error_number; /* of the CME and CMS errors; -1 for none, and for one in words */
    int cut;          /* 1: lines are missing, they were too many or too long */
    int length;       /* bytes of the lines */
    char last[80];    /* the line that ended it, cut to this: "OK", "+CME ERROR: 10"; or empty */
};

/* Takes the oldest answer; size is that of the record, text_size that of the buffer for its lines,
 * which are terminated and have '\n' between. Returns 1; 0 when there is none, or for NULL; -1 when
 * the buffer is too small: answer->length tells what is needed beside the terminator, and the
 * answer stays. The lines are what the modem said behind its echo, as it said them, without the
 * last one: reports that came in between are among them. */
int kelo_take_answer(struct kelo_answer* answer, size_t size, char* text, size_t text_size);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
