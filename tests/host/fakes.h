// The calls of the library that need a modem are noted down instead of made; its words and its
// record are real. Stories are tables of what happens when, and of what is to be noted then.
#pragma once

#include <kelo/kelo.h>

#include <chrono>
#include <functional>
#include <string>

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
