// SPDX-License-Identifier: MIT
// The modem's storage of messages, read and emptied: 3GPP TS 27.005 3.1, 3.4 and 3.5.
//
// An errand of the mobile task, one command at a time while it has nothing else to send. What each
// place holds is known by the digest of its PDU, and for as long as nothing has happened that may
// have put other messages there: a start, a reload, a restart of the modem, another SIM. Each of
// these begins a new epoch. Then all places are looked at anew, and what was handed out before is
// known again by its digest: no message is handed out twice, and none is deleted by a number that
// stands for another one now.
#include "sms/storage.h"

#include "at/answers.h"
#include "support/diag.h"
#include "support/seldom.h"
#include "support/sleeps.h"
#include "support/waits.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace kelo::storage
{

KELO_SELDOM made<char, 2048> answer;

namespace
{

// ---- The next command

// Behind a failure.
bool rests()
{
    return store.now_ms < store.not_before_ms;
}

void give_up()
{
    store.not_before_ms = store.now_ms + doubled(first_wait_ms, longest_wait_ms, store.failures++);
}

// A deletion without an answer may have been made, and the place have another message since.
void end_without_answer(std::int64_t now_ms)
{
    store.now_ms = now_ms;
    const step asked = std::exchange(store.asked, step::none);
    if (asked == step::none || asked == step::forgotten)
        return;
    if (asked == step::remove)
        doubt_place(store.number);
    if (!store.echoed)
        store.echoes = false; // or it has not heard the command
    give_up();
}

void clear_answer()
{
    store.head = modem_storage::no_head;
    answer.count = 0;
}

[[gnu::format(printf, 3, 4)]] bool ask(step what, int number, const char* command, ...)
{
    va_list values;
    va_start(values, command);
    std::vsnprintf(store.command, sizeof store.command, command, values);
    va_end(values);
    store.asked = what;
    store.number = number;
    store.echoed = false;
    clear_answer();
    return true;
}

bool ask_of(const memory& one)
{
    if (const known_message* const gone = to_remove(one))
        return ask(step::remove, gone->number, "AT+CMGD=%d", gone->number % most_places);
    if (!store.pdu_mode)
        return ask(step::pdu_mode, 0, "AT+CMGF=0");
    if (one.look == memory::due)
        return ask(step::memories, 0, "AT+CPMS?");
    if (one.look == memory::sized)
        return ask(step::list, 0, "AT+CMGD=?");
    const int place = first_wanted(one);
    return ask(step::read, number_for(one, place), "AT+CMGR=%d", place);
}

bool select_memory(const memory& one)
{
    return ask(step::select, number_for(one, 0), "AT+CPMS=\"%.3s\"", one.name);
}

bool has_work(memory& one, bool room)
{
    return to_remove(one) != nullptr || (room && has_reading(one));
}

bool next_step(bool room)
{
    if (store.mode == 0) {
        const bool due = !store.told && word_get(sms_reports_wanted) != 0;
        store.told |= due; // once, whatever becomes of it
        return due && ask(step::reports, 0, "AT+CNMI=2,2,0,1,0");
    }
    if (!store.told) // some take no reports of delivery
        return ask(step::reports, 0, "AT+CNMI=2,1,0,%d,0", store.tellings % 2 == 0 ? 1 : 0);
    if (store.current == nullptr)
        return store.pdu_mode ? ask(step::memories, 0, "AT+CPMS?")
                              : ask(step::pdu_mode, 0, "AT+CMGF=0");
    if (has_work(*store.current, room))
        return ask_of(*store.current);
    store.current->looked_through |= room && store.current->used >= 0;
    for (memory& one : memories)
        if (has_work(one, room))
            return select_memory(one);
    if (store.current != store.home)
        return select_memory(*store.home);
    return store.stale && ask(step::memories, 0, "AT+CPMS?");
}

// ---- Answers

// What an answer gives the host, for when no lock is held.
struct delivery {
    std::optional<message_part> part;
    sms_place place;
    bool first_look = false;
    std::optional<status_report> report;
    std::int64_t now_ms = 0;
};

string_view answered()
{
    return {answer.items, answer.count};
}

// 27.005 3.2.5: 310 to 318 are of the SIM. 512: not ready, of one maker.
bool of_sim(const final_result& result)
{
    return (result.cms >= 310 && result.cms <= 318) || result.cms == 512 ||
           (result.cme >= 10 && result.cme <= 15);
}

bool no_message(const final_result& result)
{
    constexpr int invalid_index = 321;
    constexpr int invalid_index_me = 21;
    return result.cms == invalid_index || result.cme == invalid_index_me;
}

// A failure of one place: another try later, and in the end none. True when it is the end.
bool fails_for_good(const final_result& result)
{
    if (of_sim(result))
        return false;
    store.failed = store.failing == store.number ? store.failed + 1 : 1;
    store.failing = store.number;
    return store.failed >= most_failures;
}

// Two tries of each form, then it stays as it is.
void take_reports_answer(const final_result& result)
{
    constexpr int unknown_error = 500;
    store.told = result.ok || ++store.tellings >= 4;
    if (!store.told && (of_sim(result) || result.cms == unknown_error))
        give_up();
}

// What comes may go elsewhere than to the memory that is selected: both are looked at.
void take_names(string_view selected, string_view arriving)
{
    if (store.home == nullptr) {
        store.home = memory_named(selected);
        store.home->look = memory::due;
    }
    store.current = memory_for(selected);
    memory* const other = memory_for(arriving);
    if (other->used < 0)
        other->look = memory::due;
}

// +CPMS: "ME",7,255,"ME",7,255,"ME",7,255, and without names behind a selection.
bool take_memories(bool with_names)
{
    const report_header answer_line = cut_header(answered());
    const string_view* const columns = answer_line.columns;
    const int used = number_of(columns[with_names ? 1 : 0]);
    const int total = number_of(columns[with_names ? 2 : 1]);
    if (used < 0 || total < 0)
        return false;
    if (with_names)
        take_names(columns[0], columns[6]);
    memory& one = *store.current;
    take_size(one, used, total);
    if (one.look == memory::due)
        one.look = used > 0 ? memory::sized : memory::rest;
    store.stale = false;
    return true;
}

void take_selection(const final_result& result)
{
    memory* const one = memory_of(store.number);
    if (result.ok) {
        store.current = one;
        take_memories(false);
        return;
    }
    if (of_sim(result) || one == store.home) {
        give_up();
        return;
    }
    // It can't be had: in this epoch nothing of it is wanted any more.
    one->look = memory::rest;
    one->probe = -1;
    std::ranges::fill(places_of(*one), octet{});
    for (known_message& message : known)
        message.stuck |= memory_of(message.number) == one;
}

// +CMGD: (1,2,5),(0-4). A range says which places there are, and not which of them are occupied.
void take_list(string_view text)
{
    memory& one = *store.current;
    one.look = memory::rest;
    cut_off(text, '(');
    string_view list = cut_off(text, ')');
    int count = 0;
    while (!list.empty() && count >= 0) {
        const int place = number_of(cut_off(list, ','));
        count = place < 0 ? -1 : count + 1;
        if (place >= 0 && place < most_places)
            want_unless_known(one, place);
    }
    one.probe = count < one.used ? 0 : -1;
}

void read_pdu(string_view pdu, known_message& record, delivery& out)
{
    if ((out.part = sms_read_deliver(pdu))) {
        const bool was_announced = (places[record.number] & announced) != 0;
        out.first_look = !store.current->looked_through && !was_announced;
        out.place = record.given = {record.number, store.epoch};
    } else if ((out.report = sms_read_status_report(pdu))) {
        record.kept = true;
    } else {
        diag_plain("sms: what the modem's storage has at %d of %s can't be read, it stays\n",
                   record.number % most_places, store.current->name);
    }
}

void take_pdu(string_view pdu, delivery& out)
{
    const std::uint64_t digest = digest_of(pdu);
    if (known_message* const here = known_at(store.number)) {
        if (here->digest == digest)
            return;
        here->epoch = 0; // another message has taken its place
    }
    known_message* const before = known_before(digest);
    known_message* const record = before != nullptr ? before : add_known(digest);
    if (record == nullptr) {
        places[store.number] |= left_alone;
        return;
    }
    record->number = store.number;
    record->epoch = store.epoch;
    // What waits for the host is given once more in a new epoch, with its place of now; where there
    // was no room for it, nobody else has it.
    const bool given = record->given.index < 0 || record->given.epoch == store.epoch;
    if (!record->kept && (before == nullptr || !given))
        read_pdu(pdu, *record, out);
}

// Its length does not count the service centre, which stands ahead. Empty: not all of it is there.
string_view stored_pdu()
{
    const string_view hex = answered();
    const std::size_t length = 2 * (static_cast<std::size_t>(store.octets) + 1 + hex_octet(hex, 0));
    const bool whole = store.head == modem_storage::received && hex.size() >= length;
    return ahead(hex, whole ? length : 0);
}

void take_no_message(const final_result& result)
{
    // An OK of something else looks the same where the modem does not repeat the command.
    if (result.ok && store.current->probe < 0 && store.doubted != store.number) {
        store.doubted = store.number;
        return;
    }
    places[store.number] = 0;
    if (known_message* const here = known_at(store.number))
        here->epoch = 0;
}

void take_stored(const final_result& result, delivery& out)
{
    octet& place = places[store.number];
    const string_view pdu = result.ok ? stored_pdu() : string_view();
    if (store.head == modem_storage::draft) {
        place = left_alone;
    } else if (!pdu.empty()) {
        take_pdu(pdu, out);
        place &= left_alone;
    } else if (no_message(result) || (result.ok && store.head == modem_storage::no_head)) {
        take_no_message(result);
    } else if (fails_for_good(result)) {
        diag_plain("sms: the modem does not give what it stores at %d of %s\n",
                   store.number % most_places, store.current->name);
        place = left_alone;
    } else if (!result.ok) {
        give_up();
    }
}

void take_removal(const final_result& result)
{
    known_message* const gone = known_at(store.number);
    if (gone == nullptr)
        return;
    if (result.ok || no_message(result)) {
        memory& one = *store.current;
        gone->epoch = 0;
        one.used -= one.used > 0 ? 1 : 0;
        one.full = false;
        store.stale = true;
    } else if (fails_for_good(result)) {
        gone->stuck = true;
    } else {
        give_up();
    }
}

void take_final(const final_result& result, delivery& out)
{
    switch (std::exchange(store.asked, step::none)) {
    case step::reports:
        return take_reports_answer(result);
    case step::pdu_mode:
        store.pdu_mode = result.ok;
        if (!result.ok)
            give_up();
        return;
    case step::memories:
        if (!result.ok || !take_memories(true))
            give_up();
        return;
    case step::select:
        return take_selection(result);
    case step::list:
        if (of_sim(result))
            give_up();
        else
            take_list(result.ok ? answered() : string_view());
        return;
    case step::read:
        return take_stored(result, out);
    case step::remove:
        return take_removal(result);
    case step::none:
    case step::forgotten:
        return;
    }
}

// +CMGR: 0,,26. In text mode the first column is a word in quotes.
void take_head(string_view line)
{
    constexpr int longest = 255;
    const report_header head = cut_header(line);
    const int stat = number_of(head.columns[0]);
    store.octets = head.count > 2 ? number_of(head.columns[head.count - 1]) : -1;
    if (stat < 0) {
        store.head = modem_storage::text_head; // somebody has set text mode
        store.pdu_mode = false;
    } else {
        const bool whole = stat <= 1 && store.octets >= 0 && store.octets <= longest;
        store.head = whole ? modem_storage::received : modem_storage::draft;
    }
}

// A line of the message itself, or what stands ahead of a report that came in its middle.
void take_hex(string_view line)
{
    const string_view digits = ahead(line, line.find_first_not_of(hex_digits));
    const string_view rest = behind(line, digits.size());
    if (rest.empty() || rest[0] == '+' || rest[0] == '^')
        answer.add({digits.data(), digits.size()});
}

// What stands ahead of the end. It begins as its command does: "AT+CPMS?" and "+CPMS: ".
void take_line(string_view line)
{
    constexpr std::size_t name_at = 2, name_size = 5;
    const string_view name = ahead(behind(store.command, name_at), name_size);
    const bool begins = line.starts_with(name) && behind(line, name_size).starts_with(':');
    const string_view rest = trimmed(behind(line, name_size + 1));
    if (store.asked == step::read && begins) {
        take_head(rest);
    } else if (store.asked == step::read && store.head == modem_storage::received) {
        take_hex(line);
    } else if (begins) {
        answer.count = 0;
        answer.add({rest.data(), rest.size()});
    }
}

// True for the end of the answer.
bool take_answer(string_view line, delivery& out)
{
    if (store.asked == step::none)
        return false;
    if (line.ends_with(store.command)) {
        store.echoed = store.echoes = true;
        clear_answer();
        return false;
    }
    if (store.echoes && !store.echoed)
        return false; // it answers somebody else
    const auto result = final_in(line);
    if (result)
        take_final(*result, out);
    else
        take_line(line);
    out.now_ms = store.now_ms;
    return result.has_value();
}

void hand_out(const delivery& out)
{
    if (out.part)
        sms_message_part(*out.part, out.place, out.first_look, out.now_ms);
    if (out.report)
        sms_report_came(*out.report);
}

// A function of its own: its room is asked of the stack only while somebody listens. True, with the
// lock let go, for the end of an answer.
[[gnu::noinline]] bool hear_and_hand_out(lock_scope<storage_lock>& hold, string_view line)
{
    delivery out;
    hear(line);
    if (!take_answer(line, out))
        return false;
    hold.release();
    hand_out(out);
    return true;
}

} // namespace

} // namespace kelo::storage

namespace kelo
{

using namespace storage;

void sms_errand_interrupted()
{
    const std::int64_t now_ms = monotonic_ms();
    const lock_scope<storage_lock> hold;
    end_without_answer(now_ms);
}

bool sms_reports_due()
{
    const lock_scope<storage_lock> hold;
    return !store.told && word_get(sms_reports_wanted) != 0 && !rests();
}

const char* sms_errand_next(std::int64_t now_ms)
{
    const bool room = sms_storage_mode() != 0 && sms_messages_have_room();
    const lock_scope<storage_lock> hold;
    end_without_answer(now_ms);
    if (word_get(flow_walked) == 0 || rests())
        return nullptr;
    if (store.count >= burst) {
        store.count = 0;
        return nullptr;
    }
    if (!next_step(room)) {
        store.count = store.failures = 0;
        return nullptr;
    }
    store.count++;
    return store.command;
}

void sms_storage_line(gsm_mobile* rec, string_view line)
{
    lock_scope<storage_lock> hold;
    if (!is_listening() || !hear_and_hand_out(hold, line))
        return;
    const lock_scope<record_lock> record;
    finish_command(rec);
}

} // namespace kelo
