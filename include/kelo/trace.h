/* SPDX-License-Identifier: MIT */
/* kelo/trace.h: every byte that goes over the AT port, handed over as it goes.
 *
 * For a recorder of field faults. It holds all that modem and host say: PINs, passwords, keys that
 * are uploaded, telephone numbers and texts of messages. Mask it before a file gets it.
 */
#ifndef KELO_TRACE_H
#define KELO_TRACE_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* What has happened at the port. */
enum kelo_port_happening {
    KELO_PORT_OPENED,  /* bytes: its path */
    KELO_PORT_CLOSED,  /* bytes: its path */
    KELO_PORT_HUNG_UP, /* the device is gone; bytes: its path. The close comes later */
    KELO_PORT_WRITTEN, /* bytes: what the port has taken of a write, commands with their CR LF */
    KELO_PORT_READ     /* bytes: what one read gave; it begins and ends anywhere in a line */
};

/* One event of the port. */
struct kelo_port_event {
    unsigned int size; /* of this record as the library knows it; later ones may be longer */
    enum kelo_port_happening what; /* what has happened */
    long long monotonic_ns;        /* CLOCK_MONOTONIC, in nanoseconds */
    long long realtime_ns;         /* CLOCK_REALTIME, in nanoseconds since 1970-01-01 UTC */
    const char* bytes;             /* gone when the call returns; a NUL stands behind them */
    size_t length;                 /* of bytes */
    unsigned int lost; /* events that were lost right ahead of this one; 0 but for a callback that
                          does not return, or without memory */
};

/* Takes one event. The times are those of the event, the call may come later.
 *
 * The calls come one at a time and in the order of the events, from any thread of the library and
 * from threads of the host that are in a call of it: a thread that finds another one in the
 * callback leaves its events to that one and waits for nothing. None is made under a lock of the
 * library, so the callback may call the library; what it writes to the port by that comes as a
 * further event behind its return, so do not answer each event with a write. While it runs, its
 * thread stands still: be quick. Events wait meanwhile, up to 512 KiB of them; those beyond are
 * lost, and counted. */
typedef void (*kelo_port_trace)(const struct kelo_port_event* event, void* argument);

/* Sets the callback and what it is given, from any thread, at any time; best ahead of everything
 * else. NULL, the default, is none: events that wait are dropped, and from then on a read or write
 * costs no more than to look at that.
 *
 * A call that begins once this one has returned is one of the new callback. The one before may
 * still be in a call that began earlier on another thread, or be about to enter it: leave it and
 * its argument in place until the library has stopped. */
void kelo_set_port_trace(kelo_port_trace callback, void* argument);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
