// SPDX-License-Identifier: MIT
// Registration, operator, signal and serving cell: 3GPP TS 27.007, 7.2, 7.3, 8.5, 10.1.20,
// 10.1.22, 10.1.47; +QENG, +QNWINFO and +QINDCFG are Quectel's.
#include "emulator/core.h"

namespace kelo_emulator
{

namespace
{

struct domain_name {
    const char* name;
    const char* prefix;
};

constexpr domain_name domains[domain_count] = {
    {"creg", "+CREG: "},
    {"cgreg", "+CGREG: "},
    {"cereg", "+CEREG: "},
    {"c5greg", "+C5GREG: "},
};

struct cell_kind {
    const char* name;
    int act; // as in +CREG and +COPS
};

constexpr cell_kind cells[] = {
    {"GSM", 0}, {"WCDMA", 2}, {"LTE", 7}, {"NR5G-SA", 11}, {"NR5G-NSA", 13},
};

int act_of(const std::string& cell)
{
    for (const cell_kind& kind : cells)
        if (cell == kind.name)
            return kind.act;
    return 7;
}

} // namespace

void modem_core::search(monotonic_clock::time_point from)
{
    radio_on = from;
    const auto left =
        std::chrono::ceil<milliseconds>(from + register_after - monotonic_clock::now());
    if (left.count() > 0)
        after(static_cast<int>(left.count()), [this] { update_registration(); });
}

bool modem_core::searching() const
{
    return monotonic_clock::now() < radio_on + register_after;
}

int modem_core::reg_stat(int domain) const
{
    const bool identified = sim_error() == 0 || sim.state == sim_state::busy;
    if (session.cfun != 1 || detached || !identified)
        return 0;
    const bool old_radio = cell == "GSM" || cell == "WCDMA";
    if ((domain == cereg && old_radio) || (domain == c5greg && cell != "NR5G-SA"))
        return 0;
    const int target = reg_target[domain];
    return (target == 1 || target == 5) && searching() ? 2 : target;
}

bool modem_core::service() const
{
    for (int domain = 0; domain < domain_count; ++domain)
        if (reg_stat(domain) == 1 || reg_stat(domain) == 5)
            return true;
    return false;
}

std::string modem_core::reg_columns(int domain, int n, int stat) const
{
    std::string columns = std::to_string(stat);
    if (n < 2 || (stat != 1 && stat != 5))
        return columns;
    columns += ",\"" + get("tac_" + cell, get("tac", "5A1C")) + "\",\"" +
               get("ci_" + cell, get("ci", "7C4B10D")) + "\"," + std::to_string(act_of(cell));
    const std::string rac = get("rac");
    if (domain == cgreg && act_of(cell) < 7 && !rac.empty())
        columns += ",\"" + rac + "\"";
    return columns;
}

// Reports what has changed since the last report or read, in the form that n asks for.
void modem_core::update_registration()
{
    for (int domain = 0; domain < domain_count; ++domain) {
        const int n = session.reg_n[domain];
        const int stat = reg_stat(domain);
        const std::string columns = reg_columns(domain, 2, stat);
        const bool changed_now =
            stat != reg_seen[domain] || (n == 2 && columns != columns_seen[domain]);
        reg_seen[domain] = stat;
        columns_seen[domain] = columns;
        if (n > 0 && changed_now)
            report(domains[domain].prefix + reg_columns(domain, n, stat));
    }
}

namespace
{

using capture_list = std::vector<std::string>;

template <int domain> void reg_read(modem_core& core, const capture_list&, command_reply& reply)
{
    const int n = core.session.reg_n[domain];
    reply.lines = {domains[domain].prefix + std::to_string(n) + "," +
                   core.reg_columns(domain, n, core.reg_stat(domain))};
}

template <int domain> void reg_test(modem_core&, const capture_list&, command_reply& reply)
{
    reply.lines = {std::string(domains[domain].prefix) + "(0-2)"};
}

template <int domain>
void reg_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const long n = parse_number(captures[0], 2);
    if (n < 0)
        cme(reply, 50);
    else
        core.session.reg_n[domain] = static_cast<int>(n);
    core.columns_seen[domain] = core.reg_columns(domain, 2, core.reg_stat(domain));
}

std::string operator_name(const modem_core& core, int format)
{
    if (format == 2)
        return core.get("operator_numeric", "26201");
    const std::string name =
        core.get(format == 0 ? "operator_long" : "operator_short", "Telekom.de");
    return core.session.charset == "UCS2" ? ucs2_hex(name) : name;
}

void cops_read(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.wait_ms = core.get_number("cops_ms", 0);
    if (core.detached || !core.service()) {
        reply.lines = {core.detached ? "+COPS: 2" : "+COPS: 0"};
        return;
    }
    const int format = core.session.cops_format;
    reply.lines = {"+COPS: " + core.get("cops_mode", "0") + "," + std::to_string(format) + ",\"" +
                   operator_name(core, format) + "\"," + std::to_string(act_of(core.cell))};
}

void cops_test(modem_core& core, const capture_list&, command_reply& reply)
{
    if (const int error = core.sim_error()) {
        cme(reply, error);
        return;
    }
    reply.wait_ms = core.get_number("cops_scan_ms", 3000);
    reply.lines = {"+COPS: (2,\"" + operator_name(core, 0) + "\",\"" + operator_name(core, 1) +
                   "\",\"" + operator_name(core, 2) + "\"," + std::to_string(act_of(core.cell)) +
                   "),,(0-4),(0-2)"};
}

void cops_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    const long mode = parse_number(values[0], 4);
    if (mode == 3) {
        const long format = values.size() > 1 ? parse_number(values[1], 2) : -1;
        if (format < 0)
            cme(reply, 50);
        else
            core.session.cops_format = static_cast<int>(format);
        return;
    }
    if (mode < 0 || (mode == 1 && values.size() < 3)) {
        cme(reply, 50);
        return;
    }
    core.detached = mode == 2;
    core.dialogue.variables["cops_mode"] = mode == 1 ? "1" : "0";
    reply.then = [&core] { core.update_registration(); };
}

void csq(modem_core& core, const capture_list&, command_reply& reply)
{
    const bool heard = core.session.cfun == 1;
    reply.lines = {"+CSQ: " + (heard ? core.get("rssi", "24") : "99") + "," +
                   (heard ? core.get("ber", "99") : "99")};
}

// The lines of the cell stand in the dialogue file, `|` between them; ${service} is NOCONN or
// CONNECT there.
void cell_lines(modem_core& core, const std::string& variable, const char* without,
                command_reply& reply)
{
    const std::string lines = core.service() ? core.get(variable + core.cell) : "";
    if (lines.empty()) {
        reply.lines = {without};
        return;
    }
    core.dialogue.variables["service"] = core.session.context ? "CONNECT" : "NOCONN";
    for (const std::string& line : split(lines, '|'))
        reply.lines.push_back(core.text(line));
}

void qeng(modem_core& core, const capture_list&, command_reply& reply)
{
    const bool denied = core.session.cfun == 1 && core.reg_target[creg] == 3;
    cell_lines(core, "qeng_",
               denied ? "+QENG: \"servingcell\",\"LIMSRV\"" : "+QENG: \"servingcell\",\"SEARCH\"",
               reply);
}

void qnwinfo(modem_core& core, const capture_list&, command_reply& reply)
{
    cell_lines(core, "qnwinfo_", "+QNWINFO: No Service", reply);
}

void context_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    if (!core.service())
        cme(reply, 30);
    else
        core.session.context = captures[0].empty() || captures[0][0] != '0';
}

void qindcfg(modem_core& core, const capture_list& captures, command_reply&)
{
    core.session.unsolicited_csq = captures[0][0] == '1';
}

constexpr builtin_row table[] = {
    {"network", "AT+CREG?", reg_read<creg>},     {"network", "AT+CREG=?", reg_test<creg>},
    {"network", "AT+CREG=*", reg_set<creg>},     {"network", "AT+CGREG?", reg_read<cgreg>},
    {"network", "AT+CGREG=?", reg_test<cgreg>},  {"network", "AT+CGREG=*", reg_set<cgreg>},
    {"cereg", "AT+CEREG?", reg_read<cereg>},     {"cereg", "AT+CEREG=?", reg_test<cereg>},
    {"cereg", "AT+CEREG=*", reg_set<cereg>},     {"c5greg", "AT+C5GREG?", reg_read<c5greg>},
    {"c5greg", "AT+C5GREG=?", reg_test<c5greg>}, {"c5greg", "AT+C5GREG=*", reg_set<c5greg>},
    {"network", "AT+COPS?", cops_read},          {"network", "AT+COPS=?", cops_test},
    {"network", "AT+COPS=*", cops_set},          {"network", "AT+CSQ", csq},
    {"network", "AT+CGACT=*", context_set},      {"qeng", "AT+QENG=\"servingcell\"", qeng},
    {"qnwinfo", "AT+QNWINFO", qnwinfo},          {"qindcfg", "AT+QINDCFG=\"csq\",*", qindcfg},
};

} // namespace

builtin_table network_builtins()
{
    return {table, std::size(table)};
}

} // namespace kelo_emulator
