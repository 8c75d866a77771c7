/* SPDX-License-Identifier: MIT */
/* kelo/log.h: what the library says, handed over line by line.
 *
 * Without a handler the lines go to standard output, those of KELO_LOG_ERROR to standard error, as
 * ever. With one, nothing of the library goes to either.
 */
#ifndef KELO_LOG_H
#define KELO_LOG_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* What a line is about. */
enum kelo_log_level {
    KELO_LOG_ERROR,  /* what can't be done */
    KELO_LOG_NOTICE, /* what happens */
    KELO_LOG_DEBUG   /* the AT dialogue and its like, only while set_5g_debug is on */
};

/* Takes one line: terminated, not empty, without its line end, gone when the handler returns. It
 * holds what modem, network and senders put in, control characters, PINs and texts of messages
 * too: clean it before a terminal gets it, and mask it before a file does.
 *
 * A text of several lines comes in as many calls, one behind the other on one thread.
 *
 * The calls are not serialised: they come from any thread of the library, from threads of the host
 * that are in a call of it, and from several at once. None is made under a lock of the library:
 * what is said under one comes behind it. So the handler may call the library. Lines that are said
 * on its own thread meanwhile wait until it has returned; what it brings about with these in turn
 * is dropped, or it would go on for ever. While it runs the library's thread stands still: be
 * quick, and do not wait for a reader that may have stopped. */
typedef void (*kelo_log_handler)(enum kelo_log_level level, const char* line, void* argument);

/* Sets the handler and what it is given, from any thread, at any time; best ahead of everything
 * else. NULL, the default, is none.
 *
 * A line that is said once the call has returned goes to the new handler alone. The one before may
 * still be in a call that began earlier on another thread, or be about to enter it: leave it and
 * its argument in place until the library has stopped. */
void kelo_set_log(kelo_log_handler handler, void* argument);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
