// SPDX-License-Identifier: MIT
#include "host/display.h"

#include "host/log/private.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kelo_host
{

display::display(bool json, bool show_private) : json_(json), masked_(!show_private)
{
    if (json_) {
        // Objects only on standard output, so that a reader needs no filter.
        fd_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        return;
    }
    if (!isatty(STDOUT_FILENO))
        return;
    masked_ = false;
    const char* term = std::getenv("TERM");
    live_ = term != nullptr && std::strcmp(term, "dumb") != 0;
    fd_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
}

void display::update(const json_value& status, long seconds)
{
    if (live_) {
        draw(status, seconds);
    } else if (!json_) {
        for (const std::string& line : changes(last_, status))
            say(line);
    }
    last_ = status;
}

void display::show(const std::vector<std::string>& lines)
{
    if (json_)
        return;
    for (const std::string& line : lines)
        say(line);
}

void display::show(const json_value& happening)
{
    write_all(fd_, to_text(happening) + "\n");
}

void display::finish(const json_value& status, long seconds)
{
    update(status, seconds);
    if (json_)
        return;
    std::string text;
    if (rows_ > 0)
        text += "\0337\033[r\0338"; // the whole terminal scrolls again
    rows_ = 0;
    for (const std::string& line : screen(status, seconds, 200))
        text += (masked_ ? mask_own_line(line) : line) + "\n";
    write_all(fd_, text);
}

void display::say(const std::string& line)
{
    write_all(log_descriptor(), "kelo-host: " + (masked_ ? mask_own_line(line) : line) + "\n");
}

int display::log_descriptor() const
{
    return json_ ? STDERR_FILENO : fd_;
}

void display::draw(const json_value& status, long seconds)
{
    winsize size = {};
    if (ioctl(fd_, TIOCGWINSZ, &size) != 0 || size.ws_row < 20 || size.ws_col < 40)
        return; // no room: the screen comes at the end
    const auto lines = screen(status, seconds, size.ws_col);
    std::string text;
    if (size.ws_row != rows_) {
        rows_ = size.ws_row;
        text += "\033[2J\033[" + std::to_string(lines.size() + 2) + ";" + std::to_string(rows_) +
                "r\033[" + std::to_string(rows_) + ";1H";
    }
    text += "\0337\033[H"; // keep the library's place
    for (const std::string& line : lines)
        text += line + "\033[K\r\n";
    text += "\033[K\0338";
    if (text != drawn_)
        write_all(fd_, text); // in one piece, so that no other line falls into it
    drawn_ = std::move(text);
}

} // namespace kelo_host
