// SPDX-License-Identifier: MIT
// Files of options, what a service manager is told, and a refused PIN that outlives the process.
#include "host/options.h"
#include "host/serve/service_manager.h"
#include "host/state/refused_pin.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace kelo_host
{

namespace
{

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using std::string;

string written(const string& name, const string& text, mode_t mode = 0644)
{
    const string path = testing::TempDir() + name;
    std::ofstream(path) << text;
    chmod(path.c_str(), mode);
    return path;
}

// What is said of it; empty where it goes on.
string parsed(host_options& options, std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "kelo-host");
    testing::internal::CaptureStderr();
    const auto status =
        parse_options(static_cast<int>(arguments.size()), arguments.data(), options);
    const string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status.has_value(), !said.empty());
    EXPECT_EQ(status.value_or(exit_usage), exit_usage);
    return said;
}

TEST(ConfigFile, ABadLineIsToldByFileAndLine)
{
    const struct {
        const char* text;
        const char* fault; // behind the name of the file
        mode_t mode = 0600;
    } rows[] = {
        {"nothing = 1", ":2: there is no option nothing"},
        {"[section]", ":2: there is no option [section]"},
        {"sim = 3", ":2: --sim: Value 3 not in range"},
        {"sim =", ":2: there is no value behind the ="},
        {"sim", ":2: sim takes a value"},
        {"json = maybe", ":2: json takes true or false"},
        {"tls = a b", ":2: --tls: takes no file, or CA CERT KEY"},
        {"pin = 12x4", ":2: --pin: pin is not four to eight digits"},
        {"pin = 1234", ":2: pin is a secret, and others may open this file", 0640},
        {"mqtt-password = x", ":2: mqtt-password is a secret", 0604},
        {"sms = 1", ":2: sms is for the command line alone"},
        {"config = x", ":2: config is for the command line alone"},
        {"apn = \x01", ":2: the line holds what is no text"},
        {"apn = a\napn = b", ":3: apn is set above already"},
        {"user = a", ":2: --user requires --apn"},
    };
    for (const auto& row : rows) {
        const string path =
            written("bad.conf", string("# a comment\n") + row.text + "\n", row.mode);
        host_options options;
        const string said = parsed(options, {"--config", path.c_str(), "--mqtt=h:1", "--topic=t"});
        EXPECT_NE(said.find(path + row.fault), said.npos) << row.text << ": " << said;
    }
    host_options options;
    EXPECT_NE(parsed(options, {"--config", "/nowhere/x.conf"}).find("/nowhere/x.conf"),
              string::npos);
}

TEST(ConfigFile, AValueIsTheRestOfItsLine)
{
    const string secrets =
        written("good-secrets.conf", "password = p#w, d;[x]\nuser = last\n", 0600);
    const string path =
        written("good.conf", "apn = 'two words '\r\nuser = first\n\non-stuck = echo a, b; # c\n"
                             "json\nplain = no\nmqtt = h:1\ntopic = a,b\ntls = /a /b /c\n"
                             "control = /x\nseconds = 7\n");
    host_options options;
    EXPECT_EQ(parsed(options, {"--config", path.c_str(), "--config", secrets.c_str(), "--seconds",
                               "9", "--no-control"}),
              "");
    EXPECT_STREQ(options.settings.apn, "two words ");
    EXPECT_STREQ(options.settings.user, "last");
    EXPECT_STREQ(options.settings.password, "p#w, d;[x]");
    EXPECT_EQ(options.on_stuck, "echo a, b; # c");
    EXPECT_TRUE(options.json);
    EXPECT_FALSE(options.plain);
    ASSERT_TRUE(options.mqtt);
    EXPECT_STREQ(options.mqtt->topic, "a,b");
    EXPECT_STREQ(options.mqtt->key_file, "/c");
    EXPECT_EQ(options.seconds, 9); // the command line comes ahead,
    EXPECT_FALSE(options.control); // also of what it rules out
    EXPECT_EQ(options.files, (std::vector<string>{path, secrets}));
}

class manager_socket
{
  public:
    explicit manager_socket(const string& path)
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        fs::remove(path);
        bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    ~manager_socket() { close(fd_); }
    string heard() const
    {
        char text[512];
        const ssize_t length = recv(fd_, text, sizeof text, MSG_DONTWAIT);
        return length < 0 ? "" : string(text, static_cast<size_t>(length));
    }

  private:
    const int fd_ = socket(AF_UNIX, SOCK_DGRAM, 0);
};

TEST(ServiceManager, HearsWhatIsNewAndThatWeLive)
{
    const manager_socket manager(testing::TempDir() + "notify");
    setenv("WATCHDOG_USEC", "4000000", 1);
    service_manager told;
    EXPECT_EQ(getenv("NOTIFY_SOCKET"), nullptr) << "a dialer could speak for us";
    const auto start = service_manager::clock::now();
    const struct {
        std::chrono::milliseconds at;
        const char* status;
        const char* heard;
    } rows[] = {
        {0ms, "no port", "READY=1\nSTATUS=no port\nWATCHDOG=1\n"},
        {250ms, "no port", ""},
        {500ms, "two\nlines\x1b", "STATUS=two?lines?\n"},
        {1999ms, "two\nlines\x1b", ""},
        {2000ms, "two\nlines\x1b", "WATCHDOG=1\n"},
    };
    for (const auto& row : rows) {
        told.pass(start + row.at, row.status);
        EXPECT_EQ(manager.heard(), row.heard) << row.at.count();
    }
    told.stopping();
    EXPECT_EQ(manager.heard(), "STOPPING=1\n");
}

TEST(ServiceManager, AWatchdogOfAnotherProcessIsNotFed)
{
    const manager_socket manager(testing::TempDir() + "notify");
    setenv("WATCHDOG_USEC", "4000000", 1);
    setenv("WATCHDOG_PID", "1", 1);
    service_manager told;
    told.pass(service_manager::clock::now(), "x");
    EXPECT_EQ(manager.heard(), "READY=1\nSTATUS=x\n");
}

TEST(RefusedPin, StandsUntilAFileIsWritten)
{
    const string folder = testing::TempDir() + "run";
    fs::create_directories(folder);
    setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
    const string file = written("pin.conf", "pin = 1234\n", 0600);
    EXPECT_FALSE(refused_pin().stands({file}));
    fs::last_write_time(file, fs::file_time_type::clock::now() - 1h);
    refused_pin().note();
    EXPECT_TRUE(refused_pin().stands({file, "/nowhere"}));
    fs::last_write_time(file, fs::file_time_type::clock::now() + 1h);
    EXPECT_FALSE(refused_pin().stands({file}));
    unsetenv("RUNTIME_DIRECTORY");
    refused_pin().note();
    EXPECT_FALSE(refused_pin().stands({}));
}

} // namespace

} // namespace kelo_host
