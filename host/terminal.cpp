#include "host/terminal.h"

#include "host/status.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kelo_host
{

namespace
{

constexpr size_t longest_line = 8192;

// Takes the whole lines off `held`, cleaned.
std::string take_lines(std::string& held, bool all)
{
    std::string lines;
    size_t at = 0;
    for (size_t end; (end = held.find('\n', at)) != held.npos; at = end + 1) {
        std::string_view line = std::string_view(held).substr(at, end - at);
        while (line.ends_with('\r'))
            line.remove_suffix(1);
        lines += printable(line) + "\n";
    }
    held.erase(0, at);
    if (!held.empty() && (all || held.size() > longest_line)) {
        lines += printable(held) + "\n";
        held.clear();
    }
    return lines;
}

} // namespace

void write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t done = write(fd, text.data(), text.size());
        if (done < 0 && errno != EINTR)
            return; // nobody reads any more: the modem is still ours to keep
        if (done > 0)
            text.remove_prefix(static_cast<size_t>(done));
    }
}

void clean_output::start(int terminal)
{
    int ends[2] = {-1, -1};
    if (!isatty(terminal))
        return;
    stop_ = eventfd(0, EFD_CLOEXEC);
    if (stop_ < 0 || pipe2(ends, O_CLOEXEC) != 0) {
        std::perror("kelo-host: a pipe for the library's lines");
        ends[1] = open("/dev/null", O_WRONLY | O_CLOEXEC); // better no lines than raw ones
    } else {
        fcntl(ends[0], F_SETFL, O_NONBLOCK); // the read end: the library's end waits
        read_end_ = ends[0];
        thread_ = std::thread(&clean_output::pass_on, this, terminal);
    }
    std::fflush(stdout);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
}

void clean_output::pass_on(int terminal)
{
    constexpr int most_reads = 64; // of what a pipe can hold, once it is to end
    pollfd ready[] = {{read_end_, POLLIN, 0}, {stop_, POLLIN, 0}};
    std::string held;
    for (int left = -1; left != 0;) {
        poll(ready, 2, -1);
        if (left < 0 && ready[1].revents != 0)
            left = most_reads;
        char bytes[4096];
        const ssize_t count = read(read_end_, bytes, sizeof bytes);
        if (count > 0) {
            held.append(bytes, static_cast<size_t>(count));
            write_all(terminal, take_lines(held, false));
            left -= left > 0;
        } else if (left > 0 || count == 0 || (errno != EAGAIN && errno != EINTR)) {
            break;
        }
    }
    write_all(terminal, take_lines(held, true));
}

void clean_output::finish()
{
    if (!thread_.joinable())
        return;
    std::fflush(stdout);
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(stop_, &one, sizeof one);
    thread_.join();
    close(read_end_);
    close(stop_);
}

} // namespace kelo_host
