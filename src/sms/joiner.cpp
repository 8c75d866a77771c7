// SPDX-License-Identifier: MIT
// Long messages, TS 23.040 9.2.3.24.1: their parts come apart, in any order and among those of
// others, some of them twice and some never. A sender numbers his messages anew before long, so
// that what is known of a part is its sender, reference, count and the width of the reference.
#include "sms/joiner.h"

#include "sms/codec/digest.h"
#include "support/text.h"

#include <cstdio>

namespace kelo
{

namespace
{

bool is_part(const part_numbers& numbers)
{
    return numbers.total > 1 && numbers.total <= most_parts && numbers.number >= 1 &&
           numbers.number <= numbers.total;
}

bool same_message(const message_part& a, const message_part& b)
{
    return a.numbers.reference == b.numbers.reference && a.numbers.total == b.numbers.total &&
           a.wide_reference == b.wide_reference && a.data == b.data &&
           text_of(a.sender) == text_of(b.sender);
}

// The text of the parts in order, with what stands for those that are not there.
class text_writer
{
  public:
    explicit text_writer(std::span<char> room) : out(room) {}

    void add_data(std::span<const octet> data)
    {
        std::memcpy(&out[length], data.data(), data.size());
        length += data.size();
    }

    // Half of a pair at the end waits for the next part.
    void add_utf16(std::span<const octet> data)
    {
        octet units[sizeof held + sizeof message_part::content.items];
        std::memcpy(units, held, held_count);
        std::memcpy(units + held_count, data.data(), data.size());
        std::size_t size = (held_count + data.size()) & ~std::size_t(1);
        held_count = 0;
        if (size >= 2 && (units[size - 2] & 0xFC) == 0xD8) {
            size -= 2;
            held_count = 2;
            std::memcpy(held, units + size, 2);
        }
        put({units, size});
    }

    void end_run()
    {
        put({held, held_count});
        held_count = 0;
    }

    void add_missing(int number)
    {
        end_run();
        const int written =
            std::snprintf(&out[length], out.size() - length, "[part %d missing]", number);
        length += static_cast<std::size_t>(written);
    }

    std::size_t size() const { return length; }

  private:
    std::span<char> out;
    std::size_t length = 0;
    octet held[2] = {};
    std::size_t held_count = 0;

    void put(std::span<const octet> units)
    {
        length += static_cast<std::size_t>(utf16_to_utf8(units, out.subspan(length)));
    }
};

constexpr std::size_t missing_room = sizeof "[part 255 missing]";

// The parts of one message by their numbers, null for those that are not there.
struct part_row {
    const waiting_part* parts[most_parts] = {};
    int total = 0;
    std::size_t places = 0; // of them and their copies
};

whole_pointer compose(const part_row& row, const waiting_part* const* places)
{
    std::size_t room = 1;
    const waiting_part* head = nullptr;
    for (int i = 0; i < row.total; i++) {
        const waiting_part* const one = row.parts[i];
        // Two octets of UTF-16 are three bytes at most.
        room += one != nullptr ? one->part.content.count * 3 / 2 + 3 : missing_room;
        head = head == nullptr ? one : head;
    }
    const std::size_t fixed = sizeof(whole_message) + row.places * sizeof(sms_place);
    whole_pointer message(static_cast<whole_message*>(memory_for(fixed + room)));
    if (message == nullptr)
        return nullptr;
    message->place_count = row.places;
    message->stored = true;

    kelo_message& out = message->head;
    const message_part& first = head->part;
    text_set(out.sender, first.sender);
    text_set(out.smsc, first.smsc);
    text_set(out.time, first.time.text);
    out.zone = first.time.zone;
    out.message_class = first.message_class;
    out.coding = first.dcs;
    out.data = first.data ? 1 : 0;
    out.port_to = first.port_to;
    out.port_from = first.port_from;
    out.parts = row.total;
    text_writer text({message->text(), room});
    for (int i = 0; i < row.total; i++) {
        const waiting_part* const one = row.parts[i];
        if (one == nullptr) {
            out.missing++;
            if (!first.data)
                text.add_missing(i + 1);
            continue;
        }
        out.digest = out.digest * digest_prime ^ one->part.digest;
        if (first.data)
            text.add_data(one->part.content.all());
        else
            text.add_utf16(one->part.content.all());
    }
    text.end_run();
    out.length = static_cast<int>(text.size());
    for (std::size_t i = 0; i < row.places; i++) {
        message->places[i] = places[i]->place;
        message->places[i].digest = places[i]->part.digest;
        message->stored &= places[i]->place.index >= 0;
        out.stored |= places[i]->first_look ? 1 : 0;
    }
    // A text has a third of the room, mostly.
    void* const less = std::realloc(message.get(), fixed + text.size() + 1);
    if (less != nullptr) {
        static_cast<void>(message.release()); // realloc has let go of it
        message.reset(static_cast<whole_message*>(less));
    }
    return message;
}

} // namespace

void message_list::add(whole_pointer message)
{
    whole_message** at = &first;
    while (*at != nullptr)
        at = &(*at)->next;
    *at = message.release();
    count++;
}

whole_pointer message_list::take(whole_message** at)
{
    whole_pointer message(*at);
    *at = std::exchange(message->next, nullptr);
    count--;
    return message;
}

bool part_joiner::add(const message_part& part, sms_place place, bool first_look,
                      std::int64_t now_ms, message_list& out)
{
    waiting_part one = {nullptr, part, place, first_look, false, now_ms};
    if (!is_part(part.numbers)) {
        const waiting_part* const only = &one;
        whole_pointer message = compose({{only}, 1, 1}, &only);
        if (message == nullptr)
            return false;
        out.add(std::move(message));
        return true;
    }
    const seen before = look(part, place, first_look);
    if (before == seen::again)
        return true;
    if (before == seen::other)
        give(part, out);
    one.copy = before == seen::elsewhere;
    if ((count > room && !make_room(out)) || !keep(one))
        return false;
    // Without memory for the whole it waits on, and is given when its time is over.
    if (complete(part))
        give(part, out);
    else if (count > room)
        make_room(out);
    return true;
}

// What is known of a part that comes: nothing; it is there, with its place; it is there and has
// another place besides; or another one has its number, so that it belongs to a new message.
part_joiner::seen part_joiner::look(const message_part& part, sms_place place, bool first_look)
{
    seen found = seen::never;
    for (waiting_part* one = first; one != nullptr; one = one->next) {
        if (!same_message(one->part, part) || one->part.numbers.number != part.numbers.number)
            continue;
        if (one->part.digest != part.digest)
            return seen::other;
        if (place.index < 0 || (one->place.index == place.index && one->place.epoch == place.epoch))
            return seen::again;
        if (one->place.index < 0 || one->place.epoch != place.epoch) {
            one->place = place;
            one->first_look |= first_look;
            return seen::again;
        }
        found = seen::elsewhere;
    }
    return found;
}

bool part_joiner::keep(const waiting_part& part)
{
    auto* const mine = static_cast<waiting_part*>(memory_for(sizeof(waiting_part)));
    if (mine == nullptr)
        return false;
    *mine = part;
    waiting_part** at = &first;
    for (; *at != nullptr; at = &(*at)->next)
        if (same_message((*at)->part, part.part))
            (*at)->since_ms = part.since_ms; // all of the message wait on
    *at = mine;
    count++;
    return true;
}

// The oldest message gives way; one that is stored only when there is no other.
bool part_joiner::make_room(message_list& out)
{
    const waiting_part* oldest = first;
    while (oldest != nullptr && oldest->place.index >= 0)
        oldest = oldest->next;
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): it is called while some wait
    return give((oldest != nullptr ? oldest : first)->part, out);
}

bool part_joiner::complete(const message_part& key) const
{
    int there = 0;
    for (const waiting_part* one = first; one != nullptr; one = one->next)
        there += !one->copy && same_message(one->part, key) ? 1 : 0;
    return there == key.numbers.total;
}

// Gives what is there of a message. False without memory: it waits on.
bool part_joiner::give(const message_part& key, message_list& out)
{
    part_row row;
    row.total = key.numbers.total;
    const waiting_part* places[room + 1]; // the last one comes ahead of its room
    for (const waiting_part* one = first; one != nullptr; one = one->next)
        if (same_message(one->part, key)) {
            places[row.places++] = one;
            if (!one->copy)
                row.parts[one->part.numbers.number - 1] = one;
        }
    whole_pointer message = compose(row, places);
    if (message == nullptr)
        return false;
    out.add(std::move(message));
    const message_part of = key; // it may be one of those that go
    for (waiting_part** at = &first; *at != nullptr;) {
        if (!same_message((*at)->part, of)) {
            at = &(*at)->next;
            continue;
        }
        std::free(std::exchange(*at, (*at)->next));
        count--;
    }
    return true;
}

bool part_joiner::give_late(std::int64_t now_ms, std::int64_t patience_ms, message_list& out)
{
    for (const waiting_part* one = first; one != nullptr; one = one->next)
        if (now_ms - one->since_ms >= patience_ms)
            return give(one->part, out);
    return false;
}

} // namespace kelo
