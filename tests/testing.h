// SPDX-License-Identifier: MIT
// What the tests of the library's rooms share: a port whose far end the test holds, the text that
// was written to a stream, and handlers that note what they were given.
#pragma once

#include "api/api.h"
#include "handlers/handlers.h"
#include "link/link.h"
#include "modules/modules.h"
#include "services/services.h"
#include "sms/sms.h"
#include "support/diag.h"
#include "support/scan.h"
#include "support/shell.h"
#include "support/sleeps.h"
#include "support/text.h"
#include "task/task.h"
#include <kelo/command.h>
#include <kelo/gps.h>
#include <kelo/host.h>
#include <kelo/mqtt.h>
#include <kelo/status.h>

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kelo::test
{

// The library as an init leaves it: the exchange has all of its users.
inline const bool hooked = (exchange_use(task_hooks), true);

// Profile files stay for the life of a process: those of a case's last round are put aside.
inline void put_profiles_aside()
{
    static list_head aside = LIST_HEAD_INIT(aside);
    while (list_empty(&cfg_file_list) == 0) {
        list_head* const node = cfg_file_list.next;
        list_del(node);
        list_add_tail(node, &aside);
    }
}

inline std::string content_of(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Takes what is written to a descriptor while it lives. It does not flush stdio: a line that the
// library left in a buffer is not seen. Replayed where it belongs when the case has failed.
struct captured {
    explicit captured(int fd = STDOUT_FILENO) : target(fd)
    {
        std::fflush(nullptr);
        dup2(file, target);
    }
    ~captured()
    {
        std::fflush(nullptr);
        dup2(saved, target);
        if (::testing::Test::HasFailure())
            std::fputs(text().c_str(), stderr);
        close(saved);
        close(file);
    }
    std::string text() const { return content_of("/proc/self/fd/" + std::to_string(file)); }
    bool has(std::string_view needle) const { return text().find(needle) != std::string::npos; }

    const int target, saved = dup(target), file = memfd_create("captured", MFD_CLOEXEC);
};

// The AT port of g_mobile: the library has the pseudo-terminal at /dev/ttyUSB2, the test plays the
// modem.
struct modem_port {
    explicit modem_port(bool open_it = true) : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        grantpt(master);
        unlockpt(master);
        unlink(node);
        EXPECT_EQ(symlink(ptsname(master), node), 0);
        libgsm_search_usb_port(&g_mobile);
        EXPECT_EQ(open_it ? libgsm_mobile_open_usb(&g_mobile) : 0, 0);
    }
    ~modem_port()
    {
        unlink(node);
        libgsm_mobile_close_usb(&g_mobile);
        close(master);
    }
    void say(std::string_view bytes)
    {
        EXPECT_EQ(write(master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    // What the library wrote, up to `quiet_ms` of silence.
    std::string heard(int quiet_ms = 100)
    {
        std::string all;
        pollfd ready = {master, POLLIN, 0};
        char piece[4096];
        while (poll(&ready, 1, quiet_ms) > 0 && (ready.revents & POLLIN) != 0) {
            const ssize_t count = read(master, piece, sizeof piece);
            all.append(piece, count > 0 ? static_cast<std::size_t>(count) : 0);
        }
        return all;
    }

    static constexpr const char* node = "/dev/ttyUSB2";
    const int master;
};

inline bool wait_until(const auto& done, int limit_ms = 20000)
{
    for (int waited = 0; !done() && waited < limit_ms; waited++)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return done();
}

// One read of these bytes, while that command runs.
inline read_outcome hear(modem_port& port, at_info* running, std::string_view bytes)
{
    port.say(bytes);
    const auto all_there = [&] {
        int count = 0;
        ioctl(g_mobile.fd, FIONREAD, &count);
        return count >= static_cast<int>(bytes.size());
    };
    EXPECT_TRUE(wait_until(all_there)) << "the pseudo-terminal keeps bytes back";
    return libgsm_check_event(&g_mobile, running);
}

// Lines that note_line was given, in order.
inline std::vector<std::string> lines;

// A handler that ends its command on OK, and raises the event whose code follows "event ".
inline event* note_line(gsm_mobile* rec, char* line)
{
    lines.push_back(line);
    lock_scope<record_lock> guard;
    if (std::strcmp(line, "OK") == 0)
        rec->at_done = 1;
    return text_begins(line, "event ") ? raise_event(std::atoi(line + 6)) : nullptr;
}

// A node at the tail of `list`, with that handler.
inline at_info* add_node(at_list& list, int id, int seq, const char* cmd, int timeout = 3,
                         int retries = 0, at_pre_treat pre_treat = nullptr)
{
    at_info* const at = at_info_create(id, nullptr, cmd, timeout, 0, 0, note_line, seq, pre_treat,
                                       retries, nullptr);
    lock_scope<flow_lock> guard;
    at_list_append(&list, at);
    return at;
}

inline std::string in_words(const auto&... parts)
{
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

inline int count_of(const std::string& text, std::string_view needle)
{
    int count = 0;
    for (std::size_t at = 0; (at = text.find(needle, at)) != std::string::npos; at++)
        count++;
    return count;
}

// A file or folder of the test, gone ahead of it and behind it: a root may share its /tmp.
struct scratch {
    const char* path;
    explicit scratch(const char* which) : path(which) { std::filesystem::remove_all(path); }
    ~scratch() { std::filesystem::remove_all(path); }
};

// Puts a shell script in the place of a program, ahead of everything else in PATH.
inline void stand_in(const std::string& program, const std::string& script)
{
    static const scratch bin("/tmp/bin");
    const std::string folder = bin.path;
    if (std::filesystem::create_directory(folder))
        setenv("PATH", (folder + ":" + std::getenv("PATH")).c_str(), 1);
    std::ofstream(folder + "/" + program) << "#!/bin/sh\n" << script << "\n";
    std::filesystem::permissions(folder + "/" + program, std::filesystem::perms{0755});
}

} // namespace kelo::test

// Every test speaks of the library and of what stands above.
using namespace kelo;
using namespace kelo::test;
