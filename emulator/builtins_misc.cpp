// SPDX-License-Identifier: MIT
// Calls (3GPP TS 27.007, 6, 7.6; V.250) and the RAM files of Quectel modules (+QFUPL).
#include "emulator/core.h"

namespace kelo_emulator
{

void modem_core::ring(const std::string& number)
{
    session.call = {true, false, number, session.call.serial + 1};
    ring_again(session.call.serial);
}

void modem_core::ring_again(unsigned serial)
{
    if (!session.call.active || session.call.answered || session.call.serial != serial)
        return;
    std::string words = session.crc ? "+CRING: VOICE" : "RING";
    report(words);
    const std::string& number = session.call.number;
    if (session.clip && number.empty())
        report("+CLIP: \"\",128,,,,2");
    else if (session.clip)
        report("+CLIP: \"" + (session.charset == "UCS2" ? ucs2_hex(number) : number) + "\"," +
               (number[0] == '+' ? "145" : "129") + ",,,,0");
    after(get_number("ring_ms", 5000), [this, serial] { ring_again(serial); });
}

void modem_core::hang_up(bool by_peer)
{
    if (session.call.active && by_peer)
        report("NO CARRIER");
    session.call.active = false;
}

void modem_core::file_ready()
{
    // XOR of all 16-bit words, the first byte of a pair high
    unsigned sum = 0;
    for (std::size_t i = 0; i < session.body.size(); ++i)
        sum ^= static_cast<unsigned>(static_cast<unsigned char>(session.body[i]))
               << (i % 2 ? 0 : 8);
    char digits[8];
    snprintf(digits, sizeof digits, "%x", sum);
    files[session.target].swap(session.body);
    session.body.clear();
    command_reply reply;
    reply.lines = {"+QFUPL: " + std::to_string(session.file_size) + "," + digits};
    deliver("AT+QFUPL", {reply});
}

namespace
{

using capture_list = std::vector<std::string>;

constexpr long max_file = 256 * 1024;

void clip_read(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.lines = {core.session.clip ? "+CLIP: 1,1" : "+CLIP: 0,1"};
}

void clip_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const long on = parse_number(captures[0], 1);
    if (on < 0) {
        cme(reply, 50);
        return;
    }
    core.session.clip = on == 1;
    reply.wait_ms = core.get_number("clip_ms", 0); // a query of the network on some
}

void crc_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const long on = parse_number(captures[0], 1);
    if (on < 0)
        cme(reply, 50);
    else
        core.session.crc = on == 1;
}

void answer_call(modem_core& core, const capture_list&, command_reply& reply)
{
    if (!core.session.call.active)
        reply.final_result = "NO CARRIER";
    core.session.call.answered = true;
}

void end_call(modem_core& core, const capture_list&, command_reply&)
{
    core.hang_up(false);
}

void dial(modem_core& core, const capture_list& captures, command_reply& reply)
{
    if (!core.service() || captures[0].empty()) {
        reply.final_result = "NO CARRIER";
        return;
    }
    core.session.call = {true, true, captures[0], core.session.call.serial + 1};
}

void qfupl(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    const long size = values.size() > 1 ? parse_number(values[1], max_file) : -1;
    const long seconds = values.size() > 2 ? parse_number(values[2], 65535) : 5;
    if (size <= 0 || values[0].empty() || seconds <= 0) {
        cme(reply, size > 0 ? 425 : 423);
        return;
    }
    if (core.files.count(values[0])) {
        cme(reply, 407);
        return;
    }
    core.session.target = values[0];
    core.session.file_size = static_cast<std::size_t>(size);
    reply.input = command_reply::input_kind::file;
    core.session.opening_file = true;
    reply.final_result.clear();
    const unsigned upload = ++core.session.upload;
    core.after(static_cast<int>(seconds) * 1000, [&core, upload] {
        if (core.session.input != command_reply::input_kind::file || core.session.upload != upload)
            return;
        core.session.input = command_reply::input_kind::none;
        core.session.body.clear();
        command_reply late;
        cme(late, 421);
        core.put_final(late);
    });
}

void qfdel(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::string name = unquote(captures[0]);
    if (name == "*" || name == "RAM:*")
        core.files.clear();
    else if (core.files.erase(name) == 0)
        cme(reply, 405);
}

// The TLS contexts, which name files.
void qsslcfg(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    const long context = values.size() > 1 ? parse_number(values[1], ssl_contexts - 1) : -1;
    if (context < 0 || values[0].empty() || values.size() > 3) {
        reply.final_result = "ERROR";
        return;
    }
    std::string& value = core.session.ssl[context][values[0]];
    if (values.size() > 2)
        value = values[2];
    else
        reply.lines = {"+QSSLCFG: \"" + values[0] + "\"," + values[1] + "," + value};
}

void qflst(modem_core& core, const capture_list&, command_reply& reply)
{
    for (const auto& [name, bytes] : core.files)
        reply.lines.push_back("+QFLST: \"" + name + "\"," + std::to_string(bytes.size()));
}

constexpr builtin_row table[] = {
    {"calls", "AT+CLIP?", clip_read},
    {"calls", "AT+CLIP=*", clip_set},
    {"calls", "AT+CRC=*", crc_set},
    {"calls", "ATA", answer_call},
    {"calls", "ATH*", end_call},
    {"calls", "AT+CHUP", end_call},
    {"calls", "ATD*", dial},
    {"files", "AT+QFUPL=*", qfupl},
    {"files", "AT+QFDEL=*", qfdel},
    {"files", "AT+QFLST*", qflst},
    {"files", "AT+QSSLCFG=*", qsslcfg},
};

} // namespace

builtin_table misc_builtins()
{
    return {table, std::size(table)};
}

} // namespace kelo_emulator
