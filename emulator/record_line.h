// SPDX-License-Identifier: MIT
// One line of a record of what was said on an AT port, as kelo-host writes it (--record) and this
// emulator prints it (--trace):
//
//     # kelo-record 1 2026-11-25T18:50:01Z model RM500Q-GL
//         0.000 -- open /dev/ttyUSB2
//         0.512 >> AT+CSQ\r\n
//         0.530 << AT+CSQ\r\r\n+CSQ: 23,99\r\n\r\nOK\r\n
//
// Seconds since the start; `>>` what the host wrote, `<<` what the modem said, `--` what else
// happened: `open PATH`, `close PATH`, `gone PATH` (the device has hung up) and `lost COUNT` (of
// events). Bytes that are no printable ASCII stand as \r, \n or \xHH, a backslash as two. A head
// opens each stretch; in one that is masked an asterisk stands for any text of the host, also none.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kelo_record
{

constexpr const char* head_mark = "# kelo-record ";
constexpr int version = 1;
constexpr std::size_t longest_line = 300000; // an uploaded file of 64 KiB

enum class origin { host, modem, port };

struct record_line {
    long long ms = 0; // since the start
    origin from = origin::port;
    std::string bytes;
};

std::string text_of(const record_line& line); // without a line end
std::optional<record_line> parse_line(std::string_view text);

} // namespace kelo_record
