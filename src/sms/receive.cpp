// SPDX-License-Identifier: MIT
// Whole reports of messages, 3GPP TS 27.005 3.4.1, into what hosts take: the queue of kelo/sms.h,
// the whole messages of kelo/messages.h, reports of delivery, and word of the storage.
#include "sms/report_lines.h"

#include "core/family.h"
#include "sms/codec/digest.h"
#include "support/diag.h"
#include "support/sleeps.h"
#include "support/text.h"

#include <cstdio>

namespace kelo
{

namespace
{

using std::string_view;

// Columns of a text mode report.
enum column { col_number, col_time = 2, col_smsc = 7 };
enum delivery_column { col_reference = 1, col_recipient, col_sent = 4, col_discharged, col_status };

// "24/05/17,09:30:12+08"; what reads otherwise stays as it is.
struct stamp {
    char text[32] = {};
    char sign = 0; // of the zone, 0: there is none
    int quarters = 0;
};
stamp read_stamp(string_view column)
{
    stamp read;
    char sign = 0;
    int quarters = 0;
    int t[6] = {};
    set_field(read.text, column);
    // NOLINTNEXTLINE(cert-err34-c): two digits each, and how many there are is what counts
    if (std::sscanf(read.text, "%2d/%2d/%2d,%2d:%2d:%2d%c%2d", &t[0], &t[1], &t[2], &t[3], &t[4],
                    &t[5], &sign, &quarters) < 6)
        return read;
    std::snprintf(read.text, sizeof read.text, "20%02d-%02d-%02d %02d:%02d:%02d", t[0], t[1], t[2],
                  t[3], t[4], t[5]);
    if (sign == '+' || sign == '-') {
        read.sign = sign;
        read.quarters = sign == '-' ? -quarters : quarters;
    }
    return read;
}

part_time time_of(string_view column)
{
    const stamp read = read_stamp(column);
    part_time time;
    set_field(time.text, read.text);
    time.zone = read.quarters;
    return time;
}

bool is_utf8(string_view text)
{
    while (!text.empty()) {
        const std::size_t bytes = utf8_read(text).bytes;
        if (bytes == 0)
            return false;
        text.remove_prefix(bytes);
    }
    return true;
}

// As far as there is room for whole characters. What is no UTF-8 is ISO 8859-1.
utf16_text to_utf16(string_view text)
{
    utf16_text out;
    const bool utf8 = is_utf8(text);
    while (!text.empty()) {
        const auto [c, bytes] = utf8 ? utf8_read(text) : utf8_character{octet(text[0]), 1};
        if (!out.add(utf16_of(c).all()))
            break;
        text.remove_prefix(bytes);
    }
    return out;
}

// Over all of them.
std::uint64_t digest_of(std::initializer_list<string_view> texts)
{
    std::uint64_t digest = digest_begin;
    for (const string_view text : texts) {
        for (const char c : text)
            digest = digest_with(digest, static_cast<octet>(c));
        digest = digest_with(digest, 0x100); // no octet: the end of one of them
    }
    return digest;
}

message_part part_of_text(const report_header& header, string_view body)
{
    message_part part;
    utf16_to_utf8(to_utf16(header.columns[col_number]).all(), part.sender);
    if (header.count > col_smsc)
        set_field(part.smsc, header.columns[col_smsc]);
    part.time = time_of(header.columns[col_time]);
    part.content = to_utf16(body);
    part.digest = digest_of({header.columns[col_number], header.columns[col_time], body});
    return part;
}

void take_part_of_report(const message_part& part)
{
    sms_message_part(part, {}, false, monotonic_ms());
}

void take_text(const report_header& header, string_view body)
{
    kelo_sms message = {};
    message.mode = KELO_SMS_MODE_TEXT;
    message.coding = KELO_SMS_CODING_MODEM;
    set_field(message.sender, header.columns[col_number]);
    const stamp time = read_stamp(header.columns[col_time]);
    text_set(message.time, time.text);
    text_set(message.zone, "unknow");
    if (time.sign != 0)
        std::snprintf(message.zone, sizeof message.zone, "GMT%c%d", time.sign,
                      std::abs(time.quarters) / 4);
    if (header.count > col_smsc)
        set_field(message.smsc, header.columns[col_smsc]);
    set_field(message.text, body);
    message.length = static_cast<int>(std::strlen(message.text));
    sms_queue_add(message);
    if (sms_messages_wanted())
        take_part_of_report(part_of_text(header, body));
}

void take_pdu(string_view pdu)
{
    kelo_sms message = sms_read_pdu(pdu).message;
    message.mode = KELO_SMS_MODE_PDU;
    set_field(message.pdu, pdu);
    sms_queue_add(message);
    if (pdu.empty())
        return;
    sms_storage_reported(pdu);
    if (!sms_messages_wanted())
        return;
    const auto part = sms_read_deliver(pdu);
    take_part_of_report(part ? *part : sms_unreadable_part(pdu));
}

// Columns of a status report in text mode.
std::optional<status_report> delivery_of_text(const report_header& header)
{
    if (header.count <= col_status)
        return std::nullopt;
    status_report report;
    report.reference = number_in(header.columns[col_reference]);
    set_field(report.recipient, header.columns[col_recipient]);
    report.sent = time_of(header.columns[col_sent]);
    report.discharged = time_of(header.columns[col_discharged]);
    report.status = number_in(header.columns[col_status]);
    return report;
}

// Without the answer of a modem that waits for one, it hands over no message any more.
bool wants_answer()
{
    return acknowledges_sms() && (word_get(sms_reports_wanted) != 0 || sms_storage_mode() != 0);
}

void take_delivery(const whole_report& report, const report_header& header, string_view pdu)
{
    const auto read = pdu.empty() ? delivery_of_text(header) : sms_read_status_report(pdu);
    if (read)
        sms_report_came(*read);
    else
        diag_plain("a status report can't be read: %.*s %.*s\n",
                   static_cast<int>(report.line.size()), report.line.data(),
                   static_cast<int>(pdu.size()), pdu.data());
    if (report.ended && wants_answer())
        libgsm_send_at("AT+CNMA");
}

} // namespace

message_part sms_unreadable_part(string_view pdu)
{
    constexpr std::size_t room = sizeof(utf16_text::items) / 2;
    char text[room + 1];
    const int width = static_cast<int>(std::min<std::size_t>(pdu.size(), room - 20));
    std::snprintf(text, sizeof text, "[can't be read: %.*s]", width, pdu.data());
    message_part part;
    part.content = to_utf16(text);
    part.digest = digest_of({pdu});
    return part;
}

void sms_report_is_whole(const whole_report& report)
{
    if (report.kind == report_kind::notice) {
        sms_storage_hear(report.line);
        return;
    }
    const std::size_t behind_mark = report.line.find(':') + 1;
    const report_header header = cut_header(behind(report.line, behind_mark));
    const string_view line = ahead(report.body, report.body.find_first_of("\r\n"));
    const string_view pdu = ahead(line, sizeof kelo_sms::pdu - 1);
    if (report.kind == report_kind::delivery)
        take_delivery(report, header, pdu);
    else if (report.text)
        take_text(header, report.body);
    else
        take_pdu(pdu);
}

event* sms_report_event(gsm_mobile* rec, const char* report)
{
    if (rec == nullptr || report == nullptr)
        return nullptr;
    {
        const lock_scope<record_lock> hold;
        raise_event(GSM_EVENT_SMS_RECEIVED);
    }
    sms_report_parse(rec, &::gsm_event, report);
    return &::gsm_event;
}

namespace
{

// A function of its own: its room is asked of the stack for a report alone.
[[gnu::noinline]] void read_again(std::string_view report)
{
    char bytes[report_lines::room];
    report_lines lines(bytes, sms_report_is_whole);
    lines.take(report);
    lines.end();
}

} // namespace

} // namespace kelo

using namespace kelo;

struct gsm_event* libgsm_check_sms(struct gsm_mobile* rec, const char* report)
{
    event* const raised = sms_report_event(rec, report);
    if (raised != nullptr)
        read_again(report);
    return raised;
}
