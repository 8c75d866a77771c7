// SPDX-License-Identifier: MIT
#include "support/threads.h"

#include <csignal>
#include <initializer_list>
#include <pthread.h>

namespace kelo
{

// Signals are the host's: its handlers run on its own threads, and a reader of our lines that is
// gone is an error here, not an end. What a fault of our own raises is left as it is.
bool thread_start_detached(void* (*body)(void*), void* argument)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    for (const int fault : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP})
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
    pthread_t thread = {};
    const int error = pthread_create(&thread, &attributes, body, argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return error == 0;
}

} // namespace kelo
