// Reports of received messages, 3GPP TS 27.005 3.4.1, into the queue: each of a read by itself,
// with nothing of its neighbours.
#include "sms/sms.h"

#include "support/scan.h"
#include "support/sleeps.h"
#include "support/text.h"

#include <algorithm>
#include <cstdio>

namespace kelo
{

namespace
{

using std::string_view;

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

// The length of the text, where the header tells it; 0 also for what is no number.
std::optional<std::size_t> announced_length(const report_header& header)
{
    if (header.count <= col_length)
        return std::nullopt;
    char digits[16];
    set_field(digits, header.columns[col_length]);
    int length = 0;
    scan(digits, dec(length));
    return static_cast<std::size_t>(std::max(length, 0));
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
    const auto length = announced_length(header);
    string_view text;
    found result;
    if (length && body.size() > *length && behind(body, *length).starts_with("\r\n")) {
        // The header tells the length: no line of the text can pass for a report.
        text = body.substr(0, *length);
        result.used = *length + next_report(behind(body, *length));
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
    const string_view pdu = body.substr(0, std::min(end, sizeof message.pdu - 1));
    const pdu_message read = sms_read_pdu(pdu);
    message = read.message;
    message.mode = mode_pdu;
    set_field(message.pdu, pdu);
    return {next_report(body), read.complete || end != string_view::npos};
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

void sms_continue_report(const char* text, std::int64_t now_ms)
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
    const bool last =
        next < whole.size() || more.size() >= room || now_ms - held.since_ms >= hold_limit_ms;
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

} // namespace kelo

using namespace kelo;

struct gsm_event* libgsm_check_sms(struct gsm_mobile* rec, const char* report)
{
    return check_report(rec, report, false);
}
