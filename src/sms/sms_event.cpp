// SPDX-License-Identifier: MIT
// A received message into gsm_event, and what is printed of it. A report names its kind by itself:
// 3GPP TS 27.005 3.4.1.
#include "sms/sms.h"

#include "support/diag.h"
#include "support/owned.h"
#include "support/scan.h"
#include "support/text.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace kelo
{

namespace
{

using std::string_view;

constexpr char rule[] = "================================================================";

long_sms_info event_numbers = {}; // what gsm_event's long_sms points at; guarded by record_lock

int width_of(string_view text)
{
    return static_cast<int>(text.size());
}

void show_fields(const pdu_fields& f, text_block& block)
{
    using hex = text_block::hex;
    if ((f.first_octet & has_header_bit) != 0)
        block.put("User Data Header Indicator = 1\n");
    block.put("SMSC Length = ", f.smsc_length);
    if (f.smsc_length != 0)
        block.put("\nSMSC Type-of-address = ", hex{f.smsc_type},
                  "\nSMSC Number = ", text_of(f.smsc_number));
    block.put("\nPDU First Octet = ", hex{f.first_octet},
              "\nSender number length = ", f.sender_length);
    if (f.sender_length != 0)
        block.put("\nSender Type-of-address = ", hex{f.sender_type},
                  "\nSender Number = ", text_of(f.sender_number));
    block.put("\nTP-PID = ", hex{f.tp_pid}, "\nTP-DCS = ", hex{f.tp_dcs},
              "\nTimestamp = ", text_of(f.timestamp), "\nUser data length = ", f.ud_length,
              "\nUser data = ", text_of(f.user_data), "\n");
}

void show_element(const udh_element& e, text_block& block)
{
    block.add("%s\nID     : %d    \n", rule, e.id);
    block.add("Info   : (%.*s)  \n", width_of(e.info), e.info.data());
    block.add("IDIn   : 0x%02x\n", e.idin);
    block.add("Meaning: (The IDIn 0x%02x is %s)  \n", e.idin,
              e.meaning != nullptr ? e.meaning : "Reserved for future use");
    block.add("IEIDLn : %d    \n", e.ieidln);
    block.add("IEDn   : (%.*s)  \n%s\n\n", width_of(e.iedn), e.iedn.data(), rule);
}

// What an element says of the parts, into `numbers`.
void read_element(const udh_element& e, long_sms_info& numbers, text_block& block)
{
    show_element(e, block);
    const char* const width = e.idin == udh_element::concat_8bit ? "8bit" : "16bit";
    const auto concat = sms_concat(e);
    if (concat) {
        numbers = {1, concat->reference, concat->total, concat->number};
        block.add("The long sms flag 0x%x , total %d , now is %d\n", numbers.flag, numbers.total,
                  numbers.now);
    } else if (e.is_concat()) {
        block.add("The %s flag long sms user data (%.*s) is too short\n", width, width_of(e.iedn),
                  e.iedn.data());
    } else {
        block.add("The User Data Header (%02x%02x%.*s) Info (%.*s)ignore\n", e.idin, e.ieidln,
                  width_of(e.iedn), e.iedn.data(), width_of(e.info), e.info.data());
    }
}

// Caller holds record_lock.
void long_sms_release(event& what)
{
    if (what.long_sms != &event_numbers)
        std::free(what.long_sms);
    what.long_sms = nullptr;
}

int sms_handle_header(event& what, const pdu_fields& fields, text_block& block)
{
    long_sms_info numbers = {1, 0, 0, 0};
    auto walk =
        fields.udh_chain == nullptr ? sms_open_header(text_of(fields.user_data)) : std::nullopt;
    if (walk) {
        while (sms_parse_element(*walk))
            read_element(walk->element, numbers, block);
        if (!walk->rest.empty())
            block.add("The User Data Header (%.*s) ends early\n", width_of(walk->rest),
                      walk->rest.data());
    }
    const lock_scope<record_lock> hold;
    long_sms_release(what);
    what.long_sms = &what == &::gsm_event ? &event_numbers
                                          : static_cast<long_sms_info*>(memory_for(sizeof numbers));
    if (what.long_sms != nullptr)
        *what.long_sms = numbers;
    return walk ? 0 : -1;
}

void show_text(const event_text& text, text_block& block)
{
    if (text.coding == KELO_SMS_CODING_LATIN1)
        block.add("User data 8bit = %.*s\n", static_cast<int>(text.bytes.count),
                  reinterpret_cast<const char*>(text.bytes.items));
    else
        block.put_cut("User data 8bit = \n");
}

// Caller holds record_lock.
void set_text(event& what, const event_text& text, int ud_length)
{
    what.coding = text.coding;
    what.length = text.length;
    if (text.coding == KELO_SMS_CODING_LATIN1) {
        text_clear(what.text);
        std::memcpy(what.text, text.bytes.items,
                    std::min(text.bytes.count, static_cast<std::size_t>(text.length)));
    } else if (ud_length == 0) {
        text_clear(what.text);
    } else {
        const int made = sms_get_str(text.bytes.items, text.length, what.text, sizeof what.text);
        if (made > 0)
            what.length = made;
    }
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

void read_zone(event& what)
{
    char* const plus = std::strchr(what.sms_time, '+');
    if (plus == nullptr) {
        text_set(what.time_zone, "unknow");
        return;
    }
    int quarters = 0;
    scan(plus + 1, dec(quarters));
    std::snprintf(what.time_zone, sizeof what.time_zone, "GMT+%d", quarters / 4);
    std::memset(plus, 0, static_cast<std::size_t>(std::end(what.sms_time) - plus));
}

// Caller holds record_lock.
void parse_text_report(event& what, string_view report, std::size_t comma)
{
    const auto field = [&](auto& to, std::size_t begin, std::size_t end) {
        set_field(to, behind(ahead(report, end), begin));
    };
    const std::size_t sender = report.find('"') + 1; // the mode says that there is one
    const std::size_t sender_end = report.find('"', sender);
    field(what.sender, sender, comma >= sender ? std::min(sender_end, comma) : sender_end);

    const std::size_t time = report.find('"', comma) + 1;
    const std::size_t time_end = std::min(report.find('"', time), report.size());
    field(what.sms_time, time, time_end);
    read_zone(what);

    const std::size_t line_end = report.find('\n');
    if (line_end != string_view::npos) {
        const std::size_t smsc = report.find('"', time_end + 1);
        if (smsc != string_view::npos)
            field(what.smsc, smsc + 1, std::min(report.find('"', smsc + 1), line_end));
        set_field(what.text, behind(report, line_end + 1));
        cut_line_end(what.text);
    }
    text_clear(what.pdu);
    what.length = static_cast<int>(std::strlen(what.text));
}

} // namespace

int sms_report_parse(gsm_mobile* rec, event* what, const char* report)
{
    char pdu[sizeof what->pdu];
    lock_scope<record_lock> hold;
    const char* const comma = std::strchr(report, ',');
    if (comma == nullptr)
        return what->mode = KELO_SMS_MODE_UNKNOWN;
    if (comma[1] != '\0' && comma[2] == '"') {
        what->mode = KELO_SMS_MODE_TEXT;
        parse_text_report(*what, report, static_cast<std::size_t>(comma - report));
        return KELO_SMS_MODE_TEXT;
    }
    what->mode = KELO_SMS_MODE_PDU;
    const char* const line_end = std::strchr(report, '\n');
    if (line_end == nullptr)
        return KELO_SMS_MODE_PDU;
    text_set(what->pdu, line_end + 1);
    cut_line_end(what->pdu);
    text_set(pdu, what->pdu);
    hold.release();
    libgsm_pdu_decode(rec, what, pdu);
    return KELO_SMS_MODE_PDU;
}

int sms_log_received(event* what)
{
    char now[64] = "";
    const std::time_t seconds = std::time(nullptr);
    std::tm local = {};
    if (localtime_r(&seconds, &local) != nullptr)
        std::strftime(now, sizeof now, "%F %T", &local);
    const lock_scope<record_lock> hold;
    diag_plain("-START-\nTime    : %s\nMode    : %s\nSender  : %s\nSMSC    : %s\nLength  : %d\n"
               "SMS Time: %s\nText    : %s\nPDU     : %s\n-END-\n\n",
               now, what->mode == KELO_SMS_MODE_PDU ? "PDU" : "TEXT", what->sender, what->smsc,
               what->length, what->sms_time, what->text, what->pdu);
    return 0;
}

} // namespace kelo

using namespace kelo;

int corvel_handle_user_data_header(struct gsm_event* what, struct pdu_fields* fields)
{
    if (what == nullptr || fields == nullptr)
        return -1;
    text_block block;
    const int result = sms_handle_header(*what, *fields, block);
    block.print();
    return result;
}

int corvel_mobile_sms_gsm7bit_to_8bit(struct gsm_event* what, unsigned char* octets, char* out,
                                      int n, int u)
{
    constexpr int most_octets = 320;
    if (what == nullptr || octets == nullptr || out == nullptr || n < 0 || n > most_octets)
        return -1;
    const unpacked_text septets = gsm7_unpack({octets, static_cast<std::size_t>(n)});
    const septet_text text =
        gsm7_read(gsm7_behind(septets.all(), static_cast<std::size_t>(std::max(u, 0))));
    std::memcpy(text.ucs2 ? static_cast<void*>(octets) : out, text.bytes.items, text.bytes.count);
    const lock_scope<record_lock> hold;
    what->coding = text.ucs2 ? KELO_SMS_CODING_GSM7 : KELO_SMS_CODING_LATIN1;
    if (text.ucs2)
        what->length = static_cast<int>(text.bytes.count);
    return 0;
}

int libgsm_pdu_decode(struct gsm_mobile*, struct gsm_event* what, const char* pdu)
{
    if (what == nullptr || pdu == nullptr)
        return -1;
    const auto [fault, fields] = gsm_parse_pdu_fields(pdu);
    if (fault == pdu_fault::too_short)
        diag_plain("PDU too short:%s\n", pdu);
    else if (fault == pdu_fault::long_smsc)
        diag_plain("smsc number is too long");
    else if (fault == pdu_fault::long_sender)
        diag_plain("Sender number is too long");
    if (fault != pdu_fault::none)
        return -1;
    text_block block; // all that the message prints, in one piece
    show_fields(fields, block);
    const std::size_t header = header_octets(fields);
    const bool stopped = header > fields.ud_length; // the fields behind keep what they hold
    if (header != 0 && !stopped)
        sms_handle_header(*what, fields, block);
    const event_text text = stopped ? event_text() : sms_event_text(fields);
    if (!stopped)
        show_text(text, block);
    lock_scope<record_lock> hold;
    text_widen(what->smsc, fields.smsc_number);
    text_widen(what->sender, fields.sender_number);
    what->length = fields.ud_length;
    if (header == 0)
        long_sms_release(*what);
    if (!stopped) {
        set_text(*what, text, fields.ud_length);
        const sms_time time = gsm_format_sms_time(fields);
        text_widen(what->sms_time, time.time);
        text_widen(what->time_zone, time.zone);
    }
    hold.release();
    block.print();
    return 0;
}
