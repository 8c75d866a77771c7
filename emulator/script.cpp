// SPDX-License-Identifier: MIT
#include "emulator/script.h"

#include "emulator/dialogue.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace kelo_emulator
{

namespace
{

constexpr std::size_t max_order = 8192;
constexpr std::size_t max_line = 1024 * 1024; // what is read over, behind that it is no text at all
constexpr long max_ms = 3600000;
constexpr long expect_ms = 5000;
constexpr milliseconds signal_look{50};

// True when a signal has come.
bool pause(const script_run& run, milliseconds time)
{
    struct pollfd polled = {run.signals, POLLIN, 0};
    return poll(&polled, 1, static_cast<int>(time.count())) > 0;
}

// --- the orders of the tool ----------------------------------------------------------------------

constexpr const char* bad = "?"; // answered with the usage of the order

struct tool_order {
    const char* name;
    const char* usage;
    const char* help;
    // `rest` is what stands behind the name. Sets the error, or what there is to tell.
    run_state (*carry_out)(script_run& run, const std::string& rest, order_outcome& outcome);
};

run_state order_sleep(script_run& run, const std::string& rest, order_outcome& outcome)
{
    const long ms = parse_number(rest, max_ms);
    if (ms < 0)
        outcome.error = bad;
    else if (pause(run, milliseconds(ms)))
        return run_state::signalled;
    return run_state::on;
}

// It begins behind the command that the one before it found: nothing is missed between the two, and
// nothing is found twice.
run_state order_expect(script_run& run, const std::string& rest, order_outcome& outcome)
{
    std::string pattern = rest;
    long patience = expect_ms;
    if (const std::size_t blank = rest.rfind(' '); blank != std::string::npos)
        if (const long ms = parse_number(rest.substr(blank + 1), max_ms); ms >= 0) {
            pattern = trim(rest.substr(0, blank));
            patience = ms;
        }
    if (pattern.empty()) {
        outcome.error = bad;
        return run_state::on;
    }
    const auto end = monotonic_clock::now() + milliseconds(patience);
    std::size_t place = run.heard;
    std::string command;
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(end - monotonic_clock::now());
        const milliseconds wait = std::clamp(left, milliseconds(0), signal_look);
        if (run.modem.wait_next(pattern, wait, place, command))
            break;
        if (pause(run, milliseconds(0)))
            return run_state::signalled;
        if (left <= signal_look) {
            outcome.error = "no " + pattern + " within " + std::to_string(patience) +
                            " ms; commands that came: " + std::to_string(place - run.heard);
            if (place > run.heard)
                outcome.error += ", the last one " + command;
            return run_state::on;
        }
    }
    run.heard = place;
    outcome.more["command"] = bytes_as_text(command);
    return run_state::on;
}

run_state order_quit(script_run&, const std::string& rest, order_outcome& outcome)
{
    if (rest.empty())
        return run_state::quit;
    outcome.error = bad;
    return run_state::on;
}

constexpr tool_order table[] = {
    {"sleep", "sleep MS", "the next order comes so much later", order_sleep},
    {"expect", "expect PATTERN [MS]",
     "wait for a command of the host, behind the one that the last `expect` found (5000)",
     order_expect},
    {"quit", "quit", "end", order_quit},
};

// Behind what the modem has told of its own.
void add_help(order_outcome& outcome)
{
    for (const tool_order& order : table) {
        outcome.answer += std::string(order.usage) + "\n        " + order.help + "\n";
        outcome.more["orders"].push_back({{"usage", order.usage}, {"help", order.help}});
    }
}

run_state finish(script_run& run, const order_outcome& outcome)
{
    run.answers.outcome(outcome);
    if (outcome.error.empty() || ++run.failures != run.most_failures)
        return run_state::on;
    return run_state::failed;
}

// --- lines -------------------------------------------------------------------------------------

// The lines of a descriptor, none longer than an order may be. What is too long is read over.
struct line_reader {
    enum class got { line, fault, end, signalled };

    int fd;
    std::size_t number = 0; // of the line that next gave, from 1 on
    std::string pending = "";
    std::size_t skipped = 0; // of a line that was told already
    bool at_end = false;

    // The next line, or what is wrong with it.
    got next(int signals, std::string& line)
    {
        for (;;) {
            const std::size_t end = pending.find('\n');
            if (end != std::string::npos || (at_end && !pending.empty())) {
                line = pending.substr(0, end);
                pending.erase(0, end == std::string::npos ? end : end + 1);
                if (std::exchange(skipped, 0) == 0)
                    return judge(line);
            } else if (at_end) {
                return got::end;
            } else if (pending.size() > max_order) {
                line.swap(pending);
                pending.clear();
                skipped += line.size();
                if (skipped == line.size())
                    return judge(line);
                if (skipped > max_line)
                    return give_up(line, "a line without an end");
            } else if (const got outcome = read_more(signals, line); outcome != got::line) {
                return outcome;
            }
        }
    }

    got read_more(int signals, std::string& fault)
    {
        struct pollfd polled[2] = {{signals, POLLIN, 0}, {fd, POLLIN, 0}};
        poll(polled, 2, -1);
        if (polled[0].revents)
            return got::signalled;
        char bytes[4096];
        const ssize_t length = polled[1].revents ? read(fd, bytes, sizeof bytes) : -1;
        if (length > 0)
            pending.append(bytes, static_cast<std::size_t>(length));
        at_end = length == 0;
        if (length >= 0 || errno == EINTR || errno == EAGAIN)
            return got::line;
        return give_up(fault, strerror(errno));
    }

    got give_up(std::string& fault, const char* why)
    {
        at_end = true;
        fault = std::string("reading ends here: ") + why;
        return got::fault;
    }

    got judge(std::string& line)
    {
        ++number;
        const bool too_long = line.size() > max_order;
        if (too_long || line.find('\0') != std::string::npos) {
            line = too_long ? "order line too long, dropped" : "a NUL byte in the line, dropped";
            return got::fault;
        }
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        return got::line;
    }
};

} // namespace

int open_script(const std::string& path, std::string& error)
{
    const int fd = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info;
    if (fd < 0 || fstat(fd, &info) != 0) {
        error = path + ": " + strerror(errno);
        return -1;
    }
    if (S_ISDIR(info.st_mode)) {
        error = path + ": a folder is no script";
        return -1;
    }
    return fd;
}

run_state take_order(script_run& run, const std::string& text, const std::string& place,
                     std::size_t line)
{
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos || text[first] == '#')
        return run_state::on;
    order_outcome outcome{text.substr(first), place, line, "", "", {}};
    const std::string name = outcome.order.substr(0, outcome.order.find_first_of(" \t"));
    const auto* const order = std::find_if(std::begin(table), std::end(table),
                                           [&](const tool_order& row) { return name == row.name; });
    if (order == std::end(table)) {
        outcome.error = run.modem.order(outcome.order, &outcome.answer, &outcome.more);
        if (name == "help")
            add_help(outcome);
        return finish(run, outcome);
    }
    const run_state state = order->carry_out(run, trim(outcome.order.substr(name.size())), outcome);
    if (state == run_state::signalled)
        return state;
    if (outcome.error == bad)
        outcome.error = std::string("usage: ") + order->usage;
    const run_state finished = finish(run, outcome);
    return state == run_state::quit ? state : finished;
}

run_state run_script(script_run& run, int fd, const std::string& name)
{
    line_reader reader{fd};
    std::string line;
    for (;;) {
        const line_reader::got got = reader.next(run.signals, line);
        const std::string place = name.empty() ? "" : name + ":" + std::to_string(reader.number);
        run_state state = run_state::signalled;
        if (got == line_reader::got::end)
            return run_state::on;
        if (got == line_reader::got::line)
            state = take_order(run, line, place, reader.number);
        else if (got == line_reader::got::fault)
            state = finish(run, {"", place, reader.number, line, "", {}});
        if (state == run_state::signalled && !name.empty())
            complain(place, "a signal ends the script");
        if (state != run_state::on)
            return state;
    }
}

void wait_for_signal(const script_run& run)
{
    while (!pause(run, milliseconds(max_ms))) {
    }
}

} // namespace kelo_emulator
