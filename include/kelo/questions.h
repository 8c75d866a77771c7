/* SPDX-License-Identifier: MIT */
/* kelo/questions.h: what the library asks the modem again and again, beside its flows.
 *
 * The flows of many modules ask for neither signal nor cell, or once. A host that shows them has
 * the library ask while there is nothing else to do, and finds the answers in the modem record
 * (kelo_copy_mobile, kelo/gsm.h).
 *
 * Every call may be made from any thread, and from inside a callback of the library. None blocks.
 */
#ifndef KELO_QUESTIONS_H
#define KELO_QUESTIONS_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

#define KELO_QUESTIONS     8   /* most of them */
#define KELO_QUESTION_SIZE 128 /* bytes of one at most, with its terminator */

/* Asks these from now on, instead of those of before; none with a count of 0, as it is at the start
 * of the process. They are commands without a line ending that draw an answer and OK or an error,
 * and no prompt, as "AT+CSQ". They are copied.
 *
 * Each goes out once a flow of start or reload is through, and then every `seconds`, 1 to 86400,
 * one at a time and only while no command runs and no message goes out. One that draws no OK within
 * 5 silent seconds is asked more and more rarely, down to every 64th time, until one comes or a
 * flow begins.
 *
 * What is read of the answers, beside all that is read as a report: +CSQ and +COPS, a name or a
 * code (3GPP TS 27.007 8.5, 7.3), +QENG and +QNWINFO (Quectel), +ZPAS (ZTE), ^HCSQ (Huawei), +PSRAT
 * (Longsung), and #RFSTS of a cell of LTE (Telit). None of them counts as news of the registration.
 *
 * 0; -1 with a message, and the questions as they were, for a text that is NULL, too long, holds
 * control characters or does not begin with "AT", and for figures out of their range. */
int kelo_set_questions(const char* const* commands, int count, int seconds);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
