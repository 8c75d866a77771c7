// Reports of received messages, 3GPP TS 27.005 3.4.1: into gsm_event, the first of a read, and into
// the queue, each of them.
#include "sms/sms.h"

#include "support/diag.h"
#include "support/scan.h"
#include "support/sleeps.h"
#include "support/text.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace kelo
{

namespace
{

using std::string_view;

enum report_mode { mode_pdu = 0, mode_text = 1, mode_unknown = 2 };

// Fills a field with what the view shows.
template <std::size_t size> void set_field(char (&field)[size], string_view text)
{
    const std::size_t length = text.copy(field, size - 1);
    std::memset(field + length, 0, size - length);
}

// The view from `at` on. Not substr: it can throw, and would bring the C++ run time along.
string_view behind(string_view text, std::size_t at)
{
    text.remove_prefix(std::min(at, text.size()));
    return text;
}

const char* end_of(const char* text)
{
    return text + std::strlen(text);
}

// The first `mark` from `at` on, or the end of the text.
const char* find_or_end(const char* at, char mark)
{
    const char* const found = std::strchr(at, mark);
    return found != nullptr ? found : end_of(at);
}

string_view between(const char* begin, const char* end)
{
    return {begin, static_cast<std::size_t>(end - begin)};
}

// Cuts the line end off that the modem puts behind a text.
void cut_line_end(char* text)
{
    const std::size_t length = std::strlen(text);
    if (length >= 2 && text[length - 2] == '\r')
        text[length - 2] = '\0';
    if (length >= 1 && text[length - 1] == '\n')
        text[length - 1] = '\0';
}

// Digits at the head of a text, as far as an int goes.
int leading_number(const char* text)
{
    int number = 0;
    scan(text, dec(number));
    return number;
}

// ---- gsm_event

void read_zone(event& what)
{
    char* const plus = std::strchr(what.sms_time, '+');
    if (plus == nullptr) {
        text_set(what.time_zone, "unknow");
        return;
    }
    std::snprintf(what.time_zone, sizeof what.time_zone, "GMT+%d", leading_number(plus + 1) / 4);
    std::memset(plus, 0, static_cast<std::size_t>(std::end(what.sms_time) - plus));
}

// Caller holds record_lock.
void parse_text_report(event& what, const char* report, const char* comma)
{
    const char* const sender = std::strchr(report, '"'); // the mode says that there is one
    const char* sender_end = find_or_end(sender + 1, '"');
    if (comma > sender)
        sender_end = std::min(sender_end, comma);
    set_field(what.sender, between(sender + 1, sender_end));

    const char* const time = std::strchr(comma, '"') + 1;
    const char* const time_end = find_or_end(time, '"');
    set_field(what.sms_time, between(time, time_end));
    read_zone(what);

    const char* const line_end = std::strchr(report, '\n');
    if (line_end != nullptr) {
        const char* const smsc = *time_end != '\0' ? std::strchr(time_end + 1, '"') : nullptr;
        if (smsc != nullptr && smsc > line_end)
            text_clear(what.smsc);
        else if (smsc != nullptr)
            set_field(what.smsc, between(smsc + 1, std::min(find_or_end(smsc + 1, '"'), line_end)));
        text_set(what.text, line_end + 1);
        cut_line_end(what.text);
    }
    text_clear(what.pdu);
    what.length = static_cast<int>(std::strlen(what.text));
}

// ---- The queue: each report by itself, with nothing of its neighbours

constexpr char mark[] = "+CMT:";
constexpr std::size_t most_columns = 10;

// Columns of a text mode report, TS 27.005 3.4.1.
enum column { col_number, col_name, col_time, col_smsc = 7, col_length = 9 };

struct report_header {
    string_view columns[most_columns]; // without their quotes
    std::size_t count = 0;
    bool quoted_time = false;
};

// Cuts at the commas that stand outside quotes.
report_header cut_header(string_view line)
{
    report_header header;
    while (header.count < most_columns) {
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        const bool quoted = !line.empty() && line[0] == '"';
        string_view value;
        if (quoted) {
            value = behind(line, 1).substr(0, line.find('"', 1) - 1);
            line.remove_prefix(std::min(value.size() + 2, line.size()));
        }
        const std::size_t comma = std::min(line.find(','), line.size());
        if (!quoted)
            value = line.substr(0, comma);
        header.quoted_time |= quoted && header.count == col_time;
        header.columns[header.count++] = value;
        if (comma == line.size())
            break;
        line.remove_prefix(comma + 1);
    }
    return header;
}

int column_number(const report_header& header, std::size_t column)
{
    char digits[16];
    set_field(digits, header.columns[column]);
    return leading_number(digits);
}

string_view without_line_end(string_view text)
{
    if (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
    if (!text.empty() && text.back() == '\r')
        text.remove_suffix(1);
    return text;
}

// "24/05/17,09:30:12+08" as the time and zone of a PDU; what reads otherwise stays as it is.
void set_time(kelo_sms& message, string_view stamp)
{
    set_field(message.time, stamp);
    text_set(message.zone, "unknow");
    char sign = 0;
    int quarters = 0;
    int t[6] = {};
    char text[32];
    set_field(text, stamp);
    if (std::sscanf(text, "%2d/%2d/%2d,%2d:%2d:%2d%c%2d", &t[0], &t[1], &t[2], &t[3], &t[4], &t[5],
                    &sign, &quarters) < 6)
        return;
    std::snprintf(message.time, sizeof message.time, "20%02d-%02d-%02d %02d:%02d:%02d", t[0], t[1],
                  t[2], t[3], t[4], t[5]);
    if (sign == '+' || sign == '-')
        std::snprintf(message.zone, sizeof message.zone, "GMT%c%d", sign, quarters / 4);
}

// What one look at the head of a text has found.
struct found {
    std::size_t used = 0;  // up to the next report
    bool complete = false; // the whole message was there
};

std::size_t next_report(string_view text)
{
    const std::size_t at = std::min(text.find("\n+CMT:"), text.find("\n+CMTI:"));
    return at == string_view::npos ? text.size() : at + 1;
}

found read_text_body(const report_header& header, string_view body, kelo_sms& message)
{
    const int told =
        header.count > col_length ? std::max(0, column_number(header, col_length)) : -1;
    const auto length = static_cast<std::size_t>(std::max(told, 0));
    string_view text;
    found result;
    if (told >= 0 && body.size() > length && behind(body, length).starts_with("\r\n")) {
        // The header tells the length: no line of the text can pass for a report.
        text = body.substr(0, length);
        result.used = length + next_report(behind(body, length));
        result.complete = true;
    } else {
        result.used = next_report(body);
        text = body.substr(0, result.used);
        const bool prompted = result.used == body.size() && text.ends_with("\r\n> ");
        if (prompted)
            text.remove_suffix(2);
        if (prompted || result.used < body.size())
            text = without_line_end(text); // the one ahead of what follows
        result.complete = text.ends_with('\n');
        text = without_line_end(text);
    }
    message.mode = mode_text;
    message.coding = -1;
    set_field(message.sender, header.columns[col_number]);
    set_time(message, header.columns[col_time]);
    if (header.count > col_smsc)
        set_field(message.smsc, header.columns[col_smsc]);
    set_field(message.text, text);
    message.length = static_cast<int>(std::strlen(message.text));
    return result;
}

found read_pdu_body(string_view body, kelo_sms& message)
{
    const std::size_t end = body.find_first_of("\r\n");
    found result;
    result.used = next_report(body);
    set_field(message.pdu, body.substr(0, end));
    message.mode = mode_pdu;
    bool all_there = false;
    sms_read_pdu(message.pdu, message, all_there);
    result.complete = all_there || end != string_view::npos;
    return result;
}

// The rest of a report that a read broke off. Touched by the mobile task alone, but for a host that
// hands reports in itself: guarded by record_lock.
struct held_report {
    char text[2048];
    std::size_t length = 0;
    std::int64_t since_ms = 0;
};
held_report held;
constexpr std::int64_t hold_limit_ms = 3000;

// Queues every whole report of the text; gives where one begins that is not whole, or its end.
std::size_t queue_reports(string_view text, bool take_broken)
{
    std::size_t at = text.find(mark);
    while (at < text.size()) {
        const string_view report = behind(text, at);
        const std::size_t line_end = report.find('\n');
        if (line_end == string_view::npos)
            return take_broken ? text.size() : at;
        const string_view line = without_line_end(report.substr(0, line_end));
        const string_view body = behind(report, line_end + 1);
        kelo_sms message = {};
        found result = {next_report(body), true};
        if (line.starts_with(mark)) {
            const report_header header = cut_header(behind(line, sizeof mark - 1));
            result = header.quoted_time ? read_text_body(header, body, message)
                                        : read_pdu_body(body, message);
            if (!result.complete && !take_broken)
                return at;
            sms_queue_add(message);
        }
        at += line_end + 1 + result.used;
    }
    return text.size();
}

// Keeps what a read broke off, for the next one. Caller holds record_lock.
void hold_rest(string_view text)
{
    held.length = std::min(text.size(), sizeof held.text);
    std::memmove(held.text, text.data(), held.length);
}

event* check_report(gsm_mobile* rec, const char* report, bool more_may_come)
{
    if (rec == nullptr || report == nullptr)
        return nullptr;
    {
        const lock_scope hold(record_lock);
        raise_event(GSM_EVENT_SMS_RECEIVED);
    }
    sms_report_parse(rec, &::gsm_event, report);
    const string_view text = report;
    const std::size_t done = queue_reports(text, !more_may_come);
    if (done < text.size()) {
        const lock_scope hold(record_lock);
        held.since_ms = monotonic_ms();
        hold_rest(behind(text, done));
    }
    return &::gsm_event;
}

} // namespace

event* sms_check_read(gsm_mobile* rec, const char* report)
{
    return check_report(rec, report, true);
}

void sms_continue_report(const char* text)
{
    lock_scope hold(record_lock);
    if (held.length == 0)
        return;
    const string_view more = text;
    const std::size_t room = sizeof held.text - held.length;
    std::memcpy(held.text + held.length, more.data(), std::min(more.size(), room));
    const string_view whole = {held.text, held.length + std::min(more.size(), room)};
    // A report that begins in this read is queued with it, not here.
    const std::size_t next = held.length + std::min(more.find(mark), more.size());
    const string_view report = whole.substr(0, std::min(next, whole.size()));
    const bool last = next < whole.size() || more.size() >= room ||
                      monotonic_ms() - held.since_ms >= hold_limit_ms;
    const std::size_t done = queue_reports(report, last);
    hold_rest(behind(report, done));
}

bool sms_text_follows(string_view line, bool continued)
{
    char joined[1024];
    if (continued) {
        const lock_scope hold(record_lock);
        const string_view before = {held.text, held.length};
        if (before.find('\n') == string_view::npos) { // its header was broken off
            const std::size_t length = before.copy(joined, sizeof joined);
            line = {joined, length + line.copy(joined + length, sizeof joined - length)};
        } else if (line.empty()) {
            line = before.substr(0, before.find('\n'));
        }
    }
    const std::size_t at = line.find(mark);
    return at != string_view::npos && cut_header(behind(line, at + sizeof mark - 1)).quoted_time;
}

int sms_report_parse(gsm_mobile* rec, event* what, const char* report)
{
    char pdu[sizeof what->pdu];
    lock_scope hold(record_lock);
    const char* const comma = std::strchr(report, ',');
    if (comma == nullptr)
        return what->mode = mode_unknown;
    if (comma[1] != '\0' && comma[2] == '"') {
        what->mode = mode_text;
        parse_text_report(*what, report, comma);
        return mode_text;
    }
    what->mode = mode_pdu;
    const char* const line_end = std::strchr(report, '\n');
    if (line_end == nullptr)
        return mode_pdu;
    text_set(what->pdu, line_end + 1);
    cut_line_end(what->pdu);
    text_set(pdu, what->pdu);
    hold.release();
    libgsm_pdu_decode(rec, what, pdu);
    return mode_pdu;
}

int sms_log_received(event* what)
{
    char now[64] = "";
    const std::time_t seconds = std::time(nullptr);
    std::tm local = {};
    if (localtime_r(&seconds, &local) != nullptr)
        std::strftime(now, sizeof now, "%F %T", &local);
    const lock_scope hold(record_lock);
    diag_plain("-START-\nTime    : %s\nMode    : %s\nSender  : %s\nSMSC    : %s\nLength  : %d\n"
               "SMS Time: %s\nText    : %s\nPDU     : %s\n-END-\n\n",
               now, what->mode == mode_pdu ? "PDU" : "TEXT", what->sender, what->smsc, what->length,
               what->sms_time, what->text, what->pdu);
    return 0;
}

} // namespace kelo

using namespace kelo;

struct gsm_event* libgsm_check_sms(struct gsm_mobile* rec, const char* report)
{
    return check_report(rec, report, false);
}
