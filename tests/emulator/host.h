// The host's side of the port, for tests of the emulator: raw bytes in, raw bytes out.
#pragma once

#include "emulator/modem.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

namespace kelo_emulator
{

using namespace std::chrono_literals;

inline bool eventually(const std::function<bool()>& test, milliseconds limit = 5s)
{
    const monotonic_clock::time_point end = monotonic_clock::now() + limit;
    while (!test() && monotonic_clock::now() < end)
        usleep(5000);
    return test();
}

// A folder of its own, gone at the end.
struct scratch_folder {
    std::string path;
    scratch_folder()
    {
        char name[] = "/tmp/kelo-emulator-XXXXXX";
        path = mkdtemp(name);
    }
    ~scratch_folder() { std::filesystem::remove_all(path); }
    void write(const std::string& name, const std::string& text) const
    {
        std::ofstream(path + "/" + name) << text;
    }
    std::string read(const std::string& name) const
    {
        std::ifstream stream(path + "/" + name);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    bool has(const std::string& name, const std::string& text) const
    {
        return read(name).find(text) != std::string::npos;
    }
};

struct port_host {
    int fd;
    explicit port_host(const std::string& port)
        : fd(open(port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
    }
    ~port_host() { close(fd); }
    // Waits for room: a pseudo-terminal takes a few kB at a time.
    void send(const std::string& bytes) const
    {
        for (std::size_t done = 0; done < bytes.size();) {
            struct pollfd polled = {fd, POLLOUT, 0};
            ASSERT_EQ(poll(&polled, 1, 2000), 1);
            const ssize_t written = ::write(fd, bytes.data() + done, bytes.size() - done);
            done += written > 0 ? static_cast<std::size_t>(written) : 0;
        }
    }
    // What comes until the port is silent for `quiet`, or until `end` has come.
    std::string receive(milliseconds quiet = 150ms, const std::string& end = "") const
    {
        std::string bytes;
        while ((end.empty() || bytes.find(end) == std::string::npos) && take(bytes, quiet)) {
        }
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

  private:
    // One read. False when nothing came for `limit`, or the port is gone.
    bool take(std::string& bytes, milliseconds limit) const
    {
        struct pollfd polled = {fd, POLLIN, 0};
        if (poll(&polled, 1, static_cast<int>(limit.count())) < 1)
            return false;
        char piece[4096];
        const ssize_t length = ::read(fd, piece, sizeof piece);
        bytes.append(piece, length > 0 ? static_cast<std::size_t>(length) : 0);
        return length > 0;
    }
};

// Exactly these bytes come, and nothing right behind them.
#define EXPECT_HEARD(host, answer) EXPECT_EQ((host).hear(std::string(answer).size()), answer)

struct dialogue_step {
    std::string bytes;  // from the host; behind '!' an order
    std::string answer; // every byte that comes back
};

// A running modem with quick reports, and a host at its port. Echo is off unless asked for.
struct test_desk {
    scratch_folder folder;
    emulated_modem modem;
    std::unique_ptr<port_host> host;
    explicit test_desk(const std::string& model = "EC25",
                       const std::map<std::string, std::string>& variables = {})
    {
        modem_options options;
        options.model = model;
        options.port = port();
        options.variables = {{"report_gap_ms", "5"}, {"cmgs_ms", "20"},   {"cfun_ms", "5"},
                             {"pin_ms", "5"},        {"reset_ms", "100"}, {"echo", "0"}};
        for (const auto& [name, value] : variables)
            options.variables[name] = value;
        EXPECT_EQ(modem.start(options), "");
        host = std::make_unique<port_host>(port());
    }
    // In a device root the port stands where a device has it.
    std::string port() const
    {
        return getenv("KELO_DEVICE_ROOT") ? "/dev/ttyUSB2" : folder.path + "/ttyUSB2";
    }
    void order(const std::string& text) { EXPECT_EQ(modem.order(text), "") << text; }
    void hold(const std::vector<dialogue_step>& steps)
    {
        for (const dialogue_step& step : steps) {
            if (step.bytes[0] == '!')
                order(step.bytes.substr(1));
            else
                host->send(step.bytes);
            EXPECT_HEARD(*host, step.answer) << step.bytes;
        }
    }
};

} // namespace kelo_emulator
