// The host's share of keeping the modem: what the library asks for and leaves to its host.
#pragma once

#include "host/status.h"

#include <chrono>
#include <functional>

namespace kelo_host
{

class supervisor
{
  public:
    using clock = std::chrono::steady_clock;

    // `say` takes one line on what is done and why.
    explicit supervisor(std::function<void(const std::string&)> say) : say_(std::move(say)) {}

    // One look at the library's words; several times a second.
    void pass(clock::time_point now);

    const received_counts& received() const { return received_; }

    // Messages come by way of their queue, not of the flag.
    void note_message() { received_.sms++; }

    // How often the modem task was restarted, by whomever.
    int restarts() const { return restarts_; }

  private:
    void note_received();
    void count_restarts();
    void reload_if_wanted(clock::time_point now);
    void restart_if_wanted();
    void retry_if_lost(clock::time_point now);

    std::function<void(const std::string&)> say_;
    received_counts received_;
    clock::time_point next_reload_{}, next_retry_{};
    clock::time_point grace_{}; // the first start is given this long
    int restarts_ = 0;
    bool restarting_ = false;
    bool lost_ = false;    // no port is open, or its device was seen to be gone
    bool retried_ = false; // a restart was asked for since
};

} // namespace kelo_host
