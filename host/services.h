// SPDX-License-Identifier: MIT
// The MQTT client and the GPS engine inside the modem.
#pragma once

#include "host/state/feed.h"

#include <kelo/mqtt.h>

#include <chrono>
#include <string>

namespace kelo_host
{

// Keeps one subscription. One object a process: the library's callbacks know no more.
class mqtt_client
{
  public:
    using clock = std::chrono::steady_clock;

    mqtt_client(speaker say, const feed& to) : say_(std::move(say)), feed_(to) {}

    // False, and the library has said why, when the settings are refused.
    bool start(const mqtt_config& config);

    // Tells what came in, and brings a lost subscription up again. `restarts`: how often the modem
    // was walked anew, which may have cost the connection without a report.
    void pass(clock::time_point now, int restarts);

    bool active() const { return active_; }

    // "off", "connecting" or "subscribed".
    const char* state() const;

    std::string topic() const { return config_.topic; }

  private:
    speaker say_;
    const feed& feed_;
    mqtt_config config_{};
    bool active_ = false, subscribed_ = false, wanted_ = false;
    int restarts_ = 0;
    clock::time_point next_{};
};

// Fetches one position.
class gps_engine
{
  public:
    using clock = std::chrono::steady_clock;

    gps_engine(speaker say, const feed& to) : say_(std::move(say)), feed_(to) {}

    void start(clock::time_point now);
    void pass(clock::time_point now);

    bool busy() const { return state_ != state::off; }
    int not_found() const { return not_found_; }
    const std::string& position() const
    {
        return position_;
    } // the last that was asked for; or none

  private:
    enum class state { off, wanted, running };
    void stop();

    speaker say_;
    const feed& feed_;
    state state_ = state::off;
    clock::time_point next_{}, next_on_{}, begun_{};
    int not_found_ = 0;
    std::string position_;
};

} // namespace kelo_host
