// SPDX-License-Identifier: MIT
// Messages as files: header lines, an empty line, the text.
#pragma once

#include "host/messages/messages.h"

#include <string>
#include <string_view>

namespace kelo_host
{

// A file that somebody wants to be sent.
struct outgoing_file {
    std::string number;
    std::string text; // UTF-8, without the file's last line end
    kelo_sms_options options;
    bool resend = false; // also when nobody knows whether it went out
};

// Reads one; options: what the file does not say. Returns what is wrong, empty for nothing; then
// `resend` counts all the same.
std::string parse_outgoing(std::string_view content, outgoing_file& file);

// The file with these header lines behind its own; those that an earlier run has put there go.
std::string with_headers(std::string_view content, std::string_view lines);

// The file with one more.
std::string with_line(std::string_view content, std::string_view line);

// A received message; received: the time of its arrival.
std::string incoming_content(const whole_message& message, const std::string& received);

// "2026-11-25 15:19:44 +01:00", of this device.
std::string local_time();

} // namespace kelo_host
