// SPDX-License-Identifier: MIT
// Where the status and the lines of this host go.
#pragma once

#include "host/state/status.h"

#include <string>

namespace kelo_host
{

// On a terminal the screen stands in the upper rows, and lines scroll below it. Elsewhere each
// change is a line. As JSON, standard output gets objects alone, and everything else goes to
// standard error. Who looks at a terminal sees everything; lines that go elsewhere are masked, and
// objects come as they are to be shown.
class display
{
  public:
    display(bool json, bool show_private);

    void update(const json_value& status, long seconds);

    void show(const std::vector<std::string>& lines); // of what happened; not as JSON,
    void show(const json_value& happening);           // but so

    // The last status, in full.
    void finish(const json_value& status, long seconds);

    void say(const std::string& line);

    int log_descriptor() const; // where the library's lines go

  private:
    void draw(const json_value& status, long seconds);

    bool json_, live_ = false, masked_;
    int fd_ = 1;
    int rows_ = 0; // of the terminal that was split, 0 while it is whole
    json_value last_;
    std::string drawn_;
};

} // namespace kelo_host
