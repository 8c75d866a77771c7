// SPDX-License-Identifier: MIT
// What came in, by the flags that the library raises for its host.
#pragma once

#include "host/state/feed.h"

#include <chrono>
#include <optional>
#include <string>
#include <utility>

namespace kelo_host
{

class news
{
  public:
    using clock = std::chrono::steady_clock;

    // `say` takes one line on each, `to` an object.
    news(speaker say, const feed& to) : say_(std::move(say)), feed_(to) {}

    // Takes the flags down and counts; several times a second. `topic`: what is subscribed to.
    void pass(clock::time_point now, const std::string& topic);

    const received_counts& received() const { return received_; }

    // Messages come by way of their queue, not of the flag.
    void note_message() { received_.sms++; }

  private:
    void take_call(clock::time_point now);

    speaker say_;
    const feed& feed_;
    std::optional<clock::time_point> rang_; // a call whose number has not come yet
    received_counts received_;
};

} // namespace kelo_host
