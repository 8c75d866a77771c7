// SPDX-License-Identifier: MIT
#include "tests/testing.h"

#include <csignal>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace
{

bool deaf = false;

} // namespace

extern "C" int kill(pid_t process, int number)
{
    return deaf ? 0 : static_cast<int>(syscall(SYS_kill, process, number));
}

// A dialer that inherited the AT port would keep it from ever being a fresh one again.
TEST(Shell, GivesTheExitStatusAndNoDescriptorOfTheLibrary)
{
    modem_port port;
    EXPECT_EQ(shell_run("exit 7"), 7);
    EXPECT_EQ(shell_run("kill -9 $$"), -1);
    const captured out(STDOUT_FILENO), errors(STDERR_FILENO);
    EXPECT_EQ(shell_run_quietly("echo out; echo error >&2; exit 7"), 7);
    char text[16];
    EXPECT_TRUE(shell_find("echo error >&2; echo out", "out", 3000, text, sizeof text));
    EXPECT_EQ(out.text() + errors.text(), "");
    const std::string number = std::to_string(g_mobile.fd);
    EXPECT_EQ(shell_run(("test -e /proc/$$/fd/" + number).c_str()), 1);
}

// Catches: tools of a line that ran out of time which live on, a dialer that dies with the line
// that started it, a wait for one that no signal ends.
TEST(Shell, ALineOutOfTimeEndsWithAllThatItStarted)
{
    const auto alive = [](const char* seconds) {
        return shell_run(("! grep -saq '^sleep.*" + std::string(seconds) + "' /proc/[0-9]*/cmdline")
                             .c_str()) == 1;
    };
    const scratch pid("/tmp/pid");
    EXPECT_EQ(shell_run("sleep 987.25 & echo $! >/tmp/pid; exit 7"), 7);
    shell_limit_ms = 300;
    EXPECT_EQ(shell_run("sleep 987.75 & sh -c 'sleep 987.75; true'"), -1);
    const auto start = std::chrono::steady_clock::now();
    deaf = true; // as in a sleep of the kernel
    EXPECT_EQ(shell_run("sleep 2"), -1);
    deaf = false;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900));
    shell_limit_ms = 30000;
    EXPECT_FALSE(alive("987[.]75"));
    EXPECT_TRUE(alive("987[.]25"));
    shell_run("kill $(cat /tmp/pid)");
}

// A library that changed the signals of its host would break the host's own children and its
// Ctrl-C; a child that inherited them could not be stopped by a plain kill.
TEST(Shell, LeavesTheSignalsOfTheHostAlone)
{
    const auto on_signal = +[](int) {};
    std::signal(SIGINT, on_signal);
    std::signal(SIGTERM, SIG_IGN);
    std::signal(SIGCHLD, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);

    const scratch signals("/tmp/signals");
    shell_run("for s in INT TERM HUP; do sh -c \"kill -$s \\$\\$; echo survived $s\"; done "
              ">/tmp/signals 2>/dev/null; echo end >>/tmp/signals");
    EXPECT_EQ(content_of("/tmp/signals"), "end\n");

    EXPECT_EQ(shell_run("exit 0"), -1); // the system took the status away

    EXPECT_EQ(std::signal(SIGINT, SIG_DFL), on_signal);
}

// Tools that hang, talk without end, or leave something behind: bounded, killed, no zombie, no
// descriptor, also in a host that ignores SIGCHLD.
TEST(Shell, FindEndsWhatItStarted)
{
    constexpr std::pair<const char*, const char*> rows[] = {
        {"printf 'one\\ntwo 1\\ntwo 2\\n'", "two 1"},
        {"printf '0123456789abcdefgh two\\ntwo'", "two"},
        {"echo two; sleep 987.5", "two"},
        {"sleep 987.5 & echo two", "two"},
        {"sleep 987.5 & echo one", nullptr}, // nothing found, and the pipe stays open
        {"while :; do echo x; done", nullptr},
        {"exec >&-; sleep 987.5", nullptr}};
    const int before = dup(0);
    for (const auto disposition : {SIG_DFL, SIG_IGN}) {
        std::signal(SIGCHLD, disposition);
        for (const auto& [line, found] : rows) {
            const auto start = std::chrono::steady_clock::now();
            char text[16];
            EXPECT_EQ(shell_find(line, "two", 300, text, sizeof text), found != nullptr);
            EXPECT_STREQ(found != nullptr ? text : nullptr, found);
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
            EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << line;
        }
    }
    EXPECT_EQ(dup(0), before + 1);
    std::signal(SIGCHLD, SIG_DFL);
    // Not the status itself: it is another one when a process ends while grep looks.
    EXPECT_EQ(shell_run("! grep -saq '987[.]5' /proc/[0-9]*/cmdline"), 0);
}
