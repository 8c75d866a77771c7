// SPDX-License-Identifier: MIT
// What happens, for everybody who follows this host: standard output, the clients of its sockets.
#pragma once

#include "host/state/status.h"

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace kelo_host
{

// "2026-11-25T18:40:01.123+01:00", RFC 3339, in local time.
std::string time_text(timespec time);

// The fields behind what they are of and the time of day.
json_value stamped(const char* type, const json_value& fields);

class feed
{
  public:
    using follower = std::function<void(const json_value& happening)>;

    // Followers stay for good, and are called in their order.
    void follow(follower one) { followers_.push_back(std::move(one)); }

    void tell(const char* type, const json_value& fields) const;

  private:
    std::vector<follower> followers_;
};

} // namespace kelo_host
