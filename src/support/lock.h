// SPDX-License-Identifier: MIT
// The locks of the library, and the order in which they nest.
//
// settings_lock  what the host configures: the working copy, the SIM slots and their texts
// flow_lock      the flow lists, cur_at_list, the cursor of the pass
// record_lock    g_mobile (but for its fd) and gsm_event
// port_lock      the AT port: its fd, and the write of one whole command
// outbox_lock    the SMS outbox; a leaf, nothing is taken under it
// trace_lock     events of the port that wait for the host (core/port_trace.cpp); a leaf, and held
//                over a read or write of the port, which do not wait
// log_lock       who sets the handler of lines; a leaf as well
// life_lock      who runs, and who may change that (task/lifecycle.cpp); a leaf as well
//
// They nest in this order and no other: settings_lock, flow_lock, record_lock, port_lock. None is
// held over a sleep, a shell command, or a callback of the host. What is said under a lock (diag.h)
// is written after the last one was let go.
//
// The MQTT update has two of its own, in services/mqtt.cpp: attempt_mutex, the outermost of all and
// the one exception, held over the sleeps of an attempt, and config_lock, a leaf.
//
// POSIX mutexes, since std::mutex throws where it fails, and the library has neither exceptions nor
// the C++ run time that they need. Constant from load to exit, too: a detached thread may take one
// while the process ends.
#pragma once

#include <pthread.h>

namespace kelo
{

struct lock {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
};

extern lock settings_lock;
extern lock flow_lock;
extern lock record_lock;
extern lock port_lock;
extern lock outbox_lock;
extern lock trace_lock;
extern lock log_lock;

// In a child that was forked off while threads of the library ran: it has none of them, and perhaps
// their locks. From here on no lock is taken.
void locks_abandon();
bool locks_abandoned();

// True, and said so, for a call that would act from such a child.
bool refused_in_fork(const char* name);

// Nothing in a child that was forked off.
void lock_take(lock& which);
void lock_let_go(lock& which);

// Out of line, a function for each lock: a scope is a call at its head and one at its end.
template <lock& which> [[gnu::noinline]] void lock_take()
{
    lock_take(which);
}
template <lock& which> [[gnu::noinline]] void lock_let_go()
{
    lock_let_go(which);
}

// Holds a lock for a scope, or until released by hand.
template <lock& which> class lock_scope
{
  public:
    [[gnu::always_inline]] lock_scope() { lock_take<which>(); }
    [[gnu::always_inline]] ~lock_scope() { release(); }
    [[gnu::always_inline]] void release()
    {
        if (held)
            lock_let_go<which>();
        held = false;
    }

    lock_scope(const lock_scope&) = delete;
    lock_scope& operator=(const lock_scope&) = delete;

  private:
    bool held = true;
};

} // namespace kelo
