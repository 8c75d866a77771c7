// SPDX-License-Identifier: MIT
#include "host/loop.h"

#include <event2/event.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace kelo_host
{

namespace
{

// All that the handlers do is write to a pipe, which the loop waits at.
int signal_pipe[2] = {-1, -1};
volatile sig_atomic_t is_to_stop = 0, is_to_reread = 0;

void wake()
{
    const int saved = errno;
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(signal_pipe[1], &byte, 1);
    errno = saved;
}

void on_stop(int number)
{
    if (is_to_stop)
        _exit(128 + number);
    is_to_stop = 1;
    wake();
}

void on_reread(int)
{
    is_to_reread = 1;
    wake();
}

bool handle(int number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    return sigaction(number, &action, nullptr) == 0;
}

bool empty_pipe()
{
    char bytes[64];
    while (read(signal_pipe[0], bytes, sizeof bytes) > 0) {
    }
    return true;
}

} // namespace

void loop::base_end::operator()(event_base* base) const
{
    event_base_free(base);
}

void loop::event_end::operator()(event* one) const
{
    event_free(one);
}

// Standard input may be a file, which epoll refuses; poll takes all.
loop::loop()
{
    event_config* const config = event_config_new();
    if (config != nullptr) {
        event_config_avoid_method(config, "epoll");
        base_.reset(event_base_new_with_config(config));
        event_config_free(config);
    }
    if (base_ != nullptr)
        end_.reset(event_new(
            base(), -1, 0,
            [](int, short, void* base) { event_base_loopbreak(static_cast<event_base*>(base)); },
            base()));
    if (end_ == nullptr)
        std::abort(); // no memory, at the very start
}

void loop::on_ready(int, short, void* one)
{
    auto* const entry = static_cast<watched*>(one);
    event_base_loopbreak(event_get_base(entry->entry.get()));
    if (!entry->ready())
        event_del(entry->entry.get());
}

void loop::watch(int fd, std::function<bool()> ready)
{
    auto entry = std::make_unique<watched>(watched{std::move(ready), nullptr});
    entry->entry.reset(event_new(base(), fd, EV_READ | EV_PERSIST, on_ready, entry.get()));
    if (entry->entry == nullptr)
        std::abort();
    event_add(entry->entry.get(), nullptr);
    watched_.push_back(std::move(entry));
}

void loop::wait(std::chrono::milliseconds most)
{
    const timeval end = {static_cast<time_t>(most.count() / 1000),
                         static_cast<suseconds_t>(most.count() % 1000 * 1000)};
    event_add(end_.get(), &end);
    event_base_loop(base(), 0);
}

bool signals::install(loop& waits, bool reread)
{
    // A reader that goes away must not take the modem with it. The programs that the library starts
    // have the signal as ever.
    if (pipe2(signal_pipe, O_CLOEXEC | O_NONBLOCK) != 0 || !handle(SIGINT, on_stop) ||
        !handle(SIGTERM, on_stop) || !handle(SIGPIPE, SIG_IGN) ||
        (reread && !handle(SIGHUP, on_reread)))
        return false;
    waits.watch(signal_pipe[0], empty_pipe);
    return true;
}

bool signals::stop_seen() const
{
    return is_to_stop != 0;
}

bool signals::take_reread()
{
    return std::exchange(is_to_reread, 0) != 0;
}

void input_lines::open(loop& waits, int fd)
{
    open_ = true;
    waits.watch(fd, [this, fd] { return read_some(fd); });
}

bool input_lines::read_some(int fd)
{
    char bytes[4096];
    const ssize_t count = read(fd, bytes, sizeof bytes);
    open_ = count > 0 || (count < 0 && (errno == EINTR || errno == EAGAIN));
    if (count > 0)
        text_.append(bytes, static_cast<size_t>(count));
    return open_;
}

std::optional<std::string> input_lines::next_line()
{
    constexpr size_t longest = 65536; // a message of 255 parts
    const size_t end = text_.find('\n');
    if (end == text_.npos) {
        if (text_.size() > longest)
            text_.clear();
        if (open_ || text_.empty())
            return std::nullopt;
        return std::exchange(text_, ""); // the last line, without its end
    }
    std::string line = text_.substr(0, end);
    text_.erase(0, end + 1);
    return line;
}

} // namespace kelo_host
