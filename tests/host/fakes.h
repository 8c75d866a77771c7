// SPDX-License-Identifier: MIT
// The calls of the library that need a modem are noted down instead of made; its words and its
// record are real. Stories are tables of what happens when, and of what is to be noted then.
#pragma once

#include <kelo/kelo.h>
#include <kelo/messages.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace kelo_host
{

struct fake_modem {
    std::string log; // calls, and lines said, each with a ';' behind it
    int reload = 0, gps_on = 0, gps_start = 0, mqtt_wake = 0, mqtt_pending = 0; // to give back
    std::string position;
    mqtt_done_handler mqtt_done = nullptr; // what was handed in
    mqtt_urc_handler mqtt_report = nullptr;
};
extern fake_modem fake;

// The library's part in messages.
struct fake_messages {
    struct handed {
        std::string number, text;
        kelo_sms_options options;
    };
    std::vector<handed> handed; // the number of each is its place, from 1
    int refuse = 0;             // so many are not taken
    int cancel = 1;
    std::vector<std::pair<kelo_message, std::string>> waiting;
};
extern fake_messages fake_sms;

void note(const std::string& line);

// A library with a record and an open port, nothing noted yet.
void fresh_library();

using moment = std::chrono::steady_clock::time_point;
moment at_ms(int ms);

struct step {
    int ms;
    void (*happens)(); // null: nothing
    std::string log;
};
void walk(const std::function<void(moment)>& pass, std::initializer_list<step> steps);

} // namespace kelo_host
