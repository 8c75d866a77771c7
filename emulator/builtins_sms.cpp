// SPDX-License-Identifier: MIT
// Messages: 3GPP TS 27.005 (commands and reports), 23.040 (the PDU of a delivered message).
#include "emulator/core.h"

#include <algorithm>
#include <cstring>

namespace kelo_emulator
{

namespace
{

constexpr int max_places = 1000;
constexpr std::size_t max_undelivered = 1000;
constexpr std::size_t max_sent = 10000;

constexpr const char* status_names[] = {"REC UNREAD", "REC READ", "STO UNSENT", "STO SENT"};

std::string octet(unsigned value)
{
    char digits[4];
    snprintf(digits, sizeof digits, "%02X", value & 0xFFu);
    return digits;
}

// Octets of a PDU behind its service centre field; -1 when the text is none.
int tpdu_length(const std::string& hex)
{
    if (!is_hex(hex))
        return -1;
    const int centre = static_cast<int>(std::stoul(hex.substr(0, 2), nullptr, 16));
    const int length = static_cast<int>(hex.size() / 2) - 1 - centre;
    return length > 0 ? length : -1;
}

std::string swapped_digits(std::string digits)
{
    if (digits.size() % 2)
        digits += 'F';
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        std::swap(digits[i], digits[i + 1]);
    return digits;
}

std::string address(const std::string& number, bool length_in_octets)
{
    const bool international = !number.empty() && number[0] == '+';
    const std::string digits = number.substr(international ? 1 : 0);
    const std::size_t length = length_in_octets ? (digits.size() + 1) / 2 + 1 : digits.size();
    return octet(static_cast<unsigned>(length)) + (international ? "91" : "81") +
           swapped_digits(digits);
}

// "24/05/17,09:30:12+08" in semi-octets; the sign of the zone is bit 3 of its octet.
std::string stamp_octets(const std::string& stamp)
{
    std::string digits;
    for (const char c : stamp)
        if (c >= '0' && c <= '9')
            digits += c;
    digits.resize(14, '0');
    std::string octets = swapped_digits(digits);
    if (stamp.find('-') != std::string::npos)
        octets[13] = "89ABCDEF"[(octets[13] - '0') & 7];
    return octets;
}

// Letters that have the same code in ASCII and in the GSM alphabet.
bool plain_gsm(const std::string& words)
{
    return std::all_of(words.begin(), words.end(), [](unsigned char c) {
        return c == '\n' || (c >= ' ' && c < 127 && !strchr("$@[\\]^_`{|}~", c));
    });
}

std::string pack_septets(const std::string& words)
{
    std::string hex;
    unsigned held = 0, bits = 0;
    for (const unsigned char c : words) {
        held |= static_cast<unsigned>(c) << bits;
        bits += 7;
        for (; bits >= 8; bits -= 8, held >>= 8)
            hex += octet(held);
    }
    return bits ? hex + octet(held) : hex;
}

// An SMS-DELIVER of one part (23.040, 9.2.2.1). Empty: too long.
std::string deliver_of_text(const std::string& centre, const std::string& sender,
                            const std::string& stamp, const std::string& words)
{
    const bool gsm = plain_gsm(words);
    const std::string ucs2 = gsm ? "" : ucs2_hex(words);
    const std::size_t length = gsm ? words.size() : ucs2.size() / 2;
    if (length > (gsm ? 160u : 140u))
        return "";
    return address(centre, true) + "04" + address(sender, false) + "00" + (gsm ? "00" : "08") +
           stamp_octets(stamp) + octet(static_cast<unsigned>(length)) +
           (gsm ? pack_septets(words) : ucs2);
}

std::string place_of(const std::string& memory, int index)
{
    return "\"" + memory + "\"," + std::to_string(index);
}

} // namespace

std::string modem_core::reading_memory() const
{
    return get("sms_storage", "ME");
}

std::string modem_core::arriving_memory() const
{
    return get("sms_arriving", reading_memory());
}

int modem_core::memory_size(const std::string& memory) const
{
    return std::min(get_number("sms_size_" + memory, get_number("sms_size", 255)), max_places);
}

int modem_core::memory_used(const std::string& memory) const
{
    return static_cast<int>(
        std::count_if(store.begin(), store.end(),
                      [&](const stored_message& other) { return other.memory == memory; }));
}

int modem_core::keep_message(stored_message message)
{
    if (memory_used(message.memory) >= memory_size(message.memory))
        return -1;
    message.index = get_number("sms_first", 0); // the lowest free place
    auto at = store.begin();
    for (; at != store.end(); ++at) {
        if (at->memory == message.memory && at->index > message.index)
            break;
        if (at->memory == message.memory)
            message.index = at->index + 1;
    }
    store.insert(at, message);
    return message.index;
}

void modem_core::arrive(stored_message message)
{
    message.memory = arriving_memory();
    const int place = keep_message(message);
    if (place >= 0) {
        if (session.cnmi_mt == 1)
            report("+CMTI: " + place_of(message.memory, place));
        return;
    }
    if (undelivered.size() < max_undelivered)
        undelivered.push_back(message);
    const std::string full = text(get("sms_full_report"));
    if (!full.empty())
        report(full);
}

// The network tries again what was refused.
void modem_core::place_freed()
{
    while (!undelivered.empty() &&
           memory_used(arriving_memory()) < memory_size(arriving_memory())) {
        const stored_message message = undelivered.front();
        undelivered.pop_front();
        arrive(message);
    }
}

std::string modem_core::store_pdu(const std::string& hex, int status)
{
    if (tpdu_length(hex) < 0)
        return "not a PDU: '" + hex + "'";
    return keep_message({arriving_memory(), 0, status, hex, "", "", ""}) < 0
               ? "the message store is full"
               : "";
}

std::string modem_core::deliver_pdu(const std::string& hex)
{
    const int length = tpdu_length(hex);
    if (length < 0)
        return "not a PDU: '" + hex + "'";
    if (session.cnmi_mt == 2 || session.cnmi_mt == 3) {
        if (session.text_mode)
            return "the host has set text mode and direct delivery; use `sms text`";
        report("+CMT: ," + std::to_string(length) + "\n" + hex);
        return "";
    }
    arrive({"", 0, 0, hex, "", "", ""});
    return "";
}

std::string modem_core::deliver_text(const std::string& sender, const std::string& words)
{
    const std::string stamp = get("stamp", "24/05/17,09:30:12+08");
    const std::string pdu = deliver_of_text(get("smsc", "+491710760000"), sender, stamp, words);
    if (pdu.empty())
        return "the text is too long for one message";
    if ((session.cnmi_mt == 2 || session.cnmi_mt == 3) && session.text_mode) {
        const bool ucs2 = session.charset == "UCS2";
        report("+CMT: \"" + (ucs2 ? ucs2_hex(sender) : sender) + "\",,\"" + stamp + "\"\n" +
               (ucs2 ? ucs2_hex(words) : words));
        return "";
    }
    if (session.cnmi_mt == 2 || session.cnmi_mt == 3)
        return deliver_pdu(pdu);
    arrive({"", 0, 0, pdu, sender, stamp, words});
    return "";
}

void modem_core::send_report(const std::string& hex)
{
    if (session.cnmi_ds == 1)
        report("+CDS: " + std::to_string(tpdu_length(hex)) + "\n" + hex);
    if (session.cnmi_ds != 2)
        return;
    const std::string memory = arriving_memory();
    const int place = keep_message({memory, 0, 0, hex, "", "", ""});
    if (place >= 0)
        report("+CDSI: " + place_of(memory, place));
}

// What a SUBMIT with TP-SRR asked for (23.040, 9.2.2.3).
void modem_core::report_delivery(const std::string& submit, int message_reference)
{
    constexpr unsigned long asks_for_report = 0x20;
    const auto octet_at = [&](std::size_t at) {
        return 2 * at + 2 > submit.size() ? 0 : std::stoul(submit.substr(2 * at, 2), nullptr, 16);
    };
    const std::size_t begin = octet_at(0) + 1;
    if ((octet_at(begin) & asks_for_report) == 0)
        return;
    const std::size_t address_at = 2 * (begin + 2);
    const std::size_t digits = (octet_at(begin + 2) + 1) / 2 * 2;
    if (submit.size() < address_at + 4 + digits)
        return;
    const std::string stamp = stamp_octets(get("stamp", "24/05/17,09:30:12+08"));
    const std::string hex = address(get("smsc", "+491710760000"), true) + "06" +
                            octet(static_cast<unsigned>(message_reference)) +
                            submit.substr(address_at, 4 + digits) + stamp + stamp +
                            get("report_status", "00");
    after(get_number("report_ms", 1000), [this, hex] { send_report(hex); });
}

// The body behind the prompt is complete, or was given up with ESC.
void modem_core::message_ready(const std::string& body, bool given_up)
{
    command_reply reply;
    if (given_up) {
        put_final(reply);
        return;
    }
    const bool pdu = !session.text_mode;
    sent_message sent{monotonic_clock::now(), pdu, session.target, body, -1};
    const int length = pdu ? tpdu_length(trim(body)) : 0;
    if (pdu && length != parse_number(session.target, 255))
        cms(reply, 304);
    else if (faults.cms_error >= 0)
        cms(reply, faults.cms_error);
    else if (!service())
        cms(reply, 331);
    if (reply.final_result == "OK") {
        sent.reference = reference;
        reply.lines = {"+CMGS: " + std::to_string(reference)};
        if (pdu)
            reply.then = [this, submit = trim(body), number = reference] {
                report_delivery(submit, number);
            };
        reference = (reference + 1) % 256;
    }
    if (sent_messages.size() < max_sent)
        sent_messages.push_back(sent);
    if (faults.cms_silent) {
        finish();
        return;
    }
    after(get_number("cmgs_ms", 300), [this, reply] { deliver("AT+CMGS", {reply}); });
}

namespace
{

using capture_list = std::vector<std::string>;

// True when the SIM lets messages through; else the error is in the reply.
bool sim_there(const modem_core& core, command_reply& reply)
{
    const int error = core.sim_error();
    if (error) // 27.005, 3.2.5: 310 no SIM ... 314 SIM busy
        cms(reply, 300 + error);
    return error == 0;
}

void cmgf_read(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.lines = {core.session.text_mode ? "+CMGF: 1" : "+CMGF: 0"};
}

void cmgf_test(modem_core&, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CMGF: (0,1)"};
}

void cmgf_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const long mode = parse_number(captures[0], 1);
    if (mode < 0)
        cms(reply, 302);
    else
        core.session.text_mode = mode == 1;
}

void cnmi_read(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CNMI: 2," + std::to_string(core.session.cnmi_mt) + ",0," +
                   std::to_string(core.session.cnmi_ds) + ",0"};
}

void cnmi_test(modem_core&, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CNMI: (0,1,2),(0,1,2,3),(0,2),(0,1,2),(0,1)"};
}

void cnmi_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    const long mt = values.size() > 1 ? parse_number(values[1], 3) : core.session.cnmi_mt;
    const long ds = values.size() > 3 ? parse_number(values[3], 2) : core.session.cnmi_ds;
    if (parse_number(values[0], 2) < 0 || mt < 0 || ds < 0) {
        cms(reply, 302);
        return;
    }
    core.session.cnmi_mt = static_cast<int>(mt);
    core.session.cnmi_ds = static_cast<int>(ds);
}

void csms_read(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CSMS: " + std::to_string(core.session.csms) + ",1,1,1"};
}

void csms_test(modem_core&, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CSMS: (0,1)"};
}

void csms_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const long service = parse_number(captures[0], 1);
    if (service < 0) {
        cms(reply, 303);
        return;
    }
    core.session.csms = static_cast<int>(service);
    reply.lines = {"+CSMS: 1,1,1"};
}

void cnma(modem_core& core, const capture_list&, command_reply& reply)
{
    if (core.session.csms == 0)
        cms(reply, 340);
}

void csca_read(modem_core& core, const capture_list&, command_reply& reply)
{
    if (sim_there(core, reply)) {
        const std::string centre = core.get("smsc", "+491710760000");
        reply.lines = {"+CSCA: \"" + (core.session.charset == "UCS2" ? ucs2_hex(centre) : centre) +
                       "\",145"};
    }
}

void csca_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    if (sim_there(core, reply))
        core.dialogue.variables["smsc"] = arguments(captures[0])[0];
}

std::string sizes(const modem_core& core, const std::string& memory)
{
    return std::to_string(core.memory_used(memory)) + "," +
           std::to_string(core.memory_size(memory));
}

void cpms_read(modem_core& core, const capture_list&, command_reply& reply)
{
    if (!sim_there(core, reply))
        return;
    const std::string reading = core.reading_memory();
    const std::string arriving = core.arriving_memory();
    const auto column = [&](const std::string& memory) {
        return "\"" + memory + "\"," + sizes(core, memory);
    };
    reply.lines = {"+CPMS: " + column(reading) + "," + column(reading) + "," + column(arriving)};
}

void cpms_test(modem_core&, const capture_list&, command_reply& reply)
{
    const std::string one = "(\"SM\",\"ME\")";
    reply.lines = {"+CPMS: " + one + "," + one + "," + one};
}

void cpms_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    if (!sim_there(core, reply))
        return;
    const std::vector<std::string> wanted = arguments(captures[0]);
    for (const std::string& memory : wanted)
        if (memory != "SM" && memory != "ME") {
            cms(reply, 302);
            return;
        }
    core.dialogue.variables["sms_arriving"] =
        wanted.size() > 2 ? wanted[2] : core.arriving_memory();
    core.dialogue.variables["sms_storage"] = wanted[0];
    const std::string reading = sizes(core, wanted[0]);
    reply.lines = {"+CPMS: " + reading + "," + reading + "," + sizes(core, core.arriving_memory())};
}

void cmgs(modem_core& core, const capture_list& captures, command_reply& reply)
{
    if (!sim_there(core, reply))
        return;
    const std::string target = arguments(captures[0])[0];
    if (target.empty() || (!core.session.text_mode && parse_number(target, 255) < 0)) {
        reply.final_result = "ERROR";
        return;
    }
    core.session.target = target;
    reply.input = command_reply::input_kind::message;
    reply.final_result.clear();
    reply.wait_ms = core.get_number("prompt_ms", 10);
}

// Head of a stored message behind "+CMGR: " or "+CMGL: <index>,".
std::string message_head(const modem_core& core, const stored_message& message)
{
    if (!core.session.text_mode)
        return std::to_string(message.status) + ",," + std::to_string(tpdu_length(message.pdu));
    const std::string sender =
        core.session.charset == "UCS2" ? ucs2_hex(message.sender) : message.sender;
    return "\"" + std::string(status_names[message.status]) + "\",\"" + sender + "\",,\"" +
           message.stamp + "\"";
}

std::string message_body(const modem_core& core, const stored_message& message)
{
    if (!core.session.text_mode)
        return message.pdu;
    return core.session.charset == "UCS2" ? ucs2_hex(message.text) : message.text;
}

// What came as a PDU is not decoded here, so text mode cannot show it.
bool can_show(const modem_core& core, const stored_message& message)
{
    return !core.session.text_mode || !message.sender.empty();
}

void cmgl(modem_core& core, const capture_list& captures, command_reply& reply)
{
    if (!sim_there(core, reply))
        return;
    const std::string wanted = unquote(captures[0]);
    for (stored_message& message : core.store) {
        const bool listed =
            message.memory == core.reading_memory() &&
            (wanted == "4" || wanted == "ALL" || wanted == std::to_string(message.status) ||
             wanted == status_names[message.status]);
        if (!listed || !can_show(core, message))
            continue;
        reply.lines.push_back("+CMGL: " + std::to_string(message.index) + "," +
                              message_head(core, message));
        reply.lines.push_back(message_body(core, message));
        if (message.status == 0)
            message.status = 1;
    }
}

void cmgl_test(modem_core&, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CMGL: (0-4)"};
}

void cmgr(modem_core& core, const capture_list& captures, command_reply& reply)
{
    if (!sim_there(core, reply))
        return;
    const long index = parse_number(captures[0], max_places);
    for (stored_message& message : core.store) {
        if (message.index != index || message.memory != core.reading_memory())
            continue;
        if (!can_show(core, message)) {
            cms(reply, 302);
            return;
        }
        reply.lines = {"+CMGR: " + message_head(core, message), message_body(core, message)};
        const std::string torn = core.get("sms_torn");
        std::string& body = reply.lines.back();
        if (!torn.empty())
            body.insert(body.size() / 4 * 2, "\r\n" + torn + "\r\n");
        if (message.status == 0)
            message.status = 1;
        return;
    }
    const int first = core.get_number("sms_first", 0);
    const bool is_place = index >= first && index < first + core.memory_size(core.reading_memory());
    if (!is_place || core.get("sms_empty", "321") != "ok")
        cms(reply, 321);
}

void cmgd(modem_core& core, const capture_list& captures, command_reply& reply)
{
    if (!sim_there(core, reply))
        return;
    const std::vector<std::string> values = arguments(captures[0]);
    const long index = parse_number(values[0], max_places);
    const long flag = values.size() > 1 ? parse_number(values[1], 4) : 0;
    if (index < 0 || flag < 0) {
        cms(reply, 321);
        return;
    }
    const auto gone = [&](const stored_message& message) {
        return message.memory == core.reading_memory() &&
               (flag == 4 || (flag == 0 ? message.index == index : message.status == 1));
    };
    core.store.erase(std::remove_if(core.store.begin(), core.store.end(), gone), core.store.end());
    reply.then = [&core] { core.place_freed(); };
}

void cmgd_test(modem_core& core, const capture_list&, command_reply& reply)
{
    const std::string kind = core.get("sms_list", "list");
    if (kind == "error") {
        reply.final_result = "ERROR";
        return;
    }
    const int first = core.get_number("sms_first", 0);
    std::string indexes;
    if (kind == "range")
        indexes = std::to_string(first) + "-" +
                  std::to_string(first + core.memory_size(core.reading_memory()) - 1);
    else
        for (const stored_message& message : core.store)
            if (message.memory == core.reading_memory())
                indexes += (indexes.empty() ? "" : ",") + std::to_string(message.index);
    reply.lines = {"+CMGD: (" + indexes + "),(0-4)"};
}

void accept(modem_core&, const capture_list&, command_reply&) {}

constexpr builtin_row table[] = {
    {"sms", "AT+CMGF?", cmgf_read}, {"sms", "AT+CMGF=?", cmgf_test}, {"sms", "AT+CMGF=*", cmgf_set},
    {"sms", "AT+CNMI?", cnmi_read}, {"sms", "AT+CNMI=?", cnmi_test}, {"sms", "AT+CNMI=*", cnmi_set},
    {"sms", "AT+CSMS?", csms_read}, {"sms", "AT+CSMS=?", csms_test}, {"sms", "AT+CSMS=*", csms_set},
    {"sms", "AT+CNMA*", cnma},      {"sms", "AT+CSCA?", csca_read},  {"sms", "AT+CSCA=*", csca_set},
    {"sms", "AT+CPMS?", cpms_read}, {"sms", "AT+CPMS=?", cpms_test}, {"sms", "AT+CPMS=*", cpms_set},
    {"sms", "AT+CMGS=*", cmgs},     {"sms", "AT+CMGL=?", cmgl_test}, {"sms", "AT+CMGL=*", cmgl},
    {"sms", "AT+CMGR=*", cmgr},     {"sms", "AT+CMGD=?", cmgd_test}, {"sms", "AT+CMGD=*", cmgd},
    {"sms", "AT+CSMP=*", accept},   {"sms", "AT+CSDH=*", accept},    {"sms", "AT+CMMS=*", accept},
};

} // namespace

builtin_table sms_builtins()
{
    return {table, std::size(table)};
}

} // namespace kelo_emulator
