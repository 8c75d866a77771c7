// SPDX-License-Identifier: MIT
#include "host/log/log.h"

#include "host/log/private.h"
#include "host/state/status.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace kelo_host
{

namespace
{

using namespace std::chrono_literals;

// For the life of the process: threads of the library may say something to its very end.
log_options use;
bool journal = false;
std::mutex turn; // whole lines
std::atomic<int> dropped = 0;

bool write_in_time(std::string_view text, std::chrono::milliseconds patience)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!text.empty()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd out = {use.fd, POLLOUT, 0};
        if (poll(&out, 1, static_cast<int>(std::max(left, 0ms).count())) == 0)
            return false;
        // A pipe that is ready takes as much as this without a wait.
        const ssize_t done = write(use.fd, text.data(), std::min<size_t>(text.size(), PIPE_BUF));
        if (done < 0 && errno != EINTR && errno != EAGAIN)
            return true; // nobody reads any more: the modem is still ours to keep
        if (done > 0)
            text.remove_prefix(static_cast<size_t>(done));
    }
    return true;
}

// A reader that has stopped holds up the thread that writes; the others wait no longer than that.
bool have_turn(std::unique_lock<std::mutex>& guard, std::chrono::milliseconds patience)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!guard.try_lock()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

void take_line(kelo_log_level level, const char* line, void*)
{
    // What is left out goes through it as well: it tells what the next line is.
    static thread_local line_mask mask(use.show_private);
    static thread_local bool was_hidden = false;
    const std::string masked = mask.apply(line);
    const bool again = std::exchange(was_hidden, masked == hidden_line) && was_hidden;
    if (level > use.most || again)
        return; // one line stands for all that are hidden whole
    const auto patience = dropped == 0 ? 1000ms : 0ms;
    std::unique_lock guard(turn, std::defer_lock);
    const std::string report = dropped == 0
                                   ? ""
                                   : log_prefix(KELO_LOG_ERROR, journal) + std::to_string(dropped) +
                                         " lines were dropped, nobody read them\n";
    if (!have_turn(guard, patience) || !write_in_time(report, patience)) {
        dropped++;
        return;
    }
    dropped = 0;
    if (!write_in_time(log_prefix(level, journal) + printable(masked) + "\n", patience))
        dropped++;
}

} // namespace

std::string log_prefix(kelo_log_level level, bool for_journal)
{
    constexpr const char* priorities[] = {"<3>", "<5>", "<7>"};
    constexpr const char* names[] = {"error", "notice", "debug"};
    if (for_journal)
        return priorities[level];
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char text[64] = "";
    const size_t length = std::strftime(text, sizeof text, "%F %T", &local);
    std::snprintf(text + length, sizeof text - length, ".%03ld %s ", now.tv_nsec / 1000000,
                  names[level]);
    return text;
}

void start_log(const log_options& options)
{
    use = options;
    journal = std::getenv("JOURNAL_STREAM") != nullptr;
    // A terminal that is stopped in the middle of a line must not stop the modem: it gets a
    // description of its own that does not wait, since the other one belongs to our shell, too.
    if (isatty(use.fd)) {
        const std::string path = "/proc/self/fd/" + std::to_string(use.fd);
        const int own = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        use.fd = own >= 0 ? own : use.fd;
    }
    kelo_set_log(take_line, nullptr);
}

} // namespace kelo_host
