// SPDX-License-Identifier: MIT
// The signal of the last ten minutes, for who comes to look at it.
#pragma once

#include "host/state/status.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

namespace kelo_host
{

class history
{
  public:
    using clock = std::chrono::steady_clock;

    // Several times a second; one sample each second is kept.
    void add(const json_value& status, clock::time_point now);

    // The samples as a JSON array, the oldest first, each with the fields of `sample_fields`. Null
    // for what was not known.
    std::string text(clock::time_point now) const;

  private:
    static constexpr size_t most = 600;
    static constexpr int16_t unknown = INT16_MIN;
    struct sample {
        clock::time_point at;
        std::array<int16_t, 4> figures;
        bool online;
    };

    std::array<sample, most> samples_{};
    size_t count_ = 0; // of all that ever came
};

constexpr const char* sample_fields =
    R"(["age_s","rsrp_dbm","rsrq_db","sinr","signal_dbm","online"])";

} // namespace kelo_host
