// The lines of the modem, as far as they are about its storage: heard, and handed to the
// errand; and what it is told of messages by a flow.
#include "sms/storage.h"

#include "sms/codec/digest.h"
#include "support/text.h"

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

bool is_hex(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
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
    const string_view part = text.substr(0, text.find(mark));
    text = behind(text, part.size() + 1);
    return trimmed(part);
}

int number_of(string_view text)
{
    int number = 0;
    if (text.empty() || text.size() > 6)
        return -1;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return -1;
        number = number * 10 + c - '0';
    }
    return number;
}

string_view unquoted(string_view text)
{
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
        return behind(text, 1).substr(0, text.size() - 2);
    return text;
}

std::optional<final_result> final_in(string_view line)
{
    constexpr string_view cms = "+CMS ERROR:";
    constexpr string_view cme = "+CME ERROR:";
    final_result result;
    if (line == "OK")
        result.ok = true;
    else if (line.starts_with(cms))
        result.cms = std::max(number_of(trimmed(behind(line, cms.size()))), 0);
    else if (line.starts_with(cme))
        result.cme = std::max(number_of(trimmed(behind(line, cme.size()))), 0);
    else if (line != "ERROR")
        return std::nullopt;
    return result;
}

namespace
{

// +CMTI: "ME",7
void take_arrival(string_view columns)
{
    memory* const one = memory_for(unquoted(cut_off(columns, ',')));
    const int place = number_of(trimmed(columns));
    if (one == nullptr)
        return; // the first look is still to come
    if (place < 0 || place >= most_places || text_of(one->name) == "MT")
        one->look = memory::due;
    else {
        doubt_place(number_for(index_of(one), place));
        one->places[place] = wanted | announced;
    }
    // It works again, whatever failed before.
    store.not_before_ms = std::min(store.not_before_ms, store.now_ms + notice_wait_ms);
}

void take_full(string_view line)
{
    const bool of_sim = line.find("\"SM\"") != string_view::npos;
    const bool of_modem = line.find("\"ME\"") != string_view::npos;
    memory* const one = memory_for(of_sim ? "SM" : of_modem ? "ME" : "");
    if (one == nullptr)
        return;
    one->told_full = true;
    one->look = memory::due;
}

void take_notice(string_view line)
{
    constexpr string_view arrivals[] = {"+CMTI:", "+CDSI:"};
    for (const string_view begin : arrivals)
        if (line.starts_with(begin))
            return take_arrival(behind(line, begin.size()));
    take_full(line);
}

void hear(string_view line)
{
    constexpr string_view other_card[] = {
        "RDY",           "+CPIN: NOT READY", "+CPIN: NOT INSERTED",
        "+SIM: Removed", "+SIM DROP",        "^SIMST: 255"};
    if (line.starts_with("AT+"))
        store.echoes = true; // of whatever command: an answer of the errand's has its own ahead
    if (line == "+CMS ERROR: 322")
        take_full(line);
    for (const string_view begin : other_card)
        if (line.starts_with(begin)) {
            if (begin == "RDY" && store.mode != 0)
                store.told = false;
            forget_places();
        }
    // Somebody else's command: another memory, or other messages.
    if ((line.find("+CPMS=") != string_view::npos || line.find("+CMGD=") != string_view::npos) &&
        !line.ends_with(store.command))
        forget_places();
    const auto result = final_in(line);
    if (store.flow_says && result) {
        store.flow_says = false;
        store.told = result->ok;
    }
}

bool is_listening()
{
    return store.mode != 0 || word_get(sms_reports_wanted) != 0 || store.asked != step::none;
}

} // namespace

} // namespace kelo::storage

namespace kelo
{

using namespace storage;

void sms_storage_hear(string_view line)
{
    const lock_scope hold(storage_lock);
    if (store.mode != 0 || word_get(sms_reports_wanted) != 0)
        take_notice(trimmed(line));
}

void sms_storage_line(gsm_mobile* rec, char* line)
{
    {
        const lock_scope hold(storage_lock);
        if (!is_listening())
            return;
        hear(line);
    }
    sms_errand_handler(rec, line);
}

bool sms_errand_owns(const char* line)
{
    const string_view text = trimmed(line);
    constexpr string_view begins[] = {"AT+", "+CPMS:", "+CMGD:", "+CMGR:"};
    for (const string_view begin : begins)
        if (text.starts_with(begin))
            return true;
    // A piece of a line may be anything of ours: an end, an error, hexadecimal.
    return text_has(line, "OK") || text_has(line, "ERROR") || (!text.empty() && is_hex(text[0]));
}

const char* sms_command_instead(const char* command)
{
    constexpr string_view direct = "+CNMI=2,2";
    constexpr string_view stored = "+CNMI=2,1,0,1,0";
    static char text[512]; // the mobile task's
    const string_view all = command == nullptr ? "" : command;
    const std::size_t at = all.find("+CNMI=");
    const lock_scope hold(storage_lock);
    if (store.mode == 0)
        return nullptr;
    if (all.find("+CMGF=1") != string_view::npos)
        store.pdu_mode = false;
    if (at == string_view::npos)
        return nullptr;
    const string_view own = behind(all, at);
    const string_view rest = behind(own, std::min(own.find(';'), own.size()));
    store.flow_says = own.starts_with(stored);
    const bool replaced =
        own.starts_with(direct) &&
        (own.size() == direct.size() || own[direct.size()] == ',' || own[direct.size()] == ';');
    if (!replaced || at + stored.size() + rest.size() >= sizeof text)
        return nullptr;
    store.flow_says = true;
    std::size_t length = all.copy(text, at);
    length += stored.copy(text + length, stored.size());
    length += rest.copy(text + length, rest.size());
    text[length] = '\0';
    return text;
}

} // namespace kelo
