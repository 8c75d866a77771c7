// The host's side of the port, for tests of the emulator: raw bytes in, raw bytes out.
#pragma once

#include "emulator/modem.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace kelo_emulator
{

using namespace std::chrono_literals;

inline bool eventually(const std::function<bool()>& test, milliseconds limit = 5s)
{
    const Clock::time_point end = Clock::now() + limit;
    while (!test() && Clock::now() < end)
        usleep(5000);
    return test();
}

// A folder of its own, gone at the end.
struct Folder {
    std::string path;
    Folder()
    {
        char name[] = "/tmp/kelo-emulator-XXXXXX";
        path = mkdtemp(name);
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    void write(const std::string& name, const std::string& text) const
    {
        std::ofstream(path + "/" + name) << text;
    }
};

struct Host {
    int fd = -1;
    explicit Host(const std::string& port)
    {
        fd = open(port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    }
    ~Host() { hang_up(); }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    void hang_up()
    {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }
    // Waits for room: a pseudo-terminal takes a few kB at a time.
    void send(const std::string& bytes) const
    {
        std::size_t done = 0;
        while (done < bytes.size()) {
            struct pollfd polled = {fd, POLLOUT, 0};
            ASSERT_EQ(poll(&polled, 1, 2000), 1);
            const ssize_t written = ::write(fd, bytes.data() + done, bytes.size() - done);
            ASSERT_TRUE(written > 0 || errno == EAGAIN);
            done += written > 0 ? static_cast<std::size_t>(written) : 0;
        }
    }
    // What comes until the port is silent for `quiet`, or until `end` has come.
    std::string receive(milliseconds quiet = 150ms, const std::string& end = "") const
    {
        std::string bytes;
        while (take(bytes, quiet))
            if (!end.empty() && bytes.find(end) != std::string::npos)
                break;
        return bytes;
    }
    // Waits for `least` bytes, however slow the machine; then what else comes right behind them.
    std::string hear(std::size_t least) const
    {
        std::string bytes;
        while (bytes.size() < least && take(bytes, 3s)) {
        }
        return bytes + receive(40ms);
    }
    // The answer to a command, with its final result, and what comes right behind it.
    std::string ask(const std::string& command) const
    {
        send(command + "\r\n");
        std::string bytes;
        while (bytes.find("OK\r\n") == std::string::npos &&
               bytes.find("ERROR") == std::string::npos &&
               bytes.find("CONNECT\r\n") == std::string::npos && take(bytes, 3s)) {
        }
        return bytes + receive(40ms);
    }

  private:
    // One read. False when nothing came for `limit`, or the port is gone.
    bool take(std::string& bytes, milliseconds limit) const
    {
        struct pollfd polled = {fd, POLLIN, 0};
        if (poll(&polled, 1, static_cast<int>(limit.count())) < 1)
            return false;
        char piece[4096];
        const ssize_t length = read(fd, piece, sizeof piece);
        if (length > 0)
            bytes.append(piece, static_cast<std::size_t>(length));
        return length > 0;
    }
};

// Exactly these bytes come, and nothing right behind them.
#define EXPECT_HEARD(host, answer) EXPECT_EQ((host).hear(std::string(answer).size()), answer)

// A running modem with quick reports, and a host at its port. Echo is off unless asked for.
struct Desk {
    Folder folder;
    Modem modem;
    std::unique_ptr<Host> host;
    explicit Desk(const std::string& model = "EC25",
                  std::map<std::string, std::string> variables = {})
    {
        Options options;
        options.model = model;
        options.port = port();
        options.variables = {{"report_gap_ms", "5"}, {"cmgs_ms", "20"},   {"cfun_ms", "5"},
                             {"pin_ms", "5"},        {"reset_ms", "100"}, {"echo", "0"}};
        for (const auto& [name, value] : variables)
            options.variables[name] = value;
        EXPECT_EQ(modem.start(options), "");
        host = std::make_unique<Host>(port());
        EXPECT_GE(host->fd, 0);
    }
    // In a device root the port stands where a device has it.
    std::string port() const
    {
        return getenv("KELO_DEVICE_ROOT") ? "/dev/ttyUSB2" : folder.path + "/ttyUSB2";
    }
    std::string ask(const std::string& command) const { return host->ask(command); }
    void order(const std::string& text) { EXPECT_EQ(modem.order(text), "") << text; }
};

} // namespace kelo_emulator
