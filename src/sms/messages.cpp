// SPDX-License-Identifier: MIT
// Whole messages that wait for the host.
//
// One that the modem stores is deleted there once the host has kept it, which its next call says:
// what it has taken last stays here until then.
#include "sms/joiner.h"

#include "support/sleeps.h"
#include "support/wakeup.h"

#include <climits>

namespace kelo
{

namespace
{

// A leaf: nothing is taken under it.
lock messages_lock;

part_joiner joiner;
message_list ring;
message_list taken; // by the host, which may have kept them or not
bool asked = false; // a host has asked for a message
int lost = 0;
std::int64_t patience_ms = 60000;

void count_lost()
{
    if (lost < INT_MAX)
        lost++;
}

// The same, stored, with its places of a later look.
bool stands_for(const whole_message& old, const whole_message& message)
{
    return message.places[0].index >= 0 && old.head.digest == message.head.digest &&
           old.place_count == message.place_count &&
           (old.places[0].index < 0 || old.places[0].epoch != message.places[0].epoch);
}

bool known_already(const whole_message& message)
{
    for (const message_list* list : {&ring, &taken})
        for (whole_message* old = list->first; old != nullptr; old = old->next)
            if (stands_for(*old, message)) {
                std::copy_n(message.places, message.place_count, old->places);
                old->stored = message.stored;
                return true;
            }
    return false;
}

// The oldest goes that the modem does not store. What it does store is found again by the next
// look.
void make_room_in_ring()
{
    whole_message** at = &ring.first;
    while (*at != nullptr && (*at)->stored)
        at = &(*at)->next;
    if (*at == nullptr)
        return;
    ring.take(at);
    count_lost();
}

void give_to_host(message_list& given)
{
    while (given.first != nullptr) {
        whole_pointer message = given.take(&given.first);
        if (known_already(*message))
            continue;
        if (ring.count >= KELO_MESSAGES)
            make_room_in_ring();
        if (ring.count < KELO_MESSAGES) {
            ring.add(std::move(message));
            wake_host();
        } else if (!message->stored)
            count_lost();
    }
}

// While there is room: what waits is safe where it is. `more`: the storage has places that nobody
// has read yet, and the missing part may be in one; that has its bound, too, since a storage can
// fail. The caller asks for it ahead of the lock.
void give_late(bool more)
{
    constexpr std::int64_t longest_look_ms = 10 * 60000;
    const std::int64_t wait_ms = more ? std::max(patience_ms, longest_look_ms) : patience_ms;
    message_list given;
    const std::int64_t now = monotonic_ms();
    while (ring.count < KELO_MESSAGES && joiner.give_late(now, wait_ms, given))
        give_to_host(given);
}

// Says so of what the calls before have taken. Without a lock: the storage has its own.
void confirm_taken()
{
    message_list kept;
    {
        const lock_scope<messages_lock> hold;
        asked = true;
        kept = std::exchange(taken, {});
    }
    while (kept.first != nullptr) {
        const whole_pointer message = kept.take(&kept.first);
        for (std::size_t i = 0; i < message->place_count; i++)
            if (message->places[i].index >= 0)
                sms_storage_kept(message->places[i]);
    }
}

} // namespace

bool sms_messages_wanted()
{
    {
        const lock_scope<messages_lock> hold;
        if (asked)
            return true;
    }
    return sms_storage_mode() != 0;
}

bool sms_messages_have_room()
{
    const bool more = sms_storage_has_more();
    const lock_scope<messages_lock> hold;
    give_late(more);
    return joiner.has_room() && ring.count < KELO_MESSAGES;
}

void sms_message_part(const message_part& part, sms_place place, bool first_look,
                      std::int64_t now_ms)
{
    if (!sms_messages_wanted())
        return;
    const bool more = sms_storage_has_more();
    const lock_scope<messages_lock> hold;
    message_list given;
    if (!joiner.add(part, place, first_look, now_ms, given) && place.index < 0)
        count_lost();
    give_to_host(given);
    give_late(more); // behind the part: it may be the one that is waited for
}

} // namespace kelo

using namespace kelo;

int kelo_take_message(struct kelo_message* message, size_t size, char* text, size_t text_size)
{
    if (refused_in_fork(__func__))
        return 0;
    confirm_taken();
    if (message == nullptr || text == nullptr)
        return 0;
    const bool more = sms_storage_has_more();
    const lock_scope<messages_lock> hold;
    give_late(more);
    if (ring.first == nullptr)
        return 0;
    kelo_message& head = ring.first->head;
    head.size = sizeof head;
    const auto length = static_cast<std::size_t>(head.length);
    std::memcpy(message, &head, std::min(size, sizeof head));
    if (text_size <= length)
        return -1;
    std::memcpy(text, ring.first->text(), length + 1);
    taken.add(ring.take(&ring.first));
    return 1;
}

int kelo_get_message_parts(unsigned long long* digests, int most)
{
    if (refused_in_fork(__func__))
        return 0;
    const lock_scope<messages_lock> hold;
    const whole_message* last = taken.first;
    while (last != nullptr && last->next != nullptr)
        last = last->next;
    if (last == nullptr)
        return 0;
    const auto count = static_cast<int>(last->place_count);
    for (int i = 0; digests != nullptr && i < std::min(count, most); i++)
        digests[i] = last->places[i].digest;
    return count;
}

int kelo_messages_lost(void)
{
    const lock_scope<messages_lock> hold;
    return lost;
}

int kelo_set_sms_patience(int seconds)
{
    if (seconds < 1 || seconds > 86400)
        return -1;
    const lock_scope<messages_lock> hold;
    patience_ms = std::int64_t(1000) * seconds;
    return 0;
}
