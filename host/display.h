// Where the status and the lines of this host go.
#pragma once

#include "host/messages.h"
#include "host/status.h"

#include <string>

namespace kelo_host
{

// On a terminal the screen stands in the upper rows, and lines scroll below it. Elsewhere each
// change is a line. As JSON, standard output gets objects alone, and everything else goes to
// standard error. Who looks at a terminal or takes objects sees everything; lines that go elsewhere
// are masked.
class display
{
  public:
    display(bool json, bool show_private);

    void update(const json_value& status, long seconds);

    void show(const whole_message& message);
    template <typename result> void show(const result& one) // or a report
    {
        tell({line_of(one)}, json_of(one));
    }

    // The last status, in full.
    void finish(const json_value& status, long seconds);

    void say(const std::string& line);

    int log_descriptor() const; // where the library's lines go

  private:
    void draw(const json_value& status, long seconds);
    void tell(const std::vector<std::string>& lines, const json_value& object);

    bool json_, live_ = false, masked_;
    int fd_ = 1;
    int rows_ = 0; // of the terminal that was split, 0 while it is whole
    json_value last_;
    std::string drawn_;
};

} // namespace kelo_host
