#include "support/lock.h"

#include "support/diag.h"

namespace kelo
{

lock settings_lock;
lock flow_lock;
lock record_lock;
lock port_lock;
lock outbox_lock;

lock_scope::lock_scope(lock& which) : held(&which)
{
    diag_hold();
    pthread_mutex_lock(&which.mutex);
}

void lock_scope::release()
{
    if (held == nullptr)
        return;
    pthread_mutex_unlock(&held->mutex);
    held = nullptr;
    diag_let_go();
}

} // namespace kelo
