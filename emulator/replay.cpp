// SPDX-License-Identifier: MIT
#include "emulator/replay.h"

#include "emulator/modem.h"
#include "emulator/pty.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace kelo_emulator
{

namespace
{

using kelo_record::origin;

constexpr std::size_t most_bytes = 64 << 20; // of a record
constexpr std::size_t most_heard = 1 << 20;  // of one thing that the host says
constexpr std::size_t most_notes = 50;
constexpr std::size_t most_ahead = 64;   // commands that a search looks at
constexpr long long patience_ms = 10000; // for a command that is awaited,
constexpr long long order_ms = 5000;     // and for one that was passed over
constexpr long long answer_ms = 60000;   // for the whole of an answer
constexpr double jump_ms = 3000;
constexpr char ctrl_z = 0x1a, escape = 0x1b;

// A command or a body without its line end.
std::string bare(const std::string& bytes)
{
    const std::size_t end = bytes.find_last_not_of("\r\n");
    return bytes.substr(0, end == std::string::npos ? 0 : end + 1);
}

bool ends_body(char byte)
{
    return byte == ctrl_z || byte == escape;
}

bool is_body(const std::string& bytes)
{
    const std::string text = bare(bytes);
    return text.size() > 1 && ends_body(text.back());
}

bool is_raw(const std::string& bytes)
{
    return !bytes.empty() && bytes.back() != '\r' && bytes.back() != '\n' &&
           !ends_body(bytes.back());
}

// Of a file only the length tells.
bool same(const std::string& recorded, const std::string& said)
{
    if (recorded.find_first_not_of('*') == std::string::npos)
        return recorded.size() == said.size() && !said.starts_with("AT");
    return recorded.find('*') == std::string::npos ? recorded == said
                                                   : pattern_matches(recorded, said);
}

std::string shown(const std::string& text)
{
    constexpr std::size_t most = 60;
    const std::string line = kelo_record::text_of({0, origin::host, text.substr(0, most)});
    return line.substr(line.find(">> ") + 3) + (text.size() > most ? "..." : "");
}

bool is_final(const std::string& line)
{
    for (const char* const one : {"OK", "ERROR", "NO CARRIER", "BUSY", "NO ANSWER", "CONNECT", ">"})
        if (line == one)
            return true;
    return line.rfind("+CME ERROR", 0) == 0 || line.rfind("+CMS ERROR", 0) == 0;
}

// "+CSQ: 1,99" answers AT+CSQ, also as one of several commands of a line.
bool answers(const std::string& line, const std::string& command)
{
    const std::size_t colon = line.find(':');
    return colon != std::string::npos && colon > 1 &&
           command.find(line.substr(0, colon)) != std::string::npos;
}

} // namespace

// --- the record -------------------------------------------------------------------------------

std::string record_player::add(std::string_view text, std::size_t number, long long& offset)
{
    auto line = kelo_record::parse_line(text);
    if (!line)
        return std::to_string(number) + ": no line of a record";
    line->ms += offset;
    if (!steps_.empty() && line->ms < steps_.back().ms) { // a further run
        offset += steps_.back().ms - line->ms;
        line->ms = steps_.back().ms;
    }
    if (line->bytes.empty())
        return "";
    const bool goes_on = !steps_.empty() && line->from == origin::host &&
                         steps_.back().from == origin::host && is_raw(steps_.back().bytes) &&
                         !line->bytes.starts_with("AT");
    if (goes_on)
        steps_.back().bytes += line->bytes;
    else
        steps_.push_back({number, line->ms, line->from, std::move(line->bytes), "", false});
    return "";
}

std::string record_player::load(std::istream& in)
{
    std::string text;
    char piece[65536];
    while (text.size() <= most_bytes && (in.read(piece, sizeof piece), in.gcount() > 0))
        text.append(piece, static_cast<std::size_t>(in.gcount()));
    if (in.bad() || text.size() > most_bytes)
        return in.bad() ? "it can't be read" : "it is larger than 64 MiB";
    bool is_record = false;
    std::string fault; // of the line ahead, which a loss of power may have cut
    long long offset = 0;
    std::size_t number = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string_view line = std::string_view(text).substr(at, end - at);
        at = end + 1;
        number++;
        if (line.starts_with(kelo_record::head_mark)) {
            int version = 0;
            const std::string_view behind = line.substr(std::strlen(kelo_record::head_mark));
            std::from_chars(behind.data(), behind.data() + behind.size(), version);
            if (version != kelo_record::version)
                return std::to_string(number) + ": a record of a version that is not known";
            is_record = true;
            fault.clear();
        }
        if (!fault.empty() && is_record)
            return fault;
        if (line.size() > kelo_record::longest_line)
            return std::to_string(number) + ": the line is too long";
        if (!line.empty() && line[0] != '#')
            fault = add(line, number, offset);
    }
    return steps_.empty() ? "it holds nothing that was said on a port" : "";
}

// --- time -------------------------------------------------------------------------------------

long long record_player::real(long long ms) const
{
    return anchor_real_ + std::llround(static_cast<double>(ms - anchor_ms_) / speed_);
}

double record_player::recorded(long long now) const
{
    return static_cast<double>(anchor_ms_) + static_cast<double>(now - anchor_real_) * speed_;
}

void record_player::note(const std::string& text)
{
    if (noted_++ < most_notes)
        notes_.push_back(text);
    else if (noted_ == most_notes + 1)
        notes_.push_back("further differences are not shown");
}

// --- what the modem does ----------------------------------------------------------------------

std::size_t record_player::next_host_step(std::size_t from) const
{
    while (from < steps_.size() && steps_[from].from != origin::host)
        from++;
    return from;
}

// A step that is none of the host.
void record_player::play(std::size_t at, long long when)
{
    const step& one = steps_[at];
    const std::string& said = one.reduced ? one.left : one.bytes;
    if (one.from == origin::modem) {
        if (!said.empty())
            waiting_.emplace(when, action{deed::say, said});
    } else if (one.bytes.starts_with("gone")) {
        waiting_.emplace(when, action{deed::node_off, ""});
        std::size_t open = at;
        while (open < steps_.size() && !steps_[open].bytes.starts_with("open "))
            open++;
        if (open == steps_.size())
            return;                                   // it never came back
        constexpr long long ahead = 300, least = 100; // a host sees it a little later
        const long long away = std::max(steps_[open].ms - one.ms - ahead, least);
        waiting_.emplace(when + std::llround(static_cast<double>(away) / speed_),
                         action{deed::node_on, ""});
    } else if (one.bytes.starts_with("lost")) {
        note("line " + std::to_string(one.line) + ": here the record has " + shown(one.bytes));
    }
}

// The lines of a recorded read that answer the command, and the others.
void record_player::split_answer(answer_state& state, const std::string& bytes, std::string& answer,
                                 std::string& rest)
{
    std::string blanks;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t end = std::min(bytes.find('\n', at), bytes.size() - 1) + 1;
        const std::string line = bytes.substr(at, end - at);
        at = end;
        const std::size_t first = line.find_first_not_of("\r\n \x1b");
        const std::size_t last = line.find_last_not_of("\r\n ");
        blanks += line;
        if (first == std::string::npos)
            continue;
        const std::string text = line.substr(first, last + 1 - first);
        const bool echo = !state.echoed && text == state.command;
        const bool final_result = is_final(text);
        const bool is_plain = std::strchr("+^#$*%", text[0]) == nullptr;
        const bool is_part =
            echo || (!state.ended &&
                     (final_result || answers(text, state.command) || (state.echoed && is_plain)));
        state.echoed |= echo;
        state.ended |= is_part && final_result;
        (is_part ? answer : rest) += std::exchange(blanks, "");
    }
    rest += blanks;
}

// What a step of the host gets its answer for: a body or a file that of its command.
std::string record_player::command_of(std::size_t at) const
{
    while (at > 0 && (steps_[at].from != origin::host || is_raw(steps_[at].bytes) ||
                      is_body(steps_[at].bytes)))
        at--;
    return bare(steps_[at].bytes);
}

// The command of the host is not awaited any more; what else the modem said behind it stays.
void record_player::pass_over(std::size_t at, long long now)
{
    const std::string command = command_of(at);
    missing_.push_back({steps_[at].line, bare(steps_[at].bytes), now + order_ms});
    answer_state state{command};
    for (std::size_t next = at + 1; next < steps_.size() && !state.ended; next++) {
        step& one = steps_[next];
        if (one.from == origin::port || one.ms - steps_[at].ms > answer_ms)
            return;
        if (one.from == origin::host)
            continue;
        std::string answer, rest;
        split_answer(state, one.reduced ? one.left : one.bytes, answer, rest);
        one.left = rest;
        one.reduced = true;
    }
}

bool record_player::answer_of(std::size_t at, std::string& answer, long long& after) const
{
    const std::string command = command_of(at);
    answer_state state{command};
    after = 0;
    for (std::size_t next = at + 1; next < steps_.size() && !state.ended; next++) {
        const step& one = steps_[next];
        if (one.from == origin::port || one.ms - steps_[at].ms > answer_ms)
            break;
        if (one.from == origin::host)
            continue;
        std::string rest;
        const bool first = answer.empty();
        split_answer(state, one.bytes, answer, rest);
        if (first && !answer.empty())
            after = one.ms - steps_[at].ms;
    }
    return !answer.empty();
}

// The host has said this step: what was to come ahead of it comes now, if the host has left
// something out, or when it is due.
void record_player::go_to(std::size_t at, long long now)
{
    const bool skips = next_host_step(at_) != at;
    for (std::size_t between = at_; between < at; between++)
        if (steps_[between].from == origin::host)
            pass_over(between, now);
    for (; at_ < at; at_++)
        if (steps_[at_].from != origin::host)
            play(at_, skips ? now : real(steps_[at_].ms));
    at_ = at + 1;
    anchor_ms_ = steps_[at].ms;
    anchor_real_ = now;
    if (steps_[at].bytes.size() > 1 && !is_raw(steps_[at].bytes) && !is_body(steps_[at].bytes)) {
        last_said_[0] = last_said_[1];
        last_said_[1] = at;
    }
}

// Two commands in turn without an answer: the recorded modem hung.
bool record_player::is_silent() const
{
    std::string answer;
    long long after = 0;
    return last_said_[0] != none && !answer_of(last_said_[0], answer, after) &&
           !answer_of(last_said_[1], answer, after);
}

void record_player::repeat(std::size_t at, const std::string& unit, long long now)
{
    const auto awaited =
        std::ranges::find_if(missing_, [&](const missing& one) { return same(one.text, unit); });
    (awaited != missing_.end() ? reordered_ : repeated_)++;
    if (awaited != missing_.end())
        missing_.erase(awaited);
    std::string answer;
    long long after = 0;
    if (!is_silent() && answer_of(at, answer, after))
        waiting_.emplace(now + std::llround(static_cast<double>(after) / speed_),
                         action{deed::say, answer});
}

long long record_player::step_due() const
{
    if (!begun_ || at_ == steps_.size())
        return never;
    const bool awaited = steps_[at_].from == origin::host;
    return real(steps_[at_].ms + (awaited ? patience_ms : 0));
}

std::vector<record_player::action> record_player::due(long long now)
{
    while (step_due() <= now) {
        if (steps_[at_].from == origin::host)
            pass_over(at_, now);
        else
            play(at_, real(steps_[at_].ms));
        at_++;
    }
    std::erase_if(missing_, [&](const missing& one) {
        if (one.until > now)
            return false;
        note("line " + std::to_string(one.line) + ": '" + shown(one.text) + "' did not come");
        absent_++;
        return true;
    });
    std::vector<action> actions;
    while (!waiting_.empty() && waiting_.begin()->first <= now) {
        actions.push_back(std::move(waiting_.begin()->second));
        waiting_.erase(waiting_.begin());
        if (actions.back().what == deed::node_off)
            heard_.clear();
    }
    if (at_ == steps_.size() && waiting_.empty() && !std::exchange(ended_, true))
        notes_.emplace_back("the record has ended; what it holds is still answered");
    return actions;
}

long long record_player::next_due() const
{
    long long next = step_due();
    if (!waiting_.empty())
        next = std::min(next, waiting_.begin()->first);
    for (const missing& one : missing_)
        next = std::min(next, one.until);
    return next;
}

// --- what the host says -----------------------------------------------------------------------

// A command without its line end, a body with its Ctrl-Z or escape, or a file as long as recorded.
bool record_player::next_unit(std::string& unit)
{
    if (std::exchange(after_cr_, after_cr_ && heard_.empty()) && heard_.starts_with('\n'))
        heard_.erase(0, 1);
    const std::size_t next = next_host_step(at_);
    const std::string awaited = next < steps_.size() ? steps_[next].bytes : "";
    const bool is_command = heard_.starts_with("AT") || heard_.starts_with("at");
    if (is_raw(awaited) && !is_command) {
        if (heard_.size() < awaited.size())
            return false;
        unit = heard_.substr(0, awaited.size());
        heard_.erase(0, awaited.size());
        return true;
    }
    const std::size_t end =
        heard_.find_first_of(is_body(awaited) && !is_command ? "\x1a\x1b" : "\r\x1a\x1b");
    if (end == std::string::npos)
        return false;
    after_cr_ = heard_[end] == '\r';
    unit = heard_.substr(0, after_cr_ ? end : end + 1);
    heard_.erase(0, end + 1);
    return true;
}

void record_player::hear(std::string_view bytes, long long now)
{
    heard_ += bytes;
    for (std::string unit; next_unit(unit);)
        if (!unit.empty())
            hear_unit(unit, now);
    if (heard_.size() > most_heard) {
        heard_.clear();
        note("the host says what never ends");
    }
}

// Not beyond a loss of the port that has not come yet.
std::size_t record_player::find_ahead(const std::string& unit) const
{
    std::size_t commands = 0;
    for (std::size_t at = at_; at < steps_.size() && commands < most_ahead; at++) {
        if (steps_[at].from == origin::port && steps_[at].bytes.starts_with("gone"))
            return none;
        if (steps_[at].from != origin::host)
            continue;
        if (same(bare(steps_[at].bytes), unit))
            return at;
        commands++;
    }
    return none;
}

// One with an answer, if there is one.
std::size_t record_player::find_behind(const std::string& unit) const
{
    std::size_t found = none;
    for (std::size_t at = at_; at-- > 0;) {
        if (steps_[at].from != origin::host || !same(bare(steps_[at].bytes), unit))
            continue;
        std::string answer;
        long long after = 0;
        if (answer_of(at, answer, after))
            return at;
        if (found == none)
            found = at;
    }
    return found;
}

void record_player::hear_unit(const std::string& unit, long long now)
{
    const std::size_t ahead = find_ahead(unit);
    if (!begun_) {
        begun_ = true;
        anchor_ms_ = ahead != none ? steps_[ahead].ms : 0;
        anchor_real_ = now;
    }
    const bool is_next = ahead != none && ahead == next_host_step(at_);
    if (is_next ||
        (ahead != none && static_cast<double>(steps_[ahead].ms) - recorded(now) <= jump_ms)) {
        in_place_++;
        return go_to(ahead, now);
    }
    if (const std::size_t behind = find_behind(unit); behind != none)
        return repeat(behind, unit, now);
    if (ahead != none) {
        in_place_++;
        return go_to(ahead, now);
    }
    if (unit == std::string(1, escape))
        return; // it gives up what nobody began
    unknown_++;
    const std::size_t next = next_host_step(at_);
    note((next < steps_.size() ? "line " + std::to_string(steps_[next].line) + ": '" +
                                     shown(bare(steps_[next].bytes)) + "' is awaited; "
                               : "behind its end: ") +
         "the record does not know '" + shown(unit) + "'");
    if (!is_silent())
        waiting_.emplace(now, action{deed::say, "\r\nERROR\r\n"});
}

std::vector<std::string> record_player::take_notes()
{
    return std::exchange(notes_, {});
}

std::string record_player::summary() const
{
    const auto count = [](std::size_t number) { return std::to_string(number); };
    return count(in_place_) + " commands in their place, " + count(repeated_) + " repeated, " +
           count(reordered_) + " in another order, " + count(absent_) + " did not come, " +
           count(unknown_) + " unknown";
}

// --- the port ---------------------------------------------------------------------------------

namespace
{

class replayed_port
{
  public:
    explicit replayed_port(const replay_options& options)
        : options_(options), player_(options.speed)
    {
    }

    std::string start()
    {
        std::ifstream in(options_.record);
        if (!in)
            return options_.record + ": " + std::strerror(errno);
        const std::string fault = player_.load(in);
        if (fault.empty())
            return pty_.open(options_.port);
        return options_.record +
               (std::isdigit(static_cast<unsigned char>(fault[0])) != 0 ? ":" : ": ") + fault;
    }

    int serve(int signals)
    {
        for (;;) {
            say_notes();
            pty_.allow_next_open();
            pump();
            struct pollfd polled[2] = {{signals, POLLIN, 0}, {pty_.master(), POLLIN, 0}};
            if (!output_.empty())
                polled[1].events |= POLLOUT;
            poll(polled, 2, wait_ms());
            if (polled[0].revents != 0)
                break;
            char bytes[4096];
            const ssize_t length =
                (polled[1].revents & POLLIN) != 0 ? read(pty_.master(), bytes, sizeof bytes) : 0;
            if (length > 0)
                player_.hear({bytes, static_cast<std::size_t>(length)}, now());
            for (const record_player::action& one : player_.due(now()))
                act(one);
        }
        std::fprintf(stderr, "kelo-emulator: %s: %s\n", options_.record.c_str(),
                     player_.summary().c_str());
        return player_.got_over() ? 0 : 1;
    }

  private:
    long long now() const
    {
        const auto passed = monotonic_clock::now() - begun_;
        return std::chrono::duration_cast<milliseconds>(passed).count();
    }

    int wait_ms() const
    {
        constexpr long long look_ms = 50; // a host that closed the port has told nobody
        return static_cast<int>(std::clamp(player_.next_due() - now(), 0LL, look_ms));
    }

    void act(const record_player::action& one)
    {
        if (one.what == record_player::deed::say) {
            if (pty_.is_open() && output_.size() < most_heard)
                output_ += one.bytes;
            return;
        }
        pump();
        output_.clear();
        pty_.close();
        if (one.what == record_player::deed::node_off)
            return;
        const std::string fault = pty_.open(options_.port);
        if (!fault.empty())
            std::fprintf(stderr, "kelo-emulator: %s\n", fault.c_str());
    }

    void pump()
    {
        const ssize_t written = pty_.is_open() && !output_.empty()
                                    ? write(pty_.master(), output_.data(), output_.size())
                                    : 0;
        if (written > 0)
            output_.erase(0, static_cast<std::size_t>(written));
    }

    void say_notes()
    {
        for (const std::string& one : player_.take_notes())
            std::fprintf(stderr, "kelo-emulator: %s: %s\n", options_.record.c_str(), one.c_str());
    }

    const replay_options& options_;
    record_player player_;
    pseudo_terminal pty_;
    std::string output_;
    const monotonic_clock::time_point begun_ = monotonic_clock::now();
};

} // namespace

int replay_record(const replay_options& options, int signals)
{
    replayed_port port(options);
    const std::string fault = port.start();
    if (!fault.empty()) {
        std::fprintf(stderr, "kelo-emulator: %s\n", fault.c_str());
        return 2;
    }
    std::printf("%s at %s\n", options.record.c_str(), options.port.c_str());
    std::fflush(stdout);
    return port.serve(signals);
}

} // namespace kelo_emulator
