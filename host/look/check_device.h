// SPDX-License-Identifier: MIT
// What a device has to bring, looked at without the modem.
#pragma once

#include "host/look/check_profiles.h"

#include <string>
#include <vector>

namespace kelo_host
{

struct device_paths {
    std::string dev = "/dev", proc = "/proc", config = "/config";
    folder_list profiles = profile_folders();
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

// The port that the library takes, empty for none.
std::string chosen_port(const device_paths& paths);

// What is wrong when no profile in the folders serves the model; else empty.
std::string profile_fault(const folder_list& folders, const std::string& model);

} // namespace kelo_host
