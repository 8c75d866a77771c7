// The host's share of keeping the modem: what the library asks for and leaves to its host.
#pragma once

#include "status.h"

#include <chrono>
#include <functional>

namespace kelo_host
{

class Supervisor
{
  public:
    using Clock = std::chrono::steady_clock;

    // `say` takes one line on what is done and why.
    explicit Supervisor(std::function<void(const std::string&)> say) : say_(std::move(say)) {}

    // One look at the library's words; several times a second.
    void pass(Clock::time_point now);

    const Received& received() const { return received_; }

  private:
    void note_received();
    void reload_if_wanted(Clock::time_point now);
    void restart_if_wanted();
    void retry_if_lost(Clock::time_point now);

    std::function<void(const std::string&)> say_;
    Received received_;
    Clock::time_point next_reload_{}, next_retry_{};
    bool lost_ = false;    // no port is open, or its device was seen to be gone
    bool retried_ = false; // a restart was asked for since
};

} // namespace kelo_host
