// The modem record and the event record: static, never allocated, never released.

#include "core/gsm.h"

namespace
{

constexpr gsm_mobile fresh_record()
{
    gsm_mobile record{};
    record.fd = -1;
    return record;
}

} // namespace

// Written on the mobile task by the handlers, by the setters on host threads, and by flow changes.
// Guarded by record_lock, but for its fd, which port_lock guards.
constinit gsm_mobile g_mobile = fresh_record();

// Written on the mobile task, read by host threads.
struct gsm_event gsm_event = {};

namespace kelo
{

// Written by libgsm_init and libgsm_mobile_free, read by every accessor.
gsm_mobile* mobile = &g_mobile;

std::uint64_t full_cell_id = 0;

event* raise_event(int code)
{
    ::gsm_event.code = code;
    return &::gsm_event;
}

} // namespace kelo

using namespace kelo;

int kelo_copy_mobile(gsm_mobile* out)
{
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr || out == nullptr)
        return 0;
    {
        lock_scope record_guard(record_lock);
        lock_scope port_guard(port_lock);
        *out = *rec;
    }
    out->cur_at = nullptr;
    out->pending_at = nullptr;
    return 1;
}

void libgsm_mobile_free(gsm_mobile** place)
{
    if (place == nullptr)
        return;
    // The library forgets its record with the host: there is only the one.
    if (*place != nullptr && *place == modem_record())
        word_set<gsm_mobile*>(mobile, nullptr);
    *place = nullptr;
}
