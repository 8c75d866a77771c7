// SPDX-License-Identifier: MIT
// The command line.
#pragma once

#include "host/serve/http.h"

#include <kelo/mqtt.h>
#include <kelo/settings.h>

#include <optional>
#include <string>
#include <vector>

namespace kelo_host
{

struct host_options {
    std::vector<std::string> files; // that options and settings came from
    std::optional<int> seconds;     // run time; without it until a signal, or until all is done
    int family = 0;                 // is_quectel
    int low_power = 0;
    int sim = 1;
    cellular_setting settings{}; // of the command line; the file's come on top
    std::string settings_file;
    bool commands = false;        // on standard input
    bool dialogue = false;        // the AT dialogue among the lines of the library
    std::optional<int> log_level; // enum kelo_log_level; without it all that the library says
    bool show_private = false;
    bool json = false;
    std::string sms_number, sms_text;
    std::optional<unsigned int> sms_validity; // minutes
    bool sms_report = false, sms_flash = false;
    int join_seconds = 60, sms_storage = 2;
    bool control = true;                     // a control socket
    std::string control_path, control_group; // empty: the default, where it can be made
    bool allow_at = false;
    std::string spool; // folder; empty: none
    std::optional<mqtt_config> mqtt;
    bool gps = false;
    std::string port; // empty: the first
    std::string second_ping_target;
    unsigned int dial_spread_s = 0;
    std::string on_stuck; // a shell command
    std::string record;   // file of what goes over the port; empty: none
    int record_mib = 4;   // of it, and of the one before
    unsigned int pin_tries = 3;
    std::string custom_file;
    bool plain = false;                     // ask for no figures beside the flows
    http_address http;                      // length 0: none
    std::string metrics_file;               // for node_exporter; empty: none
    std::string until;                      // a goal to end at; empty: none
    bool check_profiles = false;            // instead of running
    std::vector<std::string> check_folders; // in reading order; empty: the device's
    bool check_device = false;
    bool draft_profile = false;
    std::string draft_file; // empty: standard output
};

constexpr int exit_usage = 2;

// Fills `options`. Returns nothing to go on, or the status to exit with at once.
std::optional<int> parse_options(int argc, const char* const* argv, host_options& options);

} // namespace kelo_host
