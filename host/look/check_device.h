// SPDX-License-Identifier: MIT
// What a device has to bring, looked at without the modem.
#pragma once

#include <string>
#include <vector>

namespace kelo_host
{

struct device_paths {
    std::string dev = "/dev", proc = "/proc", profiles = "/usr/customer/mobile", config = "/config";
    std::string port;      // as the host has named it; empty: the first from `first_port` on
    int first_port = 2;    // ttyUSB; ttyACM counts one higher
    std::string path;      // folders of programs, as PATH has them
    bool link = true;      // is wanted,
    bool link_ping = true; // and verified by a ping
};

struct look {
    std::string what;
    bool well;
    std::string text; // what is there, or what is wrong and what to do
};

// One for each thing that the device needs, in the order in which they are needed. A port that is
// not there has one alone.
std::vector<look> check_device(const device_paths& paths);

std::string line_of(const look& one);

// What is wrong when no profile in the folder serves the model; else empty.
std::string profile_fault(const std::string& folder, const std::string& model);

} // namespace kelo_host
