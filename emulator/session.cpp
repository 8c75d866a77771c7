// SPDX-License-Identifier: MIT
// Command lines in, answers out, and the faults that are put in between.
#include "emulator/core.h"

#include <cctype>
#include <cstring>
#include <utility>

namespace kelo_emulator
{

namespace
{

constexpr std::size_t max_line = 2048; // modules refuse lines beyond 400 to 2000 characters
constexpr std::size_t max_body = 4096;
constexpr std::size_t max_waiting = 8;

constexpr char ctrl_z = 0x1A;
constexpr char escape = 0x1B;

struct cme_word {
    int number;
    const char* words;
};

// 3GPP TS 27.007, 9.2
constexpr cme_word cme_words[] = {
    {0, "phone failure"},
    {3, "operation not allowed"},
    {4, "operation not supported"},
    {5, "PH-SIM PIN required"},
    {10, "SIM not inserted"},
    {11, "SIM PIN required"},
    {12, "SIM PUK required"},
    {13, "SIM failure"},
    {14, "SIM busy"},
    {15, "SIM wrong"},
    {16, "incorrect password"},
    {20, "memory full"},
    {21, "invalid index"},
    {30, "no network service"},
    {31, "network timeout"},
    {50, "incorrect parameters"},
    {100, "unknown"},
    {103, "illegal MS"},
    {106, "illegal ME"},
    {107, "GPRS services not allowed"},
    {504, "Session is ongoing"},
    {505, "Session not active"},
    {516, "Not fixed now"},
};

// `AT+CMGF=0;+CNMI=2,2,0,0,0` -> AT+CMGF=0, AT+CNMI=2,2,0,0,0. `ATE1V1` -> ATE1, ATV1. An extended
// command ends at a semicolon outside quotes; a basic one is a letter, with `&` ahead of it or
// not, and the digits behind it (V.250, 5.3.1, 5.4).
std::vector<std::string> commands_of_line(const std::string& line)
{
    std::vector<std::string> commands;
    const auto digit = [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; };
    std::size_t at = 2; // behind AT
    while (at < line.size()) {
        const char first = line[at];
        if (first == ' ' || first == ';') {
            ++at;
            continue;
        }
        std::size_t end = at + 1;
        const char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(first)));
        const bool extended = strchr("+^#$*%", first) || letter == 'D';
        if (extended) {
            bool quoted = false;
            for (end = at; end < line.size() && (quoted || line[end] != ';'); ++end)
                quoted ^= line[end] == '"';
        } else {
            if (first == '&' && end < line.size())
                ++end;
            while (end < line.size() && (digit(line[end]) || strchr("=?", line[end])))
                ++end;
        }
        commands.push_back("AT" + line.substr(at, end - at));
        at = end;
    }
    if (commands.empty())
        commands.push_back("AT");
    return commands;
}

bool any_matches(const std::vector<std::string>& patterns, const std::string& text)
{
    for (const std::string& pattern : patterns)
        if (pattern_matches(pattern, text))
            return true;
    return false;
}

} // namespace

// The host's bytes. A restart in their middle drops the rest, as the node they were written to is
// gone.
void modem_core::receive(const std::string& bytes)
{
    const unsigned before = restarts;
    for (const char c : bytes) {
        // The LF of the host's CR LF is on its way before the answer: no part of a file.
        if (std::exchange(session.after_cr, false) && c == '\n')
            continue;
        if (session.opening_file)
            continue;
        if (session.input == command_reply::input_kind::none)
            receive_command_byte(c);
        else
            receive_body_byte(c);
        if (restarts != before)
            return;
    }
}

void modem_core::receive_command_byte(char c)
{
    if (c == '\n') // the second half of the host's line end draws neither echo nor answer
        return;
    if (session.echo && !faults.silent)
        put(std::string(1, c));
    if (c == '\r') {
        std::string line;
        line.swap(session.line);
        const bool too_long = session.line_too_long;
        session.line_too_long = false;
        session.after_cr = true;
        note(speaker::host, line + "\r");
        note_host_line(line);
        if (too_long && !faults.silent)
            put("\r\nERROR\r\n");
        else if (!too_long)
            submit(line);
    } else if (c == '\b') {
        if (!session.line.empty())
            session.line.pop_back();
    } else if (static_cast<unsigned char>(c) < ' ') {
        return; // control characters are no part of a command line
    } else if (session.line.size() < max_line) {
        session.line += c;
    } else {
        session.line_too_long = true;
    }
}

void modem_core::receive_body_byte(char c)
{
    if (session.input == command_reply::input_kind::file) {
        session.body += c;
        if (session.body.size() >= session.file_size) {
            session.input = command_reply::input_kind::none;
            note(speaker::host, session.body);
            file_ready();
        }
        return;
    }
    if (session.echo && !faults.silent && c != escape)
        put(std::string(1, c));
    if (c == ctrl_z || c == escape) {
        std::string body;
        body.swap(session.body);
        session.input = command_reply::input_kind::none;
        note(speaker::host, body + c);
        if (resets_on("BODY"))
            return;
        if (!faults.silent && faults.hang == hang_kind::none)
            message_ready(body, c == escape);
        else
            finish();
    } else if (c == '\r') {
        session.body += '\n';
        if (!faults.silent)
            put("\r\n> ");
    } else if (c != '\n' && session.body.size() < max_body) {
        session.body += c;
    }
}

void modem_core::submit(const std::string& line)
{
    // V.250, 5.2.1: whatever stands ahead of AT is ignored, and so is a line without it.
    std::size_t start = line.find("AT");
    start = std::min(start, line.find("at"));
    if (start == std::string::npos || faults.silent)
        return;
    const std::string command = line.substr(start);
    if (hangs(command))
        return;
    if (!session.running)
        execute(command);
    else if (!faults.swallow && session.waiting.size() < max_waiting)
        session.waiting.push_back(command);
}

bool modem_core::resets_on(const std::string& line)
{
    if (faults.reset_pattern.empty() || !pattern_matches(faults.reset_pattern, line))
        return false;
    faults.reset_pattern.clear();
    reset(get_number("reset_ms", 1000));
    return true;
}

void modem_core::execute(const std::string& line)
{
    if (resets_on(line))
        return;
    if (any_matches(faults.silent_patterns, line))
        return;

    std::vector<command_reply> replies;
    int wait = pattern_matches(faults.late_pattern, line) ? faults.late_ms : 0;
    for (const std::string& command : commands_of_line(line)) {
        replies.push_back(run(command));
        wait += replies.back().wait_ms;
        if (replies.back().final_result != "OK") // the first that fails ends the line
            break;
    }
    session.running = true;
    if (wait > 0)
        after(wait, [this, line, replies] { deliver(line, replies); });
    else
        deliver(line, replies);
}

command_reply modem_core::run(const std::string& command)
{
    command_reply reply;
    std::vector<std::string> captures;
    for (const dialogue_rule& rule : dialogue.rules) {
        captures.clear();
        if (!pattern_matches(rule.pattern, command, &captures))
            continue;
        const int missing = rule.needs.empty() ? 0 : sim_error();
        const bool only_locked = missing == 11 || missing == 12;
        if (missing && !(rule.needs == "card" && only_locked)) {
            cme(reply, missing);
            return reply;
        }
        for (const variable_change& set : rule.assignments)
            dialogue.variables[set.name] = expand(set.value, dialogue.variables, captures);
        for (const std::string& line : rule.lines)
            reply.lines.push_back(expand(line, dialogue.variables, captures));
        for (const later_report& later : rule.reports)
            reply.reports.push_back(
                {later.after_ms, expand(later.text, dialogue.variables, captures)});
        reply.final_result = rule.final_result;
        reply.wait_ms = rule.wait_ms;
        return reply;
    }
    for (const builtin_table& table : all_builtins())
        for (std::size_t i = 0; i < table.count; ++i) {
            const builtin_row& builtin = table.first[i];
            captures.clear();
            if ((builtin.use && !dialogue.uses.count(builtin.use)) ||
                !pattern_matches(builtin.pattern, command, &captures))
                continue;
            builtin.run(*this, captures, reply);
            return reply;
        }
    reply.final_result = get("unknown_command", "ERROR");
    return reply;
}

// The final result of the line is that of the last command; the others of a joined line bring
// their lines, their reports and what they set off.
void modem_core::deliver(const std::string& line, const std::vector<command_reply>& replies)
{
    session.opening_file = false;
    std::string answer;
    for (const command_reply& reply : replies) {
        for (std::size_t i = 0; i < reply.lines.size(); ++i)
            answer += (i ? "" : "\r\n") + reply.lines[i] + "\r\n";
    }
    if (!faults.partial_pattern.empty() && pattern_matches(faults.partial_pattern, line)) {
        answer += "\r\n" + render(replies.back().final_result) + "\r\n";
        const std::size_t length = faults.partial_bytes >= 0
                                       ? static_cast<std::size_t>(faults.partial_bytes)
                                       : answer.size() / 2;
        put(answer.substr(0, length));
        finish();
        return;
    }
    put(answer);
    command_reply last = replies.back();
    for (std::size_t i = replies.size() - 1; i-- > 0;) {
        last.reports.insert(last.reports.begin(), replies[i].reports.begin(),
                            replies[i].reports.end());
        if (replies[i].then)
            last.then = [first = replies[i].then, second = last.then] {
                first();
                if (second)
                    second();
            };
    }
    if (last.input == command_reply::input_kind::none) {
        put_final(last);
        return;
    }
    put(last.input == command_reply::input_kind::message ? "\r\n> " : "\r\nCONNECT\r\n");
    session.input = last.input;
    session.body.clear();
    if (last.input == command_reply::input_kind::message)
        resets_on("PROMPT");
}

void modem_core::put_final(const command_reply& reply)
{
    if (!reply.final_result.empty())
        put("\r\n" + render(reply.final_result) + "\r\n");
    const unsigned before = restarts;
    if (reply.then)
        reply.then();
    int at = 0;
    for (const later_report& later : reply.reports) {
        at += later.after_ms;
        if (at > 0)
            after(at, [this, words = later.text] { report(words); });
        else
            report(later.text);
    }
    if (restarts == before)
        finish();
}

void modem_core::finish()
{
    session.running = false;
    if (session.waiting.empty() || session.input != command_reply::input_kind::none)
        return;
    const std::string line = session.waiting.front();
    session.waiting.pop_front();
    execute(line);
}

std::string modem_core::render(const std::string& final_result) const
{
    constexpr const char* prefix = "+CME ERROR: ";
    if (final_result.rfind(prefix, 0) != 0)
        return final_result;
    if (session.cmee == 0)
        return "ERROR";
    if (session.cmee == 2)
        for (const cme_word& row : cme_words)
            if (final_result == prefix + std::to_string(row.number))
                return std::string(prefix) + row.words;
    return final_result;
}

void modem_core::report(const std::string& text)
{
    std::string bytes = "\r\n";
    for (const std::string& line : split(text, '\n'))
        bytes += line + "\r\n";
    put(bytes);
}

void modem_core::report_sequence(const std::string& variable)
{
    const std::string sequence = get(variable);
    if (sequence.empty())
        return;
    int at = 0;
    for (const std::string& line : split(sequence, '|')) {
        at += get_number("report_gap_ms", 100);
        after(at, [this, words = text(line)] { report(words); });
    }
}

void modem_core::fresh_session()
{
    const unsigned calls = session.call.serial;
    session = session_state();
    session.call.serial = calls + 1;
    session.echo = get("echo", "1") != "0";
    session.cmee = get_number("cmee", 1);
    session.cnmi_mt = get_number("cnmi_mt", 1);
    session.charset = get("charset", "GSM");
    session.text_mode = get("text_mode", "0") != "0";
}

// A module that hangs still takes what is written, and the only line that can help is a restart.
bool modem_core::hangs(const std::string& line)
{
    if (faults.hang == hang_kind::none)
        return false;
    if (faults.hang == hang_kind::soft && pattern_matches("AT+CFUN=1,1", line))
        power_cycle(get_number("reset_ms", 1000));
    return true;
}

void modem_core::power_off()
{
    faults.hang = hang_kind::none;
    powered = false;
    go_down();
}

void modem_core::power_cycle(int away_ms)
{
    power_off();
    powered = true;
    after(away_ms, [this] { come_up(); });
}

std::string modem_core::power_on()
{
    powered = true;
    return come_up();
}

// Enumerated anew, the port can get another number.
void modem_core::move_node(const std::string& path, int away_ms)
{
    node_off();
    options.port = path;
    after(away_ms, [this] {
        if (!away)
            node_on();
    });
}

void modem_core::reset(int away_ms)
{
    go_down();
    after(away_ms, [this] { come_up(); });
}

void modem_core::go_down()
{
    ++restarts;
    away = true;
    timers.clear();
    node_off();
    fresh_session();
    files.clear(); // the RAM drive
    detached = false;
    relock_sim();
}

std::string modem_core::come_up()
{
    away = false;
    std::string error = node_on();
    search(monotonic_clock::now());
    boot();
    return error;
}

void modem_core::boot()
{
    report_sequence(sim.state == sim_state::ready    ? "boot_ready"
                    : sim.state == sim_state::absent ? "boot_absent"
                                                     : "boot_locked");
    update_registration();
}

} // namespace kelo_emulator
