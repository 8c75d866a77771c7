// SPDX-License-Identifier: MIT
// The metrics as a file, for node_exporter's textfile collector.
#pragma once

#include "host/state/status.h"

#include <chrono>
#include <functional>
#include <string>
#include <utility>

namespace kelo_host
{

class metrics_file
{
  public:
    using clock = std::chrono::steady_clock;

    // `say` takes one line when the file can't be written, and one when it can again.
    metrics_file(std::string path, speaker say) : path_(std::move(path)), say_(std::move(say)) {}

    // Several times a second; the file is written every few. `text` is asked for it. Its readers
    // find a whole one at any time.
    void pass(clock::time_point now, const std::function<std::string()>& text);

    // What would be of a host that has ended must not stay.
    void remove();

  private:
    std::string write(const std::string& text) const; // the fault

    std::string path_; // empty: none
    speaker say_;
    clock::time_point next_{};
    std::string fault_;
};

} // namespace kelo_host
