/* SPDX-License-Identifier: MIT */
/* kelo/event.h: wakes a host that has an event loop.
 *
 *     struct pollfd news = {kelo_event_fd(), POLLIN, 0};
 *     for (;;) {
 *         poll(&news, 1, 5000);
 *         uint64_t times;
 *         if (read(news.fd, &times, sizeof times) < 0) { nothing new; the 5 s are over }
 *         ... all the polls of kelo/status.h, kelo/messages.h, ... as ever ...
 *     }
 *
 * It says that there is something new, not what: the calls that a host polls with tell that.
 */
#ifndef KELO_EVENT_H
#define KELO_EVENT_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* An eventfd(2) for poll, select, epoll or an event library. It does not exist until the first call
 * makes it, readable, so that what came before is seen; from then on it is one and the same, until
 * the process ends, over kelo_deinit_cellular and each further init. It is non-blocking and closed
 * by an exec. It stays the library's: do not write to it, nor close it.
 *
 * It becomes readable when
 *
 *   - the modem has said something, and the library has made of it what it makes: the record,
 *     gsm_event, the flags and the positions are up to date then. At most some four times a second;
 *   - a message, a part, a result, a report or an answer waits to be taken, one in time included
 *     that comes of none, such as a time-out;
 *   - the status word or get_sim_status changes, or a flag of kelo/gsm.h or kelo/status.h is
 * raised, whoever does it. Taking one down is the host's own doing and no news;
 *   - kelo_get_connect_status changes;
 *   - a start is through, or the mobile task has ended;
 *   - the keeper has another reason or another next action.
 *
 * Counters, times and what kelo_get_cellular makes of them change without it: look once in a while
 * as well. Reading its 8 bytes clears it; read first and look then, and nothing is missed. What
 * comes several times ahead of a read wakes once.
 *
 * Any thread; several that wait for it are all woken, and one of them gets the read. Raising it
 * takes no lock and never waits, whether somebody reads or not. A child of a fork shares it with
 * its parent: ask behind the fork.
 *
 * Returns the descriptor, above 2; -1 with errno when there are none left (the next call tries
 * again), and in a child that was forked off while the library ran. */
int kelo_event_fd(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
