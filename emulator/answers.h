// SPDX-License-Identifier: MIT
// What the tool prints: lines for people, or one JSON object a line (--json). What went wrong
// is said on the error stream in either form.
#pragma once

#include "emulator/modem.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kelo_emulator
{

// One order and what came of it.
struct order_outcome {
    std::string order;
    std::string place;           // "setup.txt:12", empty on standard input
    std::size_t line = 0;        // 0: none
    std::string error;           // empty: it was carried out
    std::string answer;          // as text, with its line ends
    nlohmann::ordered_json more; // the same, as members of an object
};

// Each call writes whole lines and flushes them, so that the calls may come from several threads.
class answer_printer
{
  public:
    answer_printer(bool json, monotonic_clock::time_point start) : json_(json), start_(start) {}

    void ready(const modem_options& options) const; // the port is there
    void outcome(const order_outcome& outcome) const;
    void trace(const log_entry& entry) const;
    // False when one of them can't be started.
    bool models(const std::vector<known_model>& models) const;

  private:
    double seconds(monotonic_clock::time_point time) const;

    bool json_;
    monotonic_clock::time_point start_;
};

// "kelo-emulator: what", or "place: what", with "?" for control bytes.
void complain(const std::string& place, const std::string& what);

} // namespace kelo_emulator
