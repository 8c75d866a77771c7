// SPDX-License-Identifier: MIT
// The field log: what goes over the AT port, in a file (format: emulator/record_line.h).
#pragma once

#include "host/log/port_mask.h"

#include <kelo/trace.h>

#include <mutex>
#include <string>

namespace kelo_host
{

struct record_options {
    std::string path;
    long long most_bytes = 4LL << 20; // then the file becomes PATH.1, in place of an earlier one
    bool show_private = false;
};

class recorder
{
  public:
    explicit recorder(const record_options& options);
    ~recorder();
    recorder(const recorder&) = delete;
    recorder& operator=(const recorder&) = delete;

    // Goes on behind what the file holds. Returns what is wrong.
    std::string open();

    // From any thread, one at a time. Each event is written at once, but for the end of a read that
    // is no whole line: it waits for its rest, or to be passed. A fault ends the record.
    void take(const kelo_port_event& event);
    // Writes the part of a line that has waited half a second; to be called a few times a second.
    // Returns a fault, once.
    std::string pass(long long monotonic_ns);

  private:
    std::string open_file();
    void put(long long monotonic_ns, char kind, std::string_view bytes);
    void write_text(const std::string& text);
    void let_go(long long monotonic_ns);
    void fail(const std::string& what);

    const record_options options_;
    std::mutex turn_;
    port_mask mask_;
    int fd_ = -1;
    long long size_ = 0, begun_ns_ = -1, tail_ns_ = 0;
    std::string tail_; // of a line
    std::string fault_;
};

// Records for the life of the process, or until the stop. Returns what is wrong.
std::string start_recording(const record_options& options);
std::string pass_recording(); // as recorder::pass
void stop_recording();

} // namespace kelo_host
