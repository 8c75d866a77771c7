// Where the status and the lines of this host go.
#pragma once

#include "host/joiner.h"
#include "host/status.h"

#include <string>

namespace kelo_host
{

// On a terminal the screen stands in the upper rows, and what the library prints scrolls below it.
// Elsewhere each change is a line. As JSON, standard output gets objects alone, and everything else
// goes to standard error.
class display
{
  public:
    explicit display(bool json);

    void update(const json_value& status, long seconds);

    // A received message, whole, its text on lines of its own.
    void show(const joined_message& message);

    // The last status, in full.
    void finish(const json_value& status, long seconds);

    void say(const std::string& line);

  private:
    void draw(const json_value& status, long seconds);

    bool json_, live_ = false;
    int fd_ = 1;
    int rows_ = 0; // of the terminal that was split, 0 while it is whole
    json_value last_;
    std::string drawn_;
};

} // namespace kelo_host
