// SPDX-License-Identifier: MIT
// What this host waits at, on one thread: signals, lines of standard input, files, and the clients
// of its sockets.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct event_base;
struct event;

namespace kelo_host
{

class loop
{
  public:
    loop();

    event_base* base() const { return base_.get(); }

    // Calls `ready` in a wait, whenever something can be read; for good, or until it says false.
    void watch(int fd, std::function<bool()> ready);

    // One wait, until something that is watched was ready. Everything else at base() is done in it,
    // and does not end it.
    void wait(std::chrono::milliseconds most);

  private:
    struct base_end {
        void operator()(event_base* base) const;
    };
    struct event_end {
        void operator()(event* one) const;
    };
    struct watched {
        std::function<bool()> ready;
        std::unique_ptr<event, event_end> entry;
    };
    static void on_ready(int fd, short what, void* one);

    std::unique_ptr<event_base, base_end> base_;
    std::unique_ptr<event, event_end> end_; // of a wait
    std::vector<std::unique_ptr<watched>> watched_;
};

// Signals that end the host, or have it read its settings again. A second one that ends it does so
// at once: a stop may wait for the modem.
class signals
{
  public:
    // `reread`: SIGHUP is one of them; elsewhere it does what it ever did. False where none can be
    // had.
    bool install(loop& waits, bool reread);

    bool stop_seen() const;
    bool take_reread(); // once for each
};

// Lines as they come; none is longer than a message of 255 parts.
class input_lines
{
  public:
    void open(loop& waits, int fd);
    std::optional<std::string> next_line();

  private:
    bool read_some(int fd);

    bool open_ = false;
    std::string text_;
};

} // namespace kelo_host
