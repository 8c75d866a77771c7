// What this process and the library write to a terminal.
#pragma once

#include <string_view>
#include <thread>

namespace kelo_host
{

void write_all(int fd, std::string_view text);

// Takes standard output over, where it would end on a terminal, and passes on what is printed
// there, each line without what could act on the terminal. On a thread of its own: a host that is
// busy must not hold up the library, and a terminal that has stopped costs it no more than before.
class clean_output
{
  public:
    clean_output() = default;
    ~clean_output() { finish(); }
    clean_output(const clean_output&) = delete;
    clean_output& operator=(const clean_output&) = delete;

    void start(int terminal); // nothing happens where that is none
    void finish();            // passes on what is there; later lines go nowhere

  private:
    void pass_on(int terminal);

    int read_end_ = -1, stop_ = -1;
    std::thread thread_;
};

} // namespace kelo_host
