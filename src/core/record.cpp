// SPDX-License-Identifier: MIT
// The modem record and the event record: static, never allocated, never released.

#include "core/core.h"
#include "support/text.h"

#include <pthread.h>

// Written on the mobile task by the handlers, by the setters on host threads, and by flow changes.
// Guarded by record_lock, but for its fd, which port_lock guards.
gsm_mobile g_mobile;

// Written on the mobile task, read by host threads.
struct gsm_event gsm_event = {};

namespace kelo
{

namespace
{

// At load, so that the record is zeros that take no room in the library.
[[gnu::constructor]] void close_record()
{
    g_mobile.fd = -1;
}

} // namespace

// Written by libgsm_init and libgsm_mobile_free, read by every accessor.
gsm_mobile* mobile = &g_mobile;

std::uint64_t full_cell_id = 0;

event* raise_event(int code)
{
    ::gsm_event.code = code;
    return &::gsm_event;
}

void libgsm_reset_cell_info(gsm_mobile* rec)
{
    lock_scope<record_lock> guard;
    text_clear(rec->imsi);
    text_clear(rec->iccid);
    text_clear(rec->number);
    text_clear(rec->act);
    text_clear(rec->plmn);
    text_clear(rec->band);
    text_clear(rec->oper);
    text_clear(rec->lac);
    rec->channel = 0;
    rec->reg_n = 0;
    rec->reg_stat = 0;
    rec->cid = 0;
    full_cell_id = 0;
    rec->tech = 0;
    rec->reg_status = 0;
    rec->rssi = 0;
    rec->ber = 0;
    rec->cqi = 0;
    rec->dl_bandwidth = 0;
    rec->ul_bandwidth = 0;
    rec->rsrp = KELO_RSRP_UNKNOWN;
}

namespace
{

// The mobile task, while there is one; written by it alone.
pthread_t task_thread;
int task_known = 0;

} // namespace

void mobile_task_begins()
{
    std::atomic_ref<pthread_t>(task_thread).store(pthread_self());
    word_set(task_known, 1);
}

void mobile_task_ends()
{
    word_set(task_known, 0);
}

bool on_mobile_task()
{
    return word_get(task_known) != 0 &&
           pthread_equal(std::atomic_ref<pthread_t>(task_thread).load(), pthread_self()) != 0;
}

} // namespace kelo

using namespace kelo;

int kelo_copy_mobile(gsm_mobile* out)
{
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr || out == nullptr)
        return 0;
    {
        lock_scope<record_lock> record_guard;
        lock_scope<port_lock> port_guard;
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
