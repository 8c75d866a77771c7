// Received messages that wait for the host: a ring of plain records. A host that is too slow loses
// the oldest, and is told how many.
#include "sms/sms.h"

#include <climits>

namespace kelo
{

namespace
{

// A leaf: nothing is taken under it.
lock queue_lock;

kelo_sms ring[KELO_SMS_QUEUE];
unsigned oldest = 0;
unsigned waiting = 0;
int lost = 0;

} // namespace

void sms_queue_add(const kelo_sms& message)
{
    const lock_scope hold(queue_lock);
    if (waiting == KELO_SMS_QUEUE) {
        oldest = (oldest + 1) % KELO_SMS_QUEUE;
        waiting--;
        if (lost < INT_MAX)
            lost++;
    }
    ring[(oldest + waiting++) % KELO_SMS_QUEUE] = message;
}

} // namespace kelo

using namespace kelo;

int kelo_take_sms(struct kelo_sms* out)
{
    if (out == nullptr)
        return 0;
    const lock_scope hold(queue_lock);
    if (waiting == 0)
        return 0;
    *out = ring[oldest];
    oldest = (oldest + 1) % KELO_SMS_QUEUE;
    waiting--;
    return 1;
}

int kelo_sms_lost(void)
{
    const lock_scope hold(queue_lock);
    return lost;
}
