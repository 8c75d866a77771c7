// SPDX-License-Identifier: MIT
// The emulator's thread, the port, the log, and the public calls.
#include "emulator/core.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <unistd.h>

namespace kelo_emulator
{

namespace
{

constexpr std::size_t max_entries = 50000;
constexpr std::size_t max_output = 256 * 1024; // what a module with full buffers would drop
constexpr std::size_t max_partial = 4096;
constexpr int port_look_ms = 50; // a host that closed the port has told nobody

template <class T> void push_bounded(std::deque<T>& queue, T value)
{
    queue.push_back(std::move(value));
    if (queue.size() > max_entries)
        queue.pop_front();
}

std::size_t count_matches(const std::deque<std::string>& lines, const std::string& pattern)
{
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(),
                      [&](const std::string& line) { return pattern_matches(pattern, line); }));
}

// An installed tool has its dialogues beside it, wherever the prefix went; one in a build folder
// takes those of the source.
std::string dialogues_folder(const std::string& wanted)
{
    if (!wanted.empty())
        return wanted;
    const char* const set = getenv("KELO_DIALOGUES");
    if (set && *set)
        return set;
    std::error_code error;
    const std::filesystem::path tool = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::filesystem::path installed = tool.parent_path() / KELO_DIALOGUES_FROM_BIN;
    return std::filesystem::is_directory(installed, error) ? installed.string()
                                                           : KELO_DIALOGUES_DIR;
}

} // namespace

// --- the thread ------------------------------------------------------------------------------

void modem_core::loop()
{
    std::unique_lock lock(mutex);
    while (!stop_wanted) {
        while (!jobs.empty()) {
            timed_job* job = jobs.front();
            jobs.pop_front();
            job->work();
            job->done = true;
            changed.notify_all();
        }
        while (!timers.empty() && timers.begin()->first <= monotonic_clock::now()) {
            auto work = std::move(timers.begin()->second);
            timers.erase(timers.begin());
            work();
        }
        update_data_interface();
        pty.allow_next_open();
        pump();
        if (faults.endless && output.empty())
            write_endless();

        std::vector<log_entry> fresh;
        fresh.swap(untraced);
        if (!fresh.empty() && options.trace) {
            lock.unlock();
            for (const log_entry& entry : fresh)
                options.trace(entry);
            lock.lock();
            continue; // time has passed, orders may have come
        }

        struct pollfd polled[2] = {{wake[0], POLLIN, 0}, {pty.master(), POLLIN, 0}};
        monotonic_clock::time_point next =
            timers.empty() ? monotonic_clock::time_point::max() : timers.begin()->first;
        if (!output.empty() && next_write > monotonic_clock::now())
            next = std::min(next, next_write); // pacing of split writes
        else if (pty.is_open() &&
                 (!output.empty() || (faults.endless && faults.hang == hang_kind::none)))
            polled[1].events |= POLLOUT;
        int timeout = pty.is_open() ? port_look_ms : -1;
        if (next != monotonic_clock::time_point::max()) {
            const auto left =
                std::chrono::ceil<milliseconds>(next - monotonic_clock::now()).count();
            timeout =
                static_cast<int>(std::clamp<long long>(left, 0, timeout < 0 ? 60000 : timeout));
        }
        lock.unlock();
        poll(polled, 2, timeout);
        lock.lock();
        if (polled[0].revents) {
            char rest[64];
            while (read(wake[0], rest, sizeof rest) > 0) {
            }
        }
        if (polled[1].revents & POLLIN)
            read_port();
    }
    timers.clear();
    node_off();
    leave_data_interface();
    for (mqtt_client& client : session.mqtt)
        client.broker.reset();
    running = false;
    jobs.clear(); // their owners see that nothing runs any more
    changed.notify_all();
}

bool modem_core::run_on_thread(const std::function<void()>& work)
{
    std::unique_lock lock(mutex);
    if (!running || stop_wanted)
        return false;
    if (std::this_thread::get_id() == thread.get_id()) { // called from the trace
        work();
        return true;
    }
    timed_job job{work};
    jobs.push_back(&job);
    wake_up();
    changed.wait(lock, [&] { return job.done || !running; });
    return job.done;
}

void modem_core::wake_up() const
{
    const char byte = 0;
    if (write(wake[1], &byte, 1) < 0) {
        // Full: the thread has yet to read earlier ones, and wakes up all the same.
    }
}

void modem_core::after(int ms, std::function<void()> work)
{
    timers.emplace(monotonic_clock::now() + milliseconds(ms), std::move(work));
}

// --- the port --------------------------------------------------------------------------------

void modem_core::put(const std::string& bytes)
{
    if (pty.is_open() && faults.hang == hang_kind::none &&
        output.size() + bytes.size() <= max_output)
        output += bytes;
}

void modem_core::pump()
{
    while (pty.is_open() && !output.empty() && monotonic_clock::now() >= next_write) {
        const std::size_t piece =
            faults.split_bytes ? std::min(faults.split_bytes, output.size()) : output.size();
        const ssize_t written = write(pty.master(), output.data(), piece);
        if (written <= 0)
            return; // full, or hung up just now: polled for
        note(speaker::modem, output.substr(0, static_cast<std::size_t>(written)));
        note_modem_bytes(output.substr(0, static_cast<std::size_t>(written)));
        output.erase(0, static_cast<std::size_t>(written));
        if (faults.split_bytes)
            next_write = monotonic_clock::now() + milliseconds(faults.split_ms);
    }
}

// As much as the port takes, then back to the loop, so that a fast reader cannot hold the thread.
void modem_core::write_endless()
{
    std::string block;
    while (block.size() < 4096)
        block += faults.endless_text;
    const std::size_t period = faults.endless_text.size();
    block.erase(0, endless_at % period); // a text goes on where the last write cut it
    const bool speaks = pty.is_open() && faults.hang == hang_kind::none;
    const ssize_t written = speaks ? write(pty.master(), block.data(), block.size()) : -1;
    if (written <= 0)
        return;
    endless_at = (endless_at + static_cast<std::size_t>(written)) % period;
    endless_written += static_cast<std::uint64_t>(written);
}

void modem_core::read_port()
{
    char bytes[4096];
    if (!pty.is_open())
        return;
    const ssize_t length = read(pty.master(), bytes, sizeof bytes);
    if (length > 0)
        receive(std::string(bytes, static_cast<std::size_t>(length)));
}

std::string modem_core::node_on()
{
    return pty.is_open() ? "" : pty.open(options.port);
}

void modem_core::node_off()
{
    pty.close();
    output.clear();
    next_write = {};
    modem_partial.clear();
    session.line.clear();
}

// --- the log ---------------------------------------------------------------------------------

void modem_core::note(speaker from, const std::string& bytes)
{
    log_entry entry{monotonic_clock::now(), from, bytes};
    if (options.trace)
        untraced.push_back(entry);
    push_bounded(entries, std::move(entry));
    changed.notify_all();
}

void modem_core::note_host_line(const std::string& line)
{
    if (line.empty())
        return;
    if (host_lines.size() == max_entries)
        ++host_lines_gone;
    push_bounded(host_lines, line);
}

void modem_core::note_modem_bytes(const std::string& bytes)
{
    for (const char c : bytes) {
        if (c == '\n' || modem_partial.size() >= max_partial) {
            while (!modem_partial.empty() && modem_partial.back() == '\r')
                modem_partial.pop_back();
            if (!modem_partial.empty())
                push_bounded(modem_lines, modem_partial);
            modem_partial.clear();
        }
        if (c != '\n')
            modem_partial += c;
    }
    if (modem_partial == "> ") { // the prompt has no line end, but is waited for
        push_bounded(modem_lines, modem_partial);
        modem_partial.clear();
    }
}

// --- variables -------------------------------------------------------------------------------

std::string modem_core::get(const std::string& name, const std::string& fallback) const
{
    const auto found = dialogue.variables.find(name);
    return found == dialogue.variables.end() ? fallback : found->second;
}

int modem_core::get_number(const std::string& name, int fallback) const
{
    const long value = parse_number(get(name), 1000000);
    return value < 0 ? fallback : static_cast<int>(value);
}

std::string modem_core::text(const std::string& pattern) const
{
    return expand(pattern, dialogue.variables);
}

// --- public calls ----------------------------------------------------------------------------

std::vector<known_model> known_models(const std::string& dialogues_dir, std::string& error)
{
    const std::string folder = dialogues_folder(dialogues_dir);
    std::vector<known_model> models;
    std::error_code failure;
    for (std::filesystem::directory_iterator at(folder, failure), end; !failure && at != end;
         at.increment(failure)) {
        if (at->path().extension() != ".dlg")
            continue;
        known_model model{at->path().stem(), at->path(), {}, {}, {}};
        dialogue_file dialogue;
        model.error = load_dialogue(folder, at->path().filename(), builtin_uses(), dialogue);
        model.uses.assign(dialogue.uses.begin(), dialogue.uses.end());
        std::string first;
        if (model.error.empty() && std::getline(std::ifstream(at->path()), first) &&
            first.rfind('#', 0) == 0)
            model.about = trim(first.substr(1));
        models.push_back(std::move(model));
    }
    if (failure)
        error = folder + ": " + failure.message();
    std::sort(models.begin(), models.end(),
              [](const known_model& a, const known_model& b) { return a.name < b.name; });
    return models;
}

emulated_modem::emulated_modem() : core_(std::make_unique<modem_core>()) {}

emulated_modem::~emulated_modem()
{
    stop();
}

std::string emulated_modem::start(const modem_options& options)
{
    if (running())
        return "already running";
    stop();
    if (options.model.empty() || options.model.find('/') != std::string::npos)
        return "no model '" + options.model + "'";
    auto core = std::make_unique<modem_core>();
    core->options = options;
    std::string error = load_dialogue(dialogues_folder(options.dialogues_dir),
                                      options.model + ".dlg", builtin_uses(), core->dialogue);
    if (!error.empty())
        return error;
    for (const auto& [name, value] : options.variables)
        core->dialogue.variables[name] = value;
    core->sim.pin = core->get("pin", core->sim.pin);
    core->sim.puk = core->get("puk", core->sim.puk);
    core->cell = core->get("cell", core->cell);
    core->reference = core->get_number("message_reference", 0);
    core->fresh_session();
    core->search(monotonic_clock::now());
    error = core->node_on();
    if (!error.empty())
        return error;
    if (pipe2(core->wake, O_CLOEXEC | O_NONBLOCK) != 0)
        return std::string("no pipe: ") + strerror(errno);
    core->running = true;
    if (options.boot_reports)
        core->boot();
    modem_core* raw = core.get();
    core_ = std::move(core);
    core_->thread = std::thread([raw] { raw->loop(); });
    return "";
}

void emulated_modem::stop()
{
    {
        const std::lock_guard lock(core_->mutex);
        core_->stop_wanted = true;
        if (core_->wake[1] >= 0)
            core_->wake_up();
    }
    if (core_->thread.joinable())
        core_->thread.join();
    for (int& end : core_->wake) {
        if (end >= 0)
            close(end);
        end = -1;
    }
}

bool emulated_modem::running() const
{
    const std::lock_guard lock(core_->mutex);
    return core_->running && !core_->stop_wanted;
}

std::string emulated_modem::order(const std::string& text, std::string* answer,
                                  nlohmann::ordered_json* fields)
{
    std::string error, words;
    nlohmann::ordered_json members;
    if (!core_->run_on_thread([&] { error = run_order(*core_, text, words, members); }))
        return "the modem is not running";
    if (answer)
        *answer = std::move(words);
    if (fields)
        *fields = std::move(members);
    return error;
}

void emulated_modem::report(const std::string& line)
{
    core_->run_on_thread([&] { core_->report(line); });
}

void emulated_modem::raw(const std::string& bytes)
{
    core_->run_on_thread([&] { core_->put(bytes); });
}

void emulated_modem::set(const std::string& name, const std::string& value)
{
    const std::lock_guard lock(core_->mutex);
    core_->dialogue.variables[name] = value;
}

std::string emulated_modem::get(const std::string& name) const
{
    const std::lock_guard lock(core_->mutex);
    return core_->get(name);
}

std::vector<log_entry> emulated_modem::log() const
{
    const std::lock_guard lock(core_->mutex);
    return {core_->entries.begin(), core_->entries.end()};
}

std::vector<std::string> emulated_modem::commands() const
{
    const std::lock_guard lock(core_->mutex);
    return {core_->host_lines.begin(), core_->host_lines.end()};
}

std::vector<std::string> emulated_modem::sent() const
{
    const std::lock_guard lock(core_->mutex);
    return {core_->modem_lines.begin(), core_->modem_lines.end()};
}

std::size_t emulated_modem::count(const std::string& pattern) const
{
    const std::lock_guard lock(core_->mutex);
    return count_matches(core_->host_lines, pattern);
}

std::size_t emulated_modem::count_sent(const std::string& pattern) const
{
    const std::lock_guard lock(core_->mutex);
    return count_matches(core_->modem_lines, pattern);
}

bool emulated_modem::wait_for(const std::string& pattern, milliseconds timeout,
                              std::size_t times) const
{
    std::unique_lock lock(core_->mutex);
    return core_->changed.wait_for(
        lock, timeout, [&] { return count_matches(core_->host_lines, pattern) >= times; });
}

bool emulated_modem::wait_sent(const std::string& pattern, milliseconds timeout,
                               std::size_t times) const
{
    std::unique_lock lock(core_->mutex);
    return core_->changed.wait_for(
        lock, timeout, [&] { return count_matches(core_->modem_lines, pattern) >= times; });
}

bool emulated_modem::wait_next(const std::string& pattern, milliseconds timeout, std::size_t& place,
                               std::string& command) const
{
    std::unique_lock lock(core_->mutex);
    return core_->changed.wait_for(lock, timeout, [&] {
        const std::size_t gone = core_->host_lines_gone;
        for (place = std::max(place, gone); place - gone < core_->host_lines.size();) {
            command = core_->host_lines[place++ - gone];
            if (pattern_matches(pattern, command))
                return true;
        }
        return false;
    });
}

void emulated_modem::clear_log()
{
    const std::lock_guard lock(core_->mutex);
    core_->host_lines_gone += core_->host_lines.size();
    core_->entries.clear();
    core_->host_lines.clear();
    core_->modem_lines.clear();
    core_->modem_partial.clear();
}

std::vector<sent_message> emulated_modem::sent_messages() const
{
    const std::lock_guard lock(core_->mutex);
    return core_->sent_messages;
}

std::uint64_t emulated_modem::endless_bytes() const
{
    const std::lock_guard lock(core_->mutex);
    return core_->endless_written;
}

} // namespace kelo_emulator
