// SPDX-License-Identifier: MIT
// The one table of orders, for the tool's standard input and for emulated_modem::order.
#include "emulator/core.h"

#include <cctype>
#include <cstdlib>
#include <nlohmann/json.hpp>

namespace kelo_emulator
{

namespace
{

using word_list = std::vector<std::string>;

// What an order gets: its words behind the name, and all of them as they were written.
struct order_request {
    modem_core& core;
    const word_list& words;
    const std::string& rest;
    std::string& answer;            // as text
    nlohmann::ordered_json& fields; // the same, as members of an object

    const std::string& word(std::size_t i) const
    {
        static const std::string none;
        return i < words.size() ? words[i] : none;
    }
    // The text from word `i` on, its blanks kept.
    std::string from(std::size_t i) const
    {
        std::size_t at = 0;
        for (; i > 0 && at != std::string::npos; --i) {
            at = rest.find(' ', at);
            at = at == std::string::npos ? at : rest.find_first_not_of(' ', at);
        }
        return at == std::string::npos ? "" : rest.substr(at);
    }
};

constexpr const char* bad = "?"; // answered with the usage of the order

struct order_row {
    const char* name;
    const char* usage;
    const char* help;
    std::string (*run)(const order_request& call);
};

constexpr long max_ms = 3600000;

bool ms_word(const order_request& call, std::size_t i, long fallback, long& ms)
{
    ms = call.word(i).empty() ? fallback : parse_number(call.word(i), max_ms);
    return ms >= 0;
}

std::string unhex(const std::string& hex)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

// "\r", "\n", "\t", "\xHH" and "\\" of an order line as bytes; everything else stands for itself.
std::string unescape(const std::string& text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            bytes += text[i];
            continue;
        }
        const char kind = text[++i];
        if (kind == 'x' && i + 2 < text.size() && is_hex(text.substr(i + 1, 2))) {
            bytes += unhex(text.substr(i + 1, 2));
            i += 2;
        } else {
            bytes += kind == 'r' ? '\r' : kind == 'n' ? '\n' : kind == 't' ? '\t' : kind;
        }
    }
    return bytes;
}

// --- lines ---

std::string order_report(const order_request& call)
{
    if (call.rest.empty())
        return bad;
    call.core.report(unescape(call.rest));
    return "";
}

std::string order_raw(const order_request& call)
{
    if (call.rest.empty())
        return bad;
    call.core.put(unescape(call.rest));
    return "";
}

std::string order_set(const order_request& call)
{
    if (call.words.empty())
        return bad;
    call.core.dialogue.variables[call.word(0)] = call.from(1);
    return "";
}

// --- misbehaviour ---

std::string order_silence(const order_request& call)
{
    fault_settings& faults = call.core.faults;
    if (call.rest == "on") {
        faults.silent = true;
    } else if (call.rest == "off") {
        faults.silent = false;
        faults.silent_patterns.clear();
    } else if (!call.rest.empty()) {
        faults.silent_patterns.push_back(call.rest);
    } else {
        return bad;
    }
    return "";
}

std::string order_late(const order_request& call)
{
    long ms = 0;
    if (call.words.empty() || (call.word(0) != "off" && !ms_word(call, 0, 0, ms)))
        return bad;
    call.core.faults.late_ms = static_cast<int>(ms);
    call.core.faults.late_pattern = call.words.size() > 1 ? call.from(1) : "*";
    return "";
}

std::string order_split(const order_request& call)
{
    long bytes = 0, ms = 0;
    if (call.word(0) != "off") {
        bytes = parse_number(call.word(0), 4096);
        if (bytes < 1 || !ms_word(call, 1, 20, ms))
            return bad;
    }
    call.core.faults.split_bytes = static_cast<std::size_t>(bytes);
    call.core.faults.split_ms = static_cast<int>(ms);
    return "";
}

std::string order_garbage(const order_request& call)
{
    const long count = call.words.empty() ? 64 : parse_number(call.word(0), 65536);
    if (count < 1)
        return bad;
    std::string bytes;
    static unsigned seed = 1; // the same bytes in each run, so that a failure can be seen again
    for (long i = 0; i < count; ++i) {
        seed = seed * 1103515245u + 12345u;
        bytes += static_cast<char>(seed >> 16);
    }
    call.core.put(bytes);
    return "";
}

std::string order_partial(const order_request& call)
{
    fault_settings& faults = call.core.faults;
    if (call.word(0) == "off") {
        faults.partial_pattern.clear();
        return "";
    }
    const long bytes = call.word(0) == "half" ? -1 : parse_number(call.word(0), 65536);
    if (call.words.size() < 2 || (bytes < 0 && call.word(0) != "half"))
        return bad;
    faults.partial_bytes = bytes;
    faults.partial_pattern = call.from(1);
    return "";
}

std::string order_reset(const order_request& call)
{
    long ms = 0;
    if (call.word(0) == "on") {
        if (call.words.size() < 2)
            return bad;
        call.core.faults.reset_pattern = call.from(1);
        return "";
    }
    if (!ms_word(call, 0, call.core.get_number("reset_ms", 1000), ms))
        return bad;
    if (!call.core.powered)
        return "the power is off";
    call.core.reset(static_cast<int>(ms));
    return "";
}

std::string order_node(const order_request& call)
{
    long ms = 0;
    if (call.rest == "off") {
        call.core.node_off();
        return "";
    }
    if (call.word(0) == "on" && call.words.size() < 3) {
        if (call.words.size() == 2 && call.core.pty.is_open())
            return "the node is there; `node off` first";
        if (call.core.away)
            return call.core.powered ? "the module restarts, which brings the node"
                                     : "the power is off";
        if (call.words.size() == 2)
            call.core.options.port = call.word(1);
        return call.core.node_on();
    }
    const bool moves = call.word(0) == "move";
    const bool known = moves || call.word(0) == "bounce";
    if (!known || (moves && call.words.size() < 2) || !ms_word(call, moves ? 2 : 1, 1000, ms))
        return bad;
    call.core.move_node(moves ? call.word(1) : call.core.options.port, static_cast<int>(ms));
    return "";
}

std::string order_hang(const order_request& call)
{
    if (!call.rest.empty() && call.rest != "soft")
        return bad;
    call.core.faults.hang = call.rest.empty() ? hang_kind::hard : hang_kind::soft;
    call.core.output.clear();
    return "";
}

std::string order_power(const order_request& call)
{
    modem_core& core = call.core;
    if (call.rest == "off" || call.rest == "on") {
        const bool on = call.rest == "on";
        if (core.powered == on)
            return "the power is " + call.rest + " already";
        if (on)
            return core.power_on();
        core.power_off();
        return "";
    }
    long ms = 0;
    if (!ms_word(call, call.word(0) == "cycle" ? 1 : 0, core.get_number("reset_ms", 1000), ms))
        return bad;
    core.power_cycle(static_cast<int>(ms));
    return "";
}

std::string order_wwan(const order_request& call)
{
    if (call.words.size() != 1)
        return bad;
    if (call.rest != "off")
        return call.core.follow_service(call.rest);
    call.core.leave_data_interface();
    return "";
}

std::string order_endless(const order_request& call)
{
    fault_settings& faults = call.core.faults;
    if (call.word(0) == "off") {
        faults.endless = false;
        return "";
    }
    if (call.word(0) != "on")
        return bad;
    const std::string text = unescape(call.from(1));
    faults.endless_text = text.empty() ? "$GPGSV,4,1,13,02,32,118,22*7F\r\n" : text;
    faults.endless = true;
    call.core.endless_at = 0;
    return "";
}

std::string order_overlap(const order_request& call)
{
    if (call.rest != "queue" && call.rest != "swallow")
        return bad;
    call.core.faults.swallow = call.rest == "swallow";
    return "";
}

// --- SIM, network ---

std::string pull_sim(modem_core& core)
{
    if (core.sim.state == sim_state::absent)
        return "there is no SIM";
    core.sim.state = sim_state::absent;
    if (core.session.simstat)
        core.report(core.get("sim_removed_report", "+QSIMSTAT: 1,0"));
    core.report_sequence("sim_pulled");
    core.update_registration();
    return "";
}

// Digits that no card had before, at the end of a number.
void renumber(modem_core& core, const char* name)
{
    std::string& number = core.dialogue.variables[name];
    const std::string end = std::to_string(1000 + ++core.cards % 9000);
    if (number.size() > end.size())
        number.replace(number.size() - end.size(), end.size(), end);
}

std::string put_sim(modem_core& core, bool other, const std::string& pin)
{
    if (core.sim.state != sim_state::absent)
        return "there is a SIM already";
    if (other) {
        core.sim = sim_card();
        core.sim.locked = !pin.empty();
        if (core.sim.locked)
            core.sim.pin = pin;
        renumber(core, "imsi");
        renumber(core, "iccid");
    }
    core.sim.state = sim_state::ready;
    core.relock_sim();
    if (core.session.simstat)
        core.report(core.get("sim_inserted_report", "+QSIMSTAT: 1,1"));
    core.sim_up();
    core.update_registration();
    return "";
}

std::string order_sim(const order_request& call)
{
    modem_core& core = call.core;
    sim_card& sim = core.sim;
    const std::string& what = call.word(0);
    long ms = 0;
    if (what == "pull")
        return pull_sim(core);
    if (what == "put" && (call.words.size() == 1 || call.word(1) == "new"))
        return put_sim(core, call.words.size() > 1, call.word(2));
    if (what == "ready") {
        sim.state = sim_state::ready;
        sim.locked = false;
        sim.pin_tries = 3;
    } else if (what == "pin") {
        sim.state = sim_state::pin;
        sim.locked = true;
        sim.pin_tries = 3;
        if (!call.word(1).empty())
            sim.pin = call.word(1);
    } else if (what == "puk") {
        sim.state = sim_state::puk;
        sim.locked = true;
        sim.pin_tries = 0;
        if (!call.word(1).empty())
            sim.puk = call.word(1);
    } else if (what == "tries" && call.words.size() == 2) {
        const long tries = parse_number(call.word(1), 3);
        if (tries < 0)
            return bad;
        sim.pin_tries = static_cast<int>(tries);
        if (tries == 0 && sim.state == sim_state::pin)
            sim.state = sim_state::puk;
    } else if (what == "absent") {
        sim.state = sim_state::absent;
    } else if (what == "failure") {
        sim.state = sim_state::failure;
    } else if (what == "busy" && ms_word(call, 1, 5000, ms)) {
        const bool unlocked = sim.state == sim_state::ready; // which it stays
        sim.state = sim_state::busy;
        core.after(static_cast<int>(ms), [&core, unlocked] {
            if (core.sim.state == sim_state::busy) {
                core.relock_sim();
                if (unlocked)
                    core.sim.state = sim_state::ready;
                core.update_registration();
            }
        });
    } else {
        return bad;
    }
    core.update_registration();
    return "";
}

std::string order_reg(const order_request& call)
{
    static const std::map<std::string, int> stats = {
        {"off", 0},     {"home", 1},    {"searching", 2}, {"denied", 3},
        {"unknown", 4}, {"roaming", 5}, {"emergency", 8},
    };
    static const std::map<std::string, int> names = {
        {"creg", creg}, {"cgreg", cgreg}, {"cereg", cereg}, {"c5greg", c5greg}};
    const auto stat = stats.find(call.word(0));
    const long number = parse_number(call.word(0), 10);
    const auto domain = names.find(call.word(1));
    if ((stat == stats.end() && number < 0) || (call.words.size() > 1 && domain == names.end()))
        return bad;
    for (int i = 0; i < domain_count; ++i)
        if (call.words.size() < 2 || domain->second == i)
            call.core.reg_target[i] = stat == stats.end() ? static_cast<int>(number) : stat->second;
    call.core.update_registration();
    return "";
}

std::string order_register(const order_request& call)
{
    char* end = nullptr;
    const double seconds = strtod(call.word(1).c_str(), &end);
    if (call.words.size() != 2 || call.word(0) != "after" || *end || !(seconds >= 0) ||
        seconds > 3600)
        return bad;
    modem_core& core = call.core;
    core.register_after = milliseconds(static_cast<long>(seconds * 1000));
    core.search(core.radio_on);
    core.update_registration();
    return "";
}

std::string order_cell(const order_request& call)
{
    for (const char* kind : {"GSM", "WCDMA", "LTE", "NR5G-SA", "NR5G-NSA"})
        if (call.rest == kind) {
            call.core.cell = kind;
            call.core.update_registration();
            return "";
        }
    return bad;
}

std::string order_csq(const order_request& call)
{
    const long rssi = parse_number(call.word(0), 199);
    const long ber = call.words.size() > 1 ? parse_number(call.word(1), 99) : 99;
    if (rssi < 0 || ber < 0)
        return bad;
    modem_core& core = call.core;
    core.dialogue.variables["rssi"] = std::to_string(rssi);
    core.dialogue.variables["ber"] = std::to_string(ber);
    if (core.session.unsolicited_csq)
        core.report("+QIND: \"csq\"," + std::to_string(rssi) + "," + std::to_string(ber));
    return "";
}

// --- messages, calls ---

std::string order_call(const order_request& call)
{
    if (call.rest == "off") {
        call.core.hang_up(true);
        return "";
    }
    if (call.words.size() != 1)
        return bad;
    call.core.ring(call.rest == "withheld" ? "" : call.rest);
    return "";
}

std::string order_sms(const order_request& call)
{
    const std::string& what = call.word(0);
    if (what == "pdu" && call.words.size() == 2)
        return call.core.deliver_pdu(call.word(1));
    if (what == "store" && (call.words.size() == 2 || call.words.size() == 3)) {
        const long status = call.words.size() == 3 ? parse_number(call.word(2), 3) : 0;
        return status < 0 ? bad : call.core.store_pdu(call.word(1), static_cast<int>(status));
    }
    if (what == "text" && call.words.size() > 2)
        return call.core.deliver_text(call.word(1), unescape(call.from(2)));
    if (what == "status" && call.words.size() == 2 && is_hex(call.word(1))) {
        call.core.send_report(call.word(1));
        return "";
    }
    return bad;
}

std::string order_messages(const order_request& call)
{
    for (const sent_message& one : call.core.sent_messages)
        call.answer += "sent " + std::to_string(one.reference) + " " + trim(one.body) + "\n";
    for (const stored_message& one : call.core.store)
        call.answer += "stored " + std::to_string(one.index) + " " + one.pdu + "\n";
    call.answer += "end of messages\n";

    nlohmann::ordered_json& sent = call.fields["sent"] = nlohmann::ordered_json::array();
    for (const sent_message& one : call.core.sent_messages)
        sent.push_back({{"reference", one.reference},
                        {"pdu", one.pdu},
                        {"target", bytes_as_text(one.target)},
                        {"body", bytes_as_text(one.body)}});
    nlohmann::ordered_json& stored = call.fields["stored"] = nlohmann::ordered_json::array();
    for (const stored_message& one : call.core.store)
        stored.push_back({{"memory", one.memory},
                          {"index", one.index},
                          {"status", one.status},
                          {"pdu", bytes_as_text(one.pdu)}});
    return "";
}

std::string order_cmgs(const order_request& call)
{
    fault_settings& faults = call.core.faults;
    const long error = call.word(0) == "error" ? parse_number(call.word(1), 9999) : -1;
    if (call.rest != "ok" && call.rest != "silent" && error < 0)
        return bad;
    faults.cms_error = static_cast<int>(error);
    faults.cms_silent = call.rest == "silent";
    return "";
}

// --- MQTT, GPS ---

std::string order_mqtt(const order_request& call)
{
    fault_settings& faults = call.core.faults;
    const std::string& what = call.word(0);
    const long number = parse_number(call.word(1), 255);
    if (call.rest == "ok") {
        faults.mqtt_open = faults.mqtt_result = faults.mqtt_refusal = 0;
        faults.mqtt_no_topic = false;
    } else if (what == "open" && (number >= 0 || call.word(1) == "-1")) {
        faults.mqtt_open = static_cast<int>(number);
    } else if (what == "fail" && number > 0) {
        faults.mqtt_result = static_cast<int>(number);
    } else if (what == "refuse" && number > 0) {
        faults.mqtt_refusal = static_cast<int>(number);
    } else if (call.rest == "no-topic") {
        faults.mqtt_no_topic = true;
    } else if (what == "message" && call.words.size() > 2) {
        call.core.report("+QMTRECV: 0,0,\"" + call.word(1) + "\",\"" + unescape(call.from(2)) +
                         "\"");
    } else if (what == "broker" && call.words.size() == 2) {
        call.core.dialogue.variables["mqtt_broker"] = call.word(1);
    } else if (what == "lost" && number > 0) {
        call.core.session.mqtt[0].state = 0;
        call.core.session.mqtt[0].broker.reset();
        call.core.report("+QMTSTAT: 0," + std::to_string(number));
    } else {
        return bad;
    }
    return "";
}

std::string order_gps(const order_request& call)
{
    if (call.rest != "fix" && call.rest != "nofix")
        return bad;
    call.core.gps_fix = call.rest == "fix";
    return "";
}

std::string order_state(const order_request& call)
{
    static const char* const sims[] = {"ready", "pin", "puk", "absent", "busy", "failure"};
    const modem_core& core = call.core;
    call.answer = std::string("node ") + (core.pty.is_open() ? "on" : "off") + ", radio " +
                  std::to_string(core.session.cfun) + ", sim " +
                  sims[static_cast<int>(core.sim.state)] + " (" +
                  std::to_string(core.sim.pin_tries) + " tries), cell " + core.cell +
                  ", registration " + std::to_string(core.reg_stat(creg)) + ", stored messages " +
                  std::to_string(core.store.size()) + ", radio switched off " +
                  std::to_string(core.radio_offs) + " times, restarts " +
                  std::to_string(core.restarts) + "\n";
    call.fields = {
        {"node", core.pty.is_open()},          {"power", core.powered},
        {"radio", core.session.cfun},          {"sim", sims[static_cast<int>(core.sim.state)]},
        {"pin_tries", core.sim.pin_tries},     {"cell", core.cell},
        {"registration", core.reg_stat(creg)}, {"stored_messages", core.store.size()},
        {"radio_offs", core.radio_offs},       {"restarts", core.restarts}};
    return "";
}

std::string order_help(const order_request& call);

constexpr order_row table[] = {
    {"report", "report TEXT", "an unsolicited line; \\n begins a further one", order_report},
    {"raw", "raw TEXT", "bytes as they are; \\r \\n \\t \\\\ \\xHH", order_raw},
    {"set", "set NAME VALUE", "change a variable of the dialogue", order_set},
    {"silence", "silence on|off|PATTERN", "no answer at all, or none to commands that match",
     order_silence},
    {"late", "late MS [PATTERN]|off", "answers come MS later", order_late},
    {"split", "split BYTES [MS]|off", "write in pieces, MS between them (20)", order_split},
    {"garbage", "garbage [COUNT]", "random bytes, once (64)", order_garbage},
    {"partial", "partial BYTES|half PATTERN|off", "the answer breaks off there", order_partial},
    {"reset", "reset [MS]|on PATTERN",
     "restart, now or on a command (PROMPT: behind the prompt, BODY: behind a message's body); "
     "node "
     "gone for MS",
     order_reset},
    {"node", "node off|on [PATH]|bounce [MS]|move PATH [MS]",
     "the port goes and comes back, at another path if given; the module stays up", order_node},
    {"hang", "hang [soft]",
     "nothing is answered or reported until `power`; soft: AT+CFUN=1,1 restarts it", order_hang},
    {"power", "power off|on|[cycle] [MS]",
     "its power is cut, until `on` or for MS; then it boots anew", order_power},
    {"wwan", "wwan NAME|off",
     "the interface goes down with the service, and /tmp/NAME.no-service stands while none is "
     "there",
     order_wwan},
    {"endless", "endless on [TEXT]|off", "output without end, as fast as the port takes it",
     order_endless},
    {"overlap", "overlap queue|swallow", "a command written while another one runs", order_overlap},
    {"sim", "sim ready|pin [CODE]|puk [CODE]|absent|failure|busy [MS]|tries N|pull|put [new [PIN]]",
     "state of the SIM, tries left of its PIN; pull and put bring their reports, new is another "
     "card",
     order_sim},
    {"reg", "reg off|home|searching|denied|unknown|roaming|emergency|N [creg|cgreg|cereg|c5greg]",
     "registration, all domains or one", order_reg},
    {"register", "register after SECONDS",
     "from each time that the radio goes on; it searches meanwhile", order_register},
    {"cell", "cell GSM|WCDMA|LTE|NR5G-SA|NR5G-NSA", "technology of the serving cell", order_cell},
    {"csq", "csq RSSI [BER]", "signal quality as AT+CSQ prints it", order_csq},
    {"call", "call NUMBER|withheld|off", "rings until answered, hung up or off", order_call},
    {"sms", "sms pdu HEX|text NUMBER TEXT|status HEX|store HEX [STAT]",
     "a message or status report comes in; one lies in the storage, unread unless STAT says more",
     order_sms},
    {"messages", "messages",
     "print those that were sent, with their references (-1: refused), and stored", order_messages},
    {"cmgs", "cmgs ok|error N|silent", "result of the messages that the host sends", order_cmgs},
    {"mqtt",
     "mqtt ok|open R|fail R|refuse C|no-topic|message TOPIC TEXT|lost N|broker HOST:PORT|broker "
     "none",
     "results of +QMTOPEN, +QMTCONN, +QMTSUB; a message; +QMTSTAT of client 0; the real broker",
     order_mqtt},
    {"gps", "gps fix|nofix", "whether AT+QGPSLOC has a position", order_gps},
    {"state", "state", "print the state", order_state},
    {"help", "help", "print this table", order_help},
};

std::string order_help(const order_request& call)
{
    for (const order_row& order : table) {
        call.answer += std::string(order.usage) + "\n        " + order.help + "\n";
        call.fields["orders"].push_back({{"usage", order.usage}, {"help", order.help}});
    }
    return "";
}

} // namespace

std::string run_order(modem_core& core, const std::string& text, std::string& answer,
                      nlohmann::ordered_json& fields)
{
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return "";
    const std::size_t end = text.find(' ', first);
    const std::string name = text.substr(first, end == std::string::npos ? end : end - first);
    const std::size_t start = end == std::string::npos ? end : text.find_first_not_of(' ', end);
    const std::string rest = start == std::string::npos ? "" : text.substr(start);
    word_list words;
    for (const std::string& word : split(rest, ' '))
        if (!word.empty())
            words.push_back(word);
    for (const order_row& order : table) {
        if (name != order.name)
            continue;
        const std::string error = order.run({core, words, rest, answer, fields});
        return error == bad ? std::string("usage: ") + order.usage : error;
    }
    return "no order '" + name + "'; `help` lists them";
}

} // namespace kelo_emulator
