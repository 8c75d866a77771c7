// SPDX-License-Identifier: MIT
// Built-ins of every module: echo, error form, radio off and on, character set; and the helpers
// that the other built-ins share.
#include "emulator/core.h"

#include <cctype>

namespace kelo_emulator
{

namespace
{

using capture_list = std::vector<std::string>;

void nothing(modem_core&, const capture_list&, command_reply&) {}

void echo_on(modem_core& core, const capture_list&, command_reply&)
{
    core.session.echo = true;
}

void echo_off(modem_core& core, const capture_list&, command_reply&)
{
    core.session.echo = false;
}

// Back to the stored settings; the radio and what is registered stay.
void defaults(modem_core& core, const capture_list&, command_reply&)
{
    session_state fresh;
    core.session.echo = core.get("echo", "1") != "0";
    core.session.cmee = core.get_number("cmee", 1);
    for (int& n : core.session.reg_n)
        n = 0;
    core.session.cops_format = fresh.cops_format;
    core.session.charset = core.get("charset", "GSM");
    core.session.text_mode = core.get("text_mode", "0") != "0";
    core.session.cnmi_mt = core.get_number("cnmi_mt", 1);
    core.session.cnmi_ds = 0;
    core.session.csms = 0;
    core.session.clip = core.session.crc = false;
}

void cmee_read(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CMEE: " + std::to_string(core.session.cmee)};
}

void cmee_test(modem_core&, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CMEE: (0-2)"};
}

void cmee_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const long mode = parse_number(captures[0], 2);
    if (mode < 0)
        cme(reply, 50);
    else
        core.session.cmee = static_cast<int>(mode);
}

void cfun_read(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CFUN: " + std::to_string(core.session.cfun)};
}

void cfun_test(modem_core&, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CFUN: (0,1,4),(0,1)"};
}

void cfun_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    const long mode = parse_number(values[0], 4);
    const bool restart = values.size() > 1 && values[1] == "1";
    if (mode != 0 && mode != 1 && mode != 4) {
        cme(reply, 50);
        return;
    }
    if (restart) {
        // A moment later, so that the OK gets out before the port goes.
        reply.then = [&core] {
            core.after(100, [&core] { core.reset(core.get_number("reset_ms", 1000)); });
        };
        return;
    }
    const int before = core.session.cfun;
    core.radio_offs += before == 1 && mode != 1;
    core.session.cfun = static_cast<int>(mode);
    reply.wait_ms = core.get_number("cfun_ms", 100);
    reply.then = [&core, before, mode] {
        if (mode == 0 && before != 0) {
            core.relock_sim(); // the card loses its power, and with it the PIN
            if (core.sim.state != sim_state::absent)
                core.report_sequence("sim_off");
        }
        if (mode != 0 && before == 0)
            core.sim_up();
        if (mode == 1 && before != 1)
            core.search(monotonic_clock::now());
        core.update_registration();
    };
}

void cscs_read(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CSCS: \"" + core.session.charset + "\""};
}

void cscs_test(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.lines = {"+CSCS: " + core.get("charsets", "(\"GSM\",\"IRA\",\"UCS2\")")};
}

void cscs_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::string wanted = unquote(captures[0]);
    const std::string known = core.get("charsets", "(\"GSM\",\"IRA\",\"UCS2\")");
    if (wanted.empty() || known.find("\"" + wanted + "\"") == std::string::npos)
        cme(reply, 50);
    else
        core.session.charset = wanted;
}

constexpr builtin_row table[] = {
    {nullptr, "AT", nothing},          {nullptr, "ATE", echo_on},
    {nullptr, "ATE0", echo_off},       {nullptr, "ATE1", echo_on},
    {nullptr, "ATZ*", defaults},       {nullptr, "AT&F*", defaults},
    {nullptr, "AT&*", nothing},        {nullptr, "ATV1", nothing},
    {nullptr, "ATQ0", nothing},        {nullptr, "ATX*", nothing},
    {nullptr, "ATS*=*", nothing},      {nullptr, "AT+CMEE?", cmee_read},
    {nullptr, "AT+CMEE=?", cmee_test}, {nullptr, "AT+CMEE=*", cmee_set},
    {nullptr, "AT+CFUN?", cfun_read},  {nullptr, "AT+CFUN=?", cfun_test},
    {nullptr, "AT+CFUN=*", cfun_set},  {nullptr, "AT+CSCS?", cscs_read},
    {nullptr, "AT+CSCS=?", cscs_test}, {nullptr, "AT+CSCS=*", cscs_set},
};

} // namespace

builtin_table basic_builtins()
{
    return {table, std::size(table)};
}

const std::vector<builtin_table>& all_builtins()
{
    static const std::vector<builtin_table> all = {basic_builtins(),   sim_builtins(),
                                                   network_builtins(), sms_builtins(),
                                                   misc_builtins(),    data_builtins()};
    return all;
}

std::set<std::string> builtin_uses()
{
    std::set<std::string> uses;
    for (const builtin_table& part : all_builtins())
        for (std::size_t i = 0; i < part.count; ++i)
            if (part.first[i].use)
                uses.insert(part.first[i].use);
    return uses;
}

void cme(command_reply& reply, int number)
{
    reply.lines.clear();
    reply.final_result = "+CME ERROR: " + std::to_string(number);
}

void cms(command_reply& reply, int number)
{
    reply.lines.clear();
    reply.final_result = "+CMS ERROR: " + std::to_string(number);
}

bool is_hex(const std::string& text)
{
    for (const unsigned char c : text)
        if (!std::isxdigit(c))
            return false;
    return !text.empty() && text.size() % 2 == 0;
}

std::string unquote(const std::string& text)
{
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
        return text.substr(1, text.size() - 2);
    return text;
}

std::vector<std::string> arguments(const std::string& text)
{
    std::vector<std::string> values(1);
    bool quoted = false;
    for (const char c : text) {
        quoted ^= c == '"';
        if (c == ',' && !quoted)
            values.emplace_back();
        else
            values.back() += c;
    }
    for (std::string& value : values)
        value = unquote(trim(value));
    return values;
}

std::string ucs2_hex(const std::string& text)
{
    // UTF-8 as far as the basic plane goes; what is malformed becomes U+FFFD.
    std::string hex;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i++]);
        unsigned value = lead;
        int more = lead < 0x80 ? 0 : lead >> 5 == 6 ? 1 : lead >> 4 == 14 ? 2 : -1;
        if (more > 0)
            value = lead & (more == 1 ? 0x1Fu : 0x0Fu);
        for (; more > 0 && i < text.size() && (text[i] & 0xC0) == 0x80; --more)
            value = value << 6 | (static_cast<unsigned char>(text[i++]) & 0x3Fu);
        if (more != 0)
            value = 0xFFFD;
        char digits[8];
        snprintf(digits, sizeof digits, "%04X", value & 0xFFFFu);
        hex += digits;
    }
    return hex;
}

} // namespace kelo_emulator
