// SPDX-License-Identifier: MIT
// Received messages that wait for the host.
#include "sms/ring.h"
#include "sms/sms.h"
#include "support/seldom.h"
#include "support/wakeup.h"

namespace kelo
{

namespace
{

// A leaf: nothing is taken under it.
lock queue_lock;

KELO_SELDOM ring<kelo_sms, KELO_SMS_QUEUE> received;

} // namespace

void sms_queue_add(const kelo_sms& message)
{
    const lock_scope<queue_lock> hold;
    received.add(message);
    wake_host();
}

} // namespace kelo

using namespace kelo;

int kelo_take_sms(struct kelo_sms* out)
{
    const lock_scope<queue_lock> hold;
    return received.take(out, sizeof *out);
}

int kelo_sms_lost(void)
{
    const lock_scope<queue_lock> hold;
    return received.lost;
}
