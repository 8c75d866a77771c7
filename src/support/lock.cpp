// SPDX-License-Identifier: MIT
#include "support/lock.h"

#include "support/diag.h"

namespace kelo
{

lock settings_lock;
lock flow_lock;
lock record_lock;
lock port_lock;
lock outbox_lock;
lock trace_lock;
lock log_lock;

namespace
{

bool abandoned = false; // changes between a fork and what the child does next

} // namespace

void locks_abandon()
{
    abandoned = true;
}

bool locks_abandoned()
{
    return abandoned;
}

bool refused_in_fork(const char* name)
{
    if (abandoned)
        diag_plain("%s: refused, the modem belongs to the process that this one was forked from!\n",
                   name);
    return abandoned;
}

void lock_take(lock& which)
{
    if (abandoned)
        return;
    diag_hold();
    pthread_mutex_lock(&which.mutex);
}

void lock_let_go(lock& which)
{
    if (abandoned)
        return;
    pthread_mutex_unlock(&which.mutex);
    diag_let_go();
}

} // namespace kelo
