// Where the status and the lines of this host go.
#pragma once

#include "joiner.h"
#include "status.h"

#include <string>

namespace kelo_host
{

// On a terminal the screen stands in the upper rows, and what the library prints scrolls below it.
// Elsewhere each change is a line. As JSON, standard output gets objects alone, and everything else
// goes to standard error.
class Display
{
  public:
    explicit Display(bool json);

    void update(const Json& status, long seconds);

    // A received message, whole, its text on lines of its own.
    void show(const Message& message);

    // The last status, in full.
    void finish(const Json& status, long seconds);

    void say(const std::string& line);

  private:
    void draw(const Json& status, long seconds);

    bool json_, live_ = false;
    int fd_ = 1;
    int rows_ = 0; // of the terminal that was split, 0 while it is whole
    Json last_;
    std::string drawn_;
};

} // namespace kelo_host
