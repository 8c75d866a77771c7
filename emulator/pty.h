// SPDX-License-Identifier: MIT
// The device node: a raw pseudo-terminal whose slave is linked at the port path. Not thread-safe;
// the modem calls it under its lock.
#pragma once

#include <string>

namespace kelo_emulator
{

class pseudo_terminal
{
  public:
    ~pseudo_terminal();
    // Opens a new pseudo-terminal and links its slave at `path`. Empty text, or what went wrong.
    std::string open(const std::string& path);
    // Takes the link away and hangs up: whoever has the slave open reads EOF or EIO from now on.
    void close();
    bool is_open() const { return master_ >= 0; }
    int master() const { return master_; } // non-blocking; -1 when closed

    // A host that took the port for itself alone (TIOCEXCL) keeps it only until its last descriptor
    // is closed. Here that is never the last one, so that the mark has to be taken off by hand
    // again and again, or the next host finds the port busy; a lock by flock(2) holds.
    void allow_next_open() const;

  private:
    int master_ = -1;
    int slave_ = -1;
    std::string path_;
    std::string slave_name_;
};

} // namespace kelo_emulator
