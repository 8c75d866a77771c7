// SPDX-License-Identifier: MIT
// One connection to the control socket of a running host.
#pragma once

#include <optional>
#include <string>

namespace kelo_ctl
{

class client
{
  public:
    client() = default;
    ~client();
    client(const client&) = delete;
    client& operator=(const client&) = delete;

    // Returns what is wrong, and what to do about it; empty for nothing.
    std::string open(const std::string& path);

    bool ask(const std::string& request);

    // The next line; nothing when the host is gone, or silent for `seconds`; -1: however long.
    std::optional<std::string> next_line(int seconds);

  private:
    int fd_ = -1;
    std::string text_;
};

} // namespace kelo_ctl
