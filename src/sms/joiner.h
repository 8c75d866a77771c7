// SPDX-License-Identifier: MIT
// Parts on their way to whole messages.
#pragma once

#include "sms/sms.h"
#include "support/owned.h"

namespace kelo
{

// A message for the host, in one block with its text and places.
struct whole_message {
    whole_message* next;
    kelo_message head;
    std::size_t place_count;
    bool stored;        // the modem has all of it
    sms_place places[]; // the text stands behind them

    char* text() { return reinterpret_cast<char*>(places + place_count); }
};
struct release_message {
    void operator()(whole_message* message) const { std::free(message); }
};
using whole_pointer = std::unique_ptr<whole_message, release_message>;

// First in, first out.
struct message_list {
    whole_message* first = nullptr;
    int count = 0;

    void add(whole_pointer message);
    whole_pointer take(whole_message** at); // the one there
};

struct waiting_part {
    waiting_part* next;
    message_part part;
    sms_place place;
    bool first_look; // it lay in the storage at the first look
    bool copy;       // of one that waits: another place of the same
    std::int64_t since_ms;
};

// Parts that wait for others of their message. No lock: the caller has one.
class part_joiner
{
  public:
    static constexpr int room = 256;

    // Puts into `out` what has become whole, or gives way. False when memory is refused: the part
    // is lost, unless it is stored.
    bool add(const message_part& part, sms_place place, bool first_look, std::int64_t now_ms,
             message_list& out);

    // Gives one message whose next part has not come in time, as far as it is there.
    bool give_late(std::int64_t now_ms, std::int64_t patience_ms, message_list& out);

    bool has_room() const { return count < room; }

  private:
    enum class seen { never, again, elsewhere, other };

    waiting_part* first = nullptr; // as they came
    int count = 0;

    seen look(const message_part& part, sms_place place, bool first_look);
    bool keep(const waiting_part& part);
    bool make_room(message_list& out);
    bool complete(const message_part& key) const;
    bool give(const message_part& key, message_list& out);
};

} // namespace kelo
