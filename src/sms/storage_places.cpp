// SPDX-License-Identifier: MIT
// What is known of the modem's storage: its memories, and the messages in them.
#include "sms/storage.h"

#include "support/diag.h"
#include "support/seldom.h"

namespace kelo::storage
{

lock storage_lock;
modem_storage store;
memory memories[most_memories];
KELO_SELDOM octet places[most_memories * most_places];
KELO_SELDOM known_message known[most_known];

namespace
{

KELO_SELDOM std::uint64_t reported[most_reported];
std::size_t reports = 0;

// Whether such a message came by a report; once for each report.
bool take_reported(std::uint64_t digest)
{
    for (std::uint64_t& one : reported)
        if (one == digest) {
            one = 0;
            return true;
        }
    return false;
}

} // namespace

known_message* known_at(int number)
{
    for (known_message& one : known)
        if (one.epoch == store.epoch && one.number == number)
            return &one;
    return nullptr;
}

known_message* known_before(std::uint64_t digest)
{
    for (known_message& one : known)
        if (one.epoch != 0 && (one.epoch != store.epoch || one.number < 0) && one.digest == digest)
            return &one;
    return nullptr;
}

void doubt_place(int number)
{
    if (known_message* const here = known_at(number))
        here->number = -1;
    places[number] |= wanted;
}

known_message* add_known(std::uint64_t digest)
{
    known_message* oldest = nullptr;
    for (known_message& one : known)
        if (one.epoch != store.epoch && (oldest == nullptr || one.epoch < oldest->epoch))
            oldest = &one;
    if (oldest != nullptr)
        *oldest = {.digest = digest, .given = {}, .kept = take_reported(digest)};
    return oldest;
}

// There is room for all that are asked for: "ME", "SM", and the one that was selected at first.
memory* memory_named(string_view name)
{
    memory* one = memories;
    while (one + 1 < std::end(memories) && one->name[0] != '\0' && text_of(one->name) != name)
        one++;
    if (one->name[0] == '\0')
        set_field(one->name, name);
    return one;
}

memory* memory_for(string_view name)
{
    const bool in_one = store.home != nullptr && text_of(store.home->name) == "MT";
    return (name == "ME" || name == "SM") && !in_one ? memory_named(name) : store.home;
}

namespace
{

int places_known(const memory& one)
{
    int count = 0;
    for (const octet place : places_of(one))
        count += (place & left_alone) != 0 ? 1 : 0;
    for (const known_message& message : known)
        if (message.epoch == store.epoch && memory_of(message.number) == &one)
            count++;
    return count;
}

} // namespace

void forget_places()
{
    if (++store.epoch == 0)
        store.epoch = 1;
    if (store.asked != step::none)
        store.asked = step::forgotten;
    store.pdu_mode = store.stale = false;
    store.current = nullptr;
    store.doubted = store.failing = -1;
    store.failures = 0;
    store.not_before_ms = 0;
    for (memory& one : memories) {
        one.look = one.name[0] != '\0' ? memory::due : memory::rest;
        one.probe = -1;
    }
    // Nothing is written to what was never used: it stays out of memory.
    for (octet& one : places)
        if (one != 0)
            one = 0;
    for (known_message& one : known)
        if (one.stuck)
            one.stuck = false;
}

void take_size(memory& one, int used, int total)
{
    one.used = used;
    one.total = total;
    const bool is_full = one.told_full || (total > 0 && used >= total);
    if (is_full && !one.full)
        diag_plain("sms: the modem's storage is full, %d of %d in %s\n", used, total, one.name);
    one.full = is_full;
    one.told_full = false;
}

const known_message* to_remove(const memory& one)
{
    if (store.mode != 2)
        return nullptr;
    for (const known_message& message : known)
        if (message.epoch == store.epoch && message.kept && !message.stuck &&
            memory_of(message.number) == &one)
            return &message;
    return nullptr;
}

int first_wanted(const memory& one)
{
    for (int place = 0; place < most_places; place++)
        if ((places[number_for(one, place)] & wanted) != 0)
            return place;
    return -1;
}

bool want_unless_known(memory& one, int place)
{
    octet& there = places[number_for(one, place)];
    if ((there & left_alone) != 0 || known_at(number_for(one, place)) != nullptr)
        return false;
    there |= wanted;
    return true;
}

namespace
{

// Where no list is to be had, places are tried upward until as many are known as there are.
void probe_on(memory& one)
{
    if (one.probe >= 0 && places_known(one) >= one.used)
        one.probe = -1;
    while (one.probe >= 0) {
        const int place = one.probe++;
        if (place > one.total || place >= most_places)
            one.probe = -1;
        else if (want_unless_known(one, place))
            return;
    }
}

bool is_unread(const memory& one)
{
    return one.look != memory::rest || one.probe >= 0 || first_wanted(one) >= 0;
}

} // namespace

bool has_reading(memory& one)
{
    if (one.look == memory::rest && first_wanted(one) < 0)
        probe_on(one);
    return is_unread(one);
}

} // namespace kelo::storage

namespace kelo
{

using namespace storage;

int sms_storage_mode()
{
    const lock_scope<storage_lock> hold;
    return store.mode;
}

bool sms_storage_has_more()
{
    const lock_scope<storage_lock> hold;
    return store.mode != 0 &&
           (store.home == nullptr || std::any_of(memories, std::end(memories), is_unread));
}

void sms_storage_forget()
{
    const lock_scope<storage_lock> hold;
    store.told = store.flow_says = false;
    store.tellings = 0;
    store.asked = step::none;
    forget_places();
}

void sms_storage_reported(string_view pdu)
{
    const lock_scope<storage_lock> hold;
    if (store.mode != 0)
        reported[reports++ % most_reported] = digest_of(trimmed(pdu));
}

void sms_storage_kept(sms_place place)
{
    const lock_scope<storage_lock> hold;
    for (known_message& one : known)
        if (one.epoch != 0 && place.index >= 0 && one.given.index == place.index &&
            one.given.epoch == place.epoch)
            one.kept = true;
}

} // namespace kelo

using namespace kelo;

int kelo_set_sms_storage(int mode)
{
    if (mode < 0 || mode > 2 || refused_in_fork(__func__))
        return -1;
    const lock_scope<storage_lock> hold;
    if (store.mode == 0 && mode != 0) {
        store.told = false;
        forget_places();
    }
    store.mode = mode;
    return 0;
}

int kelo_get_sms_storage(int* used, int* total)
{
    if (refused_in_fork(__func__))
        return 0;
    const lock_scope<storage_lock> hold;
    if (store.home == nullptr || store.home->used < 0)
        return 0;
    if (used != nullptr)
        *used = store.home->used;
    if (total != nullptr)
        *total = store.home->total;
    return 1;
}
