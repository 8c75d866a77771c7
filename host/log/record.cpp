// SPDX-License-Identifier: MIT
#include "host/log/record.h"

#include "emulator/record_line.h"
#include "host/state/status.h"

#include <kelo/gsm.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace kelo_host
{

namespace
{

using kelo_record::origin;

constexpr size_t longest_tail = 4096;  // of a line that does not end
constexpr size_t longest_piece = 4096; // of a line of the record
constexpr long long tail_waits_ns = 500000000;

std::uint64_t random_seed()
{
    std::random_device source;
    return std::uint64_t{source()} << 32 | source();
}

long long monotonic_now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

std::string head()
{
    char date[32] = "";
    const time_t now = time(nullptr);
    tm utc = {};
    std::strftime(date, sizeof date, "%FT%TZ", gmtime_r(&now, &utc));
    gsm_mobile mobile{};
    const bool known = kelo_copy_mobile(&mobile) != 0 && mobile.model[0] != '\0';
    return kelo_record::head_mark + std::to_string(kelo_record::version) + " " + date + " model " +
           (known ? printable(mobile.model) : "-") + "\n";
}

} // namespace

recorder::recorder(const record_options& options)
    : options_(options), mask_(options.show_private, random_seed())
{
}

recorder::~recorder()
{
    if (fd_ >= 0)
        close(fd_);
}

std::string recorder::open()
{
    const std::lock_guard guard(turn_);
    begun_ns_ = monotonic_now();
    return open_file();
}

// Not through a link, and nothing but a file: a pipe without a reader would hold the modem up.
std::string recorder::open_file()
{
    fd_ =
        ::open(options_.path.c_str(),
               O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600);
    struct stat info = {};
    if (fd_ < 0 || fstat(fd_, &info) != 0)
        return options_.path + ": " + std::strerror(errno);
    if (!S_ISREG(info.st_mode))
        return options_.path + ": is no regular file";
    size_ = info.st_size;
    char last = '\n'; // a loss of power may have cut the line
    if (size_ > 0 && pread(fd_, &last, 1, size_ - 1) == 1 && last != '\n')
        write_text("\n");
    write_text(head());
    return std::exchange(fault_, "");
}

void recorder::fail(const std::string& what)
{
    if (fd_ >= 0)
        close(fd_);
    fd_ = -1;
    fault_ = options_.path + ": the record ends here: " + what;
}

void recorder::write_text(const std::string& text)
{
    if (fd_ >= 0 && !write_all(fd_, text))
        return fail(std::strerror(errno));
    size_ += static_cast<long long>(text.size());
}

void recorder::put(long long monotonic_ns, char kind, std::string_view bytes)
{
    if (fd_ >= 0 && size_ >= options_.most_bytes) {
        close(std::exchange(fd_, -1));
        const std::string old = options_.path + ".1";
        if (rename(options_.path.c_str(), old.c_str()) != 0)
            return fail(old + ": " + std::strerror(errno));
        const std::string fault = open_file();
        if (!fault.empty())
            return fail(fault);
    }
    kelo_record::record_line line;
    line.ms = std::max(monotonic_ns - begun_ns_, 0LL) / 1000000;
    line.from = kind == '>' ? origin::host : kind == '<' ? origin::modem : origin::port;
    std::string text;
    do {
        line.bytes = bytes.substr(0, longest_piece);
        bytes.remove_prefix(line.bytes.size());
        text += kelo_record::text_of(line) + "\n";
    } while (!bytes.empty());
    write_text(text);
}

// What is kept of a line goes out as it is: nobody waits for its end any more.
void recorder::let_go(long long monotonic_ns)
{
    if (!tail_.empty())
        put(monotonic_ns, '<', mask_.read(std::exchange(tail_, ""), true));
}

void recorder::take(const kelo_port_event& event)
{
    const std::lock_guard guard(turn_);
    const std::string_view bytes(event.bytes, event.length);
    if (event.lost != 0) {
        let_go(event.monotonic_ns);
        put(event.monotonic_ns, '-', "lost " + std::to_string(event.lost));
    }
    if (event.what == KELO_PORT_READ) {
        tail_ += bytes;
        const size_t end = tail_.rfind('\n') + 1; // 0 for npos
        if (end > 0)
            put(event.monotonic_ns, '<', mask_.read(std::string_view(tail_).substr(0, end), false));
        tail_.erase(0, end);
        tail_ns_ = event.monotonic_ns;
        if (tail_.size() >= longest_tail)
            let_go(event.monotonic_ns);
        return;
    }
    let_go(event.monotonic_ns);
    if (event.what == KELO_PORT_WRITTEN)
        return put(event.monotonic_ns, '>', mask_.written(bytes));
    constexpr const char* names[] = {"open ", "close ", "gone "};
    mask_.forget();
    put(event.monotonic_ns, '-', names[event.what] + std::string(bytes));
}

std::string recorder::pass(long long monotonic_ns)
{
    const std::lock_guard guard(turn_);
    if (!tail_.empty() && monotonic_ns - tail_ns_ >= tail_waits_ns)
        let_go(tail_ns_);
    return std::exchange(fault_, "");
}

namespace
{

// For the life of the process: a thread of the library may be about to enter it to its very end.
recorder* current = nullptr;

} // namespace

std::string start_recording(const record_options& options)
{
    signal(SIGXFSZ, SIG_IGN); // a limit of the file's size is a fault like others
    current = new recorder(options);
    std::string fault = current->open();
    if (fault.empty())
        kelo_set_port_trace([](const kelo_port_event* event,
                               void* to) { static_cast<recorder*>(to)->take(*event); },
                            current);
    return fault;
}

std::string pass_recording()
{
    if (current == nullptr)
        return "";
    std::string fault = current->pass(monotonic_now());
    if (!fault.empty())
        kelo_set_port_trace(nullptr, nullptr);
    return fault;
}

void stop_recording()
{
    if (current == nullptr)
        return;
    kelo_set_port_trace(nullptr, nullptr);
    current->pass(monotonic_now() + tail_waits_ns);
}

} // namespace kelo_host
