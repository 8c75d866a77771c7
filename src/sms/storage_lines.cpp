// SPDX-License-Identifier: MIT
// The lines of the modem, as far as they are about its storage: heard, and handed to the
// errand; and what it is told of messages by a flow.
#include "sms/storage.h"

#include "sms/codec/digest.h"
#include "support/seldom.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace kelo::storage
{

std::uint64_t digest_of(string_view pdu)
{
    std::uint64_t digest = digest_begin;
    for (const char c : pdu)
        digest = digest_with(digest, static_cast<octet>(c >= 'a' && c <= 'f' ? c - 'a' + 'A' : c));
    return digest;
}

string_view trimmed(string_view text)
{
    while (!text.empty() && (text.back() == '\r' || text.back() == ' '))
        text.remove_suffix(1);
    while (!text.empty() && (text.front() == '\r' || text.front() == ' '))
        text.remove_prefix(1);
    return text;
}

string_view cut_off(string_view& text, char mark)
{
    const string_view part = ahead(text, text.find(mark));
    text = behind(text, part.size() + 1);
    return trimmed(part);
}

int number_of(string_view text)
{
    int number = 0;
    text = trimmed(text);
    if (text.empty() || text.size() > 6)
        return -1;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return -1;
        number = number * 10 + c - '0';
    }
    return number;
}

std::optional<final_result> final_in(string_view line)
{
    constexpr string_view cms = "+CMS ERROR:";
    constexpr string_view cme = "+CME ERROR:";
    final_result result;
    if (line == "OK")
        result.ok = true;
    else if (line.starts_with(cms))
        result.cms = number_of(behind(line, cms.size()));
    else if (line.starts_with(cme))
        result.cme = number_of(behind(line, cme.size()));
    else if (line != "ERROR")
        return std::nullopt;
    return result;
}

namespace
{

bool has(string_view line, string_view needle)
{
    return line.find(needle) != string_view::npos;
}

// +CMTI: "ME",7
void take_arrival(string_view line)
{
    const report_header notice = cut_header(line);
    memory* const one = memory_for(notice.columns[0]);
    const int place = notice.count == 2 ? number_of(notice.columns[1]) : -1;
    if (one == nullptr)
        return; // the first look is still to come
    if (place < 0 || place >= most_places || text_of(one->name) == "MT")
        one->look = memory::due;
    else {
        doubt_place(number_for(*one, place));
        places[number_for(*one, place)] = wanted | announced;
    }
    // It works again, whatever failed before.
    store.not_before_ms = std::min(store.not_before_ms, store.now_ms + notice_wait_ms);
}

void take_full(string_view line)
{
    memory* const one = memory_for(has(line, "\"SM\"") ? "SM" : has(line, "\"ME\"") ? "ME" : "");
    if (one == nullptr)
        return;
    one->told_full = true;
    one->look = memory::due;
}

void take_notice(string_view line)
{
    static constexpr string_view arrivals[] = {"+CMTI:", "+CDSI:"};
    for (const string_view begin : arrivals)
        if (line.starts_with(begin))
            return take_arrival(behind(line, begin.size()));
    take_full(line);
}

} // namespace

void hear(string_view line)
{
    static constexpr string_view other_card[] = {
        "RDY",           "+CPIN: NOT READY", "+CPIN: NOT INSERTED",
        "+SIM: Removed", "+SIM DROP",        "^SIMST: 255"};
    const bool is_other_card =
        std::ranges::any_of(other_card, [&](string_view begin) { return line.starts_with(begin); });
    // Somebody else's command: another memory, or other messages.
    const bool is_other_command =
        (has(line, "+CPMS=") || has(line, "+CMGD=")) && !line.ends_with(store.command);
    if (line.starts_with("AT+"))
        store.echoes = true; // of whatever command: an answer of the errand's has its own ahead
    if (line == "+CMS ERROR: 322")
        take_full(line);
    if (line.starts_with("RDY") && store.mode != 0)
        store.told = false;
    if (is_other_card || is_other_command)
        forget_places();
    const auto result = final_in(line);
    if (result && std::exchange(store.flow_says, false))
        store.told = result->ok;
}

bool is_listening()
{
    return store.mode != 0 || word_get(sms_reports_wanted) != 0 || store.asked != step::none;
}

} // namespace kelo::storage

namespace kelo
{

using namespace storage;

void sms_storage_hear(string_view line)
{
    const lock_scope<storage_lock> hold;
    if (store.mode != 0 || word_get(sms_reports_wanted) != 0)
        take_notice(trimmed(line));
}

bool sms_errand_owns(const char* line)
{
    const string_view text = trimmed(line);
    static constexpr string_view begins[] = {"AT+", "+CPMS:", "+CMGD:", "+CMGR:"};
    for (const string_view begin : begins)
        if (text.starts_with(begin))
            return true;
    // A piece of a line may be anything of ours: an end, an error, hexadecimal.
    return has(text, "OK") || has(text, "ERROR") || text.find_first_of(hex_digits) == 0;
}

const char* sms_command_instead(const char* command)
{
    constexpr string_view direct = "+CNMI=2,2", direct_with_more = "+CNMI=2,2,";
    static constexpr char stored[] = "+CNMI=2,1,0,1,0";
    KELO_SELDOM static char text[512]; // the mobile task's
    const string_view all = command == nullptr ? "" : command;
    const std::size_t at = all.find("+CNMI=");
    const lock_scope<storage_lock> hold;
    if (store.mode == 0)
        return nullptr;
    if (has(all, "+CMGF=1"))
        store.pdu_mode = false;
    if (at == string_view::npos)
        return nullptr;
    const std::size_t end = std::min(all.find(';', at), all.size());
    const string_view own = ahead(behind(all, at), end - at);
    const bool replaced = (own == direct || own.starts_with(direct_with_more)) &&
                          all.size() - own.size() + sizeof stored <= sizeof text;
    store.flow_says = replaced || own.starts_with(stored);
    if (!replaced)
        return nullptr;
    std::snprintf(text, sizeof text, "%.*s%s%s", static_cast<int>(at), command, stored,
                  command + end);
    return text;
}

} // namespace kelo
