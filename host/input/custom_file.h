// SPDX-License-Identifier: MIT
// Changes to the AT commands of the flows, from a text file into cell_at_config_h.
//
// One item a line, fields in any order, texts in single or double quotes:
//
//     sim=1 flow=1 id=13 timeout=10                  # wait longer for AT+CPIN?
//     sim=1 flow=1 id=201 seq=20 cmd="AT+CMEE=2"     # a command of our own
//     sim=1 flow=2 id=94 ignore                      # pass one over
//     sim=1 flow=1 id=64 cmd='AT+QMBNCFG="Autosel",0'
#pragma once

#include <kelo/at.h>

#include <deque>
#include <iosfwd>
#include <string>
#include <vector>

namespace kelo_host
{

struct custom_item {
    int sim = 0, flow = 0, id = 0;
    bool ignore = false;
    int timeout = 0; // seconds, 0: as it is
    int seq = 0;     // 0: as it is
    std::string cmd; // empty: as it is
    int line = 0;    // of the file
};

struct custom_file {
    std::vector<custom_item> items;
    std::vector<std::string> errors; // "name:line: what is wrong"; empty for a good file
};

custom_file parse_custom(std::istream& in, const std::string& name);
custom_file read_custom_file(const std::string& path);

// Hands the items to the library, for the life of the process: once, before cellular_gsm_init.
void install_custom(const std::vector<custom_item>& items);

} // namespace kelo_host
