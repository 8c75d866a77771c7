// SPDX-License-Identifier: MIT
// That the SIM has refused the PIN, kept for the next process: a service manager starts us again
// after a crash, and each start could cost the SIM one more of its tries.
#pragma once

#include <string>
#include <vector>

namespace kelo_host
{

class refused_pin
{
  public:
    // In the folder that a service has for as long as it is not stopped; elsewhere nothing is kept.
    refused_pin();

    void note();

    // Whether it was refused, and none of these files, which may hold another, was written since.
    bool stands(const std::vector<std::string>& files) const;

  private:
    std::string path_; // empty: nowhere
    bool noted_ = false;
};

} // namespace kelo_host
