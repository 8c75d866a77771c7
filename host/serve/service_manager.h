// SPDX-License-Identifier: MIT
// Whoever has started this process as a service of Type=notify, by the protocol of sd_notify(3).
// Started otherwise, nothing is told.
#pragma once

#include <chrono>
#include <string>

namespace kelo_host
{

class service_manager
{
  public:
    using clock = std::chrono::steady_clock;

    // Takes its variables out of the environment: programs that we start must not speak for us. So
    // it comes ahead of any thread.
    service_manager();
    ~service_manager();
    service_manager(const service_manager&) = delete;
    service_manager& operator=(const service_manager&) = delete;

    // Several times a second once all has started: that it has, why it is as it is, and that we are
    // alive, for a watchdog. What can't be told now is told the next time.
    void pass(clock::time_point now, const std::string& status);

    void stopping();

  private:
    bool tell(const std::string& text) const;

    int socket_ = -1;
    std::chrono::microseconds between_{0}; // signs of life; 0: nobody waits for them
    clock::time_point next_{};
    bool ready_ = false;
    std::string status_;
};

} // namespace kelo_host
