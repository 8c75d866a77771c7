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
#include "support/sleeps.h"
#include "support/waits.h"

#include <cstdio>
#include <utility>

namespace kelo::storage
{

made<char, 2048> answer;

// A deletion without an answer may have been made, and the place have another message since.
void give_up()
{
    if (store.asked == step::remove)
        doubt_place(number_for(store.current, store.place));
    if (store.asked != step::none && !store.echoed)
        store.echoes = false; // or it has not heard the command
    store.asked = step::none;
    store.open = false;
    store.not_before_ms = store.now_ms + doubled(first_wait_ms, longest_wait_ms, store.failures);
    store.failures++;
}

namespace
{

// ---- The next command

bool ask(step what, const char* command, int place = 0)
{
    std::snprintf(store.command, sizeof store.command, "%s", command);
    store.asked = what;
    store.place = place;
    store.open = true;
    store.echoed = false;
    store.head = modem_storage::no_head;
    answer.count = 0;
    return true;
}

bool ask_of_place(step what, const char* command, int place)
{
    char text[sizeof store.command];
    std::snprintf(text, sizeof text, "%s=%d", command, place);
    return ask(what, text, place);
}

bool select_memory(int index)
{
    char text[sizeof store.command];
    std::snprintf(text, sizeof text, "AT+CPMS=\"%.3s\"", memories[index].name);
    return ask(step::select, text, index);
}

bool next_of_memory(int index, bool room)
{
    memory& one = memories[index];
    if (const known_message* const gone = to_remove(index))
        return ask_of_place(step::remove, "AT+CMGD", gone->number % most_places);
    if (!room || !has_reading(one)) {
        if (room && one.used >= 0)
            one.looked_through = true;
        return false;
    }
    if (!store.pdu_mode)
        return ask(step::pdu_mode, "AT+CMGF=0");
    if (one.look == memory::due)
        return ask(step::memories, "AT+CPMS?");
    if (one.look == memory::sized)
        return ask(step::list, "AT+CMGD=?");
    return ask_of_place(step::read, "AT+CMGR", first_wanted(one));
}

bool has_work(int index, bool room)
{
    return memories[index].name[0] != '\0' &&
           (to_remove(index) != nullptr || (room && has_reading(memories[index])));
}

bool next_step(bool room)
{
    constexpr const char* tellings[] = {"AT+CNMI=2,1,0,1,0", "AT+CNMI=2,1,0,0,0"};
    if (store.mode == 0) {
        const bool due = !store.told && word_get(sms_reports_wanted) != 0;
        store.told |= due; // once, whatever becomes of it
        return due && ask(step::reports, "AT+CNMI=2,2,0,1,0");
    }
    if (!store.told)
        return ask(step::reports, tellings[store.tellings % 2]);
    if (store.current < 0)
        return store.pdu_mode ? ask(step::memories, "AT+CPMS?") : ask(step::pdu_mode, "AT+CMGF=0");
    if (next_of_memory(store.current, room))
        return true;
    const int count = most_memories;
    for (int index = 0; index < count; index++)
        if (has_work(index, room))
            return select_memory(index);
    if (store.current != store.home)
        return select_memory(store.home);
    return store.stale && ask(step::memories, "AT+CPMS?");
}

// ---- Answers

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
bool fails_for_good(int number)
{
    store.failed = store.failing == number ? store.failed + 1 : 1;
    store.failing = number;
    return store.failed >= most_failures;
}

void take_reports_answer(const final_result& result)
{
    // Some take no reports of delivery; two tries of each form, then it stays as it is.
    constexpr int unknown_error = 500;
    store.told = result.ok || ++store.tellings >= 4;
    if (!store.told && (of_sim(result) || result.cms == unknown_error))
        give_up();
}

// What comes may go elsewhere than to the memory that is selected: both are looked at.
void take_names(string_view selected, string_view arriving)
{
    if (home() == nullptr) {
        memory* const first = memory_named(selected);
        store.home = index_of(first != nullptr ? first : &memories[0]);
        home()->look = memory::due;
    }
    const memory* const named = selected == text_of(home()->name) ? home() : memory_for(selected);
    store.current = named != nullptr ? index_of(named) : store.home;
    memory* const other = memory_for(arriving);
    if (other != nullptr && other->used < 0)
        other->look = memory::due;
}

// +CPMS: "ME",7,255,"ME",7,255,"ME",7,255, and without names behind a selection.
bool take_memories(string_view text, bool with_names)
{
    string_view columns[9];
    std::size_t count = 0;
    while (count < 9 && !text.empty())
        columns[count++] = cut_off(text, ',');
    const std::size_t at = with_names ? 1 : 0;
    const int used = count > at ? number_of(columns[at]) : -1;
    const int total = count > at + 1 ? number_of(columns[at + 1]) : -1;
    if (used < 0 || total < 0)
        return false;
    if (with_names)
        take_names(unquoted(columns[0]), count == 9 ? unquoted(columns[6]) : string_view());
    memory& one = memories[store.current];
    take_size(one, used, total);
    if (one.look == memory::due)
        one.look = used > 0 ? memory::sized : memory::rest;
    store.stale = false;
    return true;
}

void take_selection(const final_result& result)
{
    memory& one = memories[store.place];
    if (result.ok) {
        store.current = store.place;
        take_memories({answer.items, answer.count}, false);
        return;
    }
    if (of_sim(result) || store.place == store.home) {
        give_up();
        return;
    }
    // It can't be had: in this epoch nothing of it is wanted any more.
    one.look = memory::rest;
    one.probe = -1;
    std::memset(one.places, 0, sizeof one.places);
    for (known_message& message : known)
        message.stuck |= memory_of(message.number) == store.place;
}

// +CMGD: (1,2,5),(0-4). A range says which places there are, and not which of them are occupied.
void take_list(string_view text)
{
    memory& one = memories[store.current];
    one.look = memory::rest;
    one.probe = -1;
    const std::size_t open = text.find('(');
    const std::size_t close = text.find(')');
    string_view list = open < close && close != string_view::npos
                           ? behind(text, open + 1).substr(0, close - open - 1)
                           : string_view();
    const int first = number_for(store.current, 0);
    int count = 0;
    while (!list.empty() && count >= 0) {
        const int place = number_of(cut_off(list, ','));
        count = place < 0 ? -1 : count + 1;
        if (place >= 0 && place < most_places && (one.places[place] & left_alone) == 0 &&
            known_at(first + place) == nullptr)
            one.places[place] |= wanted;
    }
    if (count < one.used)
        one.probe = 0;
}

// What an answer gives the host, for when no lock is held.
struct delivery {
    bool message = false, report = false, first_look = false;
    message_part part;
    status_report status;
    sms_place place;
};

void take_pdu(string_view pdu, delivery& out)
{
    memory& one = memories[store.current];
    const int number = number_for(store.current, store.place);
    const std::uint64_t digest = digest_of(pdu);
    if (known_message* const here = known_at(number)) {
        if (here->digest == digest)
            return;
        here->epoch = 0; // another message has taken its place
    }
    known_message* const before = known_before(digest);
    known_message* const record = before != nullptr ? before : room_for_known();
    if (record == nullptr) {
        one.places[store.place] |= left_alone;
        return;
    }
    if (before == nullptr)
        *record = {.digest = digest, .given = {}, .kept = take_reported(digest)};
    record->number = number;
    record->epoch = store.epoch;
    // What waits for the host is given once more in a new epoch, with its place of now; where there
    // was no room for it, nobody else has it.
    const bool given = record->given.index < 0 || record->given.epoch == store.epoch;
    if (record->kept || (before != nullptr && given))
        return;
    const std::optional<bool> is_report = sms_is_status_report(pdu);
    const auto part = is_report == false ? sms_read_deliver(pdu) : std::nullopt;
    const auto status = is_report == true ? sms_read_status_report(pdu) : std::nullopt;
    if (part) {
        record->given = {number, store.epoch};
        out.message = true;
        out.first_look = !one.looked_through && (one.places[store.place] & announced) == 0;
        out.part = *part;
        out.place = record->given;
    } else if (status) {
        record->kept = true;
        out.report = true;
        out.status = *status;
    } else {
        diag_plain("sms: what the modem's storage has at %d of %s can't be read, it stays\n",
                   store.place, one.name);
    }
}

// Characters of the PDU: its length does not count the service centre, which stands ahead.
std::size_t pdu_length(string_view hex)
{
    if (hex.size() < 2)
        return hex.size() + 1;
    return 2 * (static_cast<std::size_t>(store.octets) + 1 + hex_octet(hex, 0));
}

void take_stored(const final_result& result, delivery& out)
{
    memory& one = memories[store.current];
    octet& place = one.places[store.place];
    const int number = number_for(store.current, store.place);
    const string_view hex = {answer.items, answer.count};
    if (store.head == modem_storage::draft) {
        place = left_alone;
        return;
    }
    const bool headed = store.head != modem_storage::no_head;
    if (store.head == modem_storage::received && result.ok && hex.size() >= pdu_length(hex)) {
        take_pdu(hex.substr(0, pdu_length(hex)), out);
        place &= left_alone;
        return;
    }
    const bool empty = no_message(result) || (result.ok && !headed);
    // An OK of something else looks the same where the modem does not repeat the command.
    if (empty && result.ok && one.probe < 0 && store.doubted != number) {
        store.doubted = number;
        return;
    }
    if (empty) {
        place = 0;
        if (known_message* const here = known_at(number))
            here->epoch = 0;
        return;
    }
    if (!of_sim(result) && fails_for_good(number)) {
        diag_plain("sms: the modem does not give what it stores at %d of %s\n", store.place,
                   one.name);
        place = left_alone;
    } else if (!result.ok) {
        give_up();
    }
}

void take_removal(const final_result& result)
{
    memory& one = memories[store.current];
    const int number = number_for(store.current, store.place);
    known_message* const gone = known_at(number);
    if (gone == nullptr)
        return;
    if (result.ok || no_message(result)) {
        gone->epoch = 0;
        one.used -= one.used > 0 ? 1 : 0;
        one.full = false;
        store.stale = true;
    } else if (!of_sim(result) && fails_for_good(number)) {
        gone->stuck = true;
    } else {
        give_up();
    }
}

void take_final(const final_result& result, delivery& out)
{
    const step asked = std::exchange(store.asked, step::none);
    store.open = false;
    const string_view text = {answer.items, answer.count};
    switch (asked) {
    case step::reports:
        return take_reports_answer(result);
    case step::pdu_mode:
        store.pdu_mode = result.ok;
        if (!result.ok)
            give_up();
        return;
    case step::memories:
        if (!result.ok || !take_memories(text, true))
            give_up();
        return;
    case step::select:
        return take_selection(result);
    case step::list:
        if (of_sim(result))
            give_up();
        else
            take_list(result.ok ? text : string_view());
        return;
    case step::read:
        return take_stored(result, out);
    case step::remove:
        return take_removal(result);
    case step::none:
        return;
    }
}

// +CMGR: 0,,26. In text mode the first column is a word in quotes.
void take_head(string_view columns)
{
    const int stat = number_of(cut_off(columns, ','));
    const std::size_t comma = columns.rfind(',');
    const int length =
        comma == string_view::npos ? -1 : number_of(trimmed(behind(columns, comma + 1)));
    constexpr int longest = 255;
    store.octets = length;
    if (stat < 0) {
        store.head = modem_storage::text_head; // somebody has set text mode
        store.pdu_mode = false;
    } else {
        const bool whole = stat <= 1 && length >= 0 && length <= longest;
        store.head = whole ? modem_storage::received : modem_storage::draft;
    }
}

// A line of the message itself, or what stands ahead of a report that came in its middle.
void take_hex(string_view line)
{
    std::size_t digits = 0;
    while (digits < line.size() && is_hex(line[digits]))
        digits++;
    if (digits == line.size() || line[digits] == '+' || line[digits] == '^')
        answer.add({line.data(), digits});
}

void take_line(string_view line)
{
    constexpr std::pair<step, string_view> answers[] = {
        {step::memories, "+CPMS:"}, {step::select, "+CPMS:"}, {step::list, "+CMGD:"}};
    for (const auto& [asked, begin] : answers)
        if (store.asked == asked && line.starts_with(begin)) {
            const string_view rest = trimmed(behind(line, begin.size()));
            answer.count = 0;
            answer.add({rest.data(), rest.size()});
        }
    if (store.asked != step::read)
        return;
    constexpr string_view head = "+CMGR:";
    if (line.starts_with(head))
        take_head(trimmed(behind(line, head.size())));
    else if (store.head == modem_storage::received)
        take_hex(line);
}

// Behind a failure.
bool rests()
{
    return store.now_ms < store.not_before_ms;
}

void hand_out(const delivery& out, std::int64_t now_ms)
{
    if (out.message)
        sms_message_part(out.part, out.place, out.first_look, now_ms);
    if (out.report)
        sms_report_came(out.status);
}

} // namespace

} // namespace kelo::storage

namespace kelo
{

using namespace storage;

void sms_command_goes_out()
{
    const std::int64_t now_ms = monotonic_ms();
    const lock_scope hold(storage_lock);
    store.now_ms = now_ms;
    if (store.asked != step::none)
        give_up();
    store.open = false;
}

bool sms_reports_due()
{
    const lock_scope hold(storage_lock);
    return !store.told && word_get(sms_reports_wanted) != 0 && !rests();
}

const char* sms_errand_next(std::int64_t now_ms)
{
    const bool room = sms_storage_mode() != 0 && sms_messages_have_room();
    const lock_scope hold(storage_lock);
    store.now_ms = now_ms;
    if (store.asked != step::none)
        give_up();
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

event* sms_errand_handler(gsm_mobile* rec, char* line)
{
    delivery out;
    std::int64_t now_ms = 0;
    {
        const lock_scope hold(storage_lock);
        if (!store.open)
            return nullptr;
        now_ms = store.now_ms;
        const string_view text = trimmed(line);
        if (text.ends_with(store.command)) {
            store.echoed = store.echoes = true;
            store.head = modem_storage::no_head;
            answer.count = 0;
            return nullptr;
        }
        if (store.echoes && !store.echoed)
            return nullptr; // it answers somebody else
        const auto result = final_in(text);
        if (!result) {
            take_line(text);
            return nullptr;
        }
        take_final(*result, out);
    }
    hand_out(out, now_ms);
    const lock_scope hold(record_lock);
    finish_command(rec);
    return nullptr;
}

} // namespace kelo
