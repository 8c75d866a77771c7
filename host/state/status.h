// SPDX-License-Identifier: MIT
// What is known of the modem at one moment, as JSON, as a screen, and as lines of changes.
#pragma once

#include "host/text.h"

#include <kelo/status.h>

#include <nlohmann/json.hpp>

#include <functional>
#include <string>
#include <vector>

namespace kelo_host
{

using json_value = nlohmann::ordered_json;

using speaker = std::function<void(const std::string&)>; // takes one line

// What came in since the start; sms: messages, in as many parts as they had.
struct received_counts {
    int sms = 0, calls = 0, mqtt = 0;
};

// One object of named values; null for what is not known. Its texts are safe to print: no control
// characters, whatever the modem sent. `report` is of kelo_get_cellular, which can take as long as
// two shell lines do, `mqtt` a state as Mqtt has it.
json_value read_status(const received_counts& received, const cellular_status& report,
                       const char* mqtt);

// What differs between two of them, as "name: old -> new".
std::vector<std::string> changes(const json_value& before, const json_value& now);

// The screen, one string a line, none longer than `width` characters.
std::vector<std::string> screen(const json_value& status, long seconds, size_t width);

// As printable; null for an empty one.
json_value text_or_null(std::string_view text);

// Of the +CSQ figure, 3GPP TS 27.007 8.5, and of the wider range of TD-SCDMA modules; null:
// unknown.
json_value signal_dbm(int rssi);

// Text of one JSON object.
std::string to_text(const json_value& status);

} // namespace kelo_host
