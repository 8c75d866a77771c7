// SPDX-License-Identifier: MIT
// What the three files of the modem's storage share: what is known of it (storage_places.cpp), the
// errand's commands and their answers (storage.cpp), and the lines of the modem
// (storage_lines.cpp).
#pragma once

#include "sms/report_lines.h"

#include <optional>
#include <span>

namespace kelo::storage
{

using std::string_view;

constexpr int most_places = 512; // of one memory; the largest seen has 300
constexpr std::size_t most_memories = 3;
constexpr std::size_t most_known = 512;
constexpr std::size_t most_reported = 64;
constexpr std::int64_t first_wait_ms = 60000; // behind a failure
constexpr std::int64_t longest_wait_ms = 600000;
constexpr std::int64_t notice_wait_ms = 5000; // behind one, where a message has been told of since
constexpr int most_failures = 3;              // of one place, which is then left alone
constexpr int burst = 16; // commands without a break, in which other idle work has its turn

// What is to be done with a place, or known of it, in this epoch.
constexpr octet wanted = 1;
constexpr octet announced = 2;  // by a report: it did not lie there before
constexpr octet left_alone = 4; // a draft, or what can't be had

struct memory {
    char name[4] = ""; // "ME", "SM", "MT"
    int used = -1, total = -1;
    enum { rest, due, sized } look = rest; // at all of it
    int probe = -1;                        // the next place to try, where no list is to be had
    bool looked_through = false;           // once by this process
    bool full = false;                     // and said so
    bool told_full = false;                // by a report
};

// A message of the storage, for longer than its place is known.
struct known_message {
    std::uint64_t digest = 0;
    int number = 0;     // of its place now, -1 for one in doubt,
    unsigned epoch = 0; // in this epoch; 0: no message
    sms_place given{0}; // as it was handed out
    bool kept = false;  // nobody needs it there any more
    bool stuck = false; // the modem does not delete it, in this epoch
};

enum class step {
    none,
    reports,
    pdu_mode,
    memories,
    select,
    list,
    read,
    remove,
    forgotten // of an epoch before: its end is still to come, and nobody cares for it
};

struct modem_storage {
    int mode = 0;
    unsigned epoch = 1;

    // Of this epoch
    bool told = false;      // the modem knows how to report
    bool flow_says = false; // a flow has just said it, and the answer is due
    int tellings = 0;
    bool pdu_mode = false;
    memory* current = nullptr; // the one that is selected; null: not asked yet
    bool stale = false;        // what was told of the places in use

    // The command that runs
    step asked = step::none;
    int number = 0; // of its place, or of the first place of its memory
    char command[32] = "";
    bool echoed = false;
    enum { no_head, text_head, draft, received } head = no_head;
    int octets = 0; // of the PDU behind the service centre

    bool echoes = false; // the modem repeats our commands, which tells its answers apart
    int doubted = -1;    // a place that was said to be empty and should not be
    int failing = -1;    // a place with a failure, and how many there were
    int failed = 0;
    int failures = 0; // in a row, of the whole errand
    int count = 0;    // of the burst
    std::int64_t not_before_ms = 0;
    std::int64_t now_ms = 0;

    memory* home = nullptr; // was selected at first, and is again in the end; null: not known
};

// A leaf: nothing is taken under it. It guards all that follows, most of which is the mobile
// task's. Callers of what is declared here hold it, but for the functions on texts.
extern lock storage_lock;
extern modem_storage store;
extern memory memories[most_memories];
extern octet places[most_memories * most_places]; // by number
extern known_message known[most_known];
extern made<char, 2048> answer; // to the command that runs

// ---- What is known (storage_places.cpp)

// A place has one number in all of the memories.
inline int number_for(const memory& one, int place)
{
    return static_cast<int>(&one - memories) * most_places + place;
}
inline memory* memory_of(int number) // null for -1
{
    return number < 0 ? nullptr : &memories[number / most_places];
}
inline std::span<octet, most_places> places_of(const memory& one)
{
    return std::span<octet, most_places>(places + number_for(one, 0), most_places);
}

known_message* known_at(int number);

// A message of an epoch before, or of a place that is in doubt, which has not been found again yet.
known_message* known_before(std::uint64_t digest);

// Another, in a free record or that of the oldest of an epoch before. Null: this epoch has them
// all.
known_message* add_known(std::uint64_t digest);

// Another message may stand there now: nothing is deleted by this number until it has been read.
void doubt_place(int number);

memory* memory_named(string_view name);

// Of a report. Other names than "ME" and "SM", and all where "MT" has all of the others in it,
// stand for places of the memory that is selected anyway; null while that is not known.
memory* memory_for(string_view name);

void take_size(memory& one, int used, int total); // says it when it is full
int first_wanted(const memory& one);              // -1 for none
bool want_unless_known(memory& one, int place);   // whether it does
bool has_reading(memory& one);
const known_message* to_remove(const memory& one); // null for none

// What may have put other messages into the places has happened.
void forget_places();

// ---- Lines of the modem, and texts (storage_lines.cpp)

bool is_listening();
void hear(string_view line);

std::uint64_t digest_of(string_view pdu);
string_view trimmed(string_view text);
string_view cut_off(string_view& text, char mark); // the part up to the mark, which goes with it
int number_of(string_view text);                   // -1 for what is no number

struct final_result {
    bool ok = false;
    int cms = 0, cme = 0; // numbers of the errors; -1 where it has words
};
std::optional<final_result> final_in(string_view line);

} // namespace kelo::storage
