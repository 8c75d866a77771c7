// SPDX-License-Identifier: MIT
#include "support/shell.h"

#include "support/diag.h"
#include "support/sleeps.h"
#include <kelo/host.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#pragma weak kelo_system

extern char** environ;

namespace kelo
{

namespace
{

// No report that is read here comes near it; a tool that never stops talking ends here.
constexpr std::size_t output_limit = 65536;

// How long a line may go on once nobody reads it.
constexpr int grace_ms = 1000;

// The child starts with the signals of a fresh process, whatever the host has done to its own, and
// in a group of its own, so that it can be killed with all that it has started.
bool prepare(posix_spawnattr_t& attributes)
{
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    constexpr int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP;
    return posix_spawnattr_setsigmask(&attributes, &none) == 0 &&
           posix_spawnattr_setsigdefault(&attributes, &all) == 0 &&
           posix_spawnattr_setpgroup(&attributes, 0) == 0 &&
           posix_spawnattr_setflags(&attributes, static_cast<short>(flags)) == 0;
}

// Starts the shell on a line; -1, and said so, when that fails. With `output` it writes there, and
// its errors go nowhere; with -1 it writes where the host does.
pid_t start(const char* line, int output)
{
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    if (posix_spawnattr_init(&attributes) != 0)
        return -1;
    posix_spawn_file_actions_init(&actions);
    char shell[] = "sh";
    char option[] = "-c";
    char* const arguments[] = {shell, option, const_cast<char*>(line), nullptr};
    pid_t child = -1;
    int error = ENOMEM;
    if (prepare(attributes) &&
        (output < 0 || (posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO) == 0 &&
                        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null",
                                                         O_WRONLY, 0) == 0)))
        error = posix_spawn(&child, "/bin/sh", &actions, &attributes, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error == 0)
        return child;
    diag_at(plain, "shell", "failed to run '%s': %s\n", line, std::strerror(error));
    return -1;
}

// Waits for the shell, and kills its whole group when time is over; `leaves_nothing`: also what is
// left of the group behind its end. A host that reaps every child itself, or ignores SIGCHLD, takes
// the status away: then the line is over and its status unknown.
int await_end(pid_t shell, bool leaves_nothing, std::int64_t deadline)
{
    bool killed = false;
    long pause_us = 500;
    for (;;) {
        siginfo_t ended = {};
        // Not reaped yet: until then, or while something is left of it, no other group has the
        // number.
        if (waitid(P_PID, static_cast<id_t>(shell), &ended, WEXITED | WNOHANG | WNOWAIT) != 0) {
            if (leaves_nothing && getpgid(shell) < 0)
                kill(-shell, SIGKILL);
            return -1;
        }
        if (ended.si_pid == shell)
            break;
        if (monotonic_ms() > deadline) {
            // One that hangs in the kernel is not over by that: it is left behind.
            if (killed || kill(-shell, SIGKILL) != 0)
                return -1;
            killed = true;
            deadline = monotonic_ms() + grace_ms;
        }
        microseconds_sleep(pause_us);
        if (pause_us < 16000)
            pause_us *= 2;
    }
    if (leaves_nothing)
        kill(-shell, SIGKILL);
    int status = 0;
    const bool reaped = waitpid(shell, &status, WNOHANG) == shell;
    return reaped && !killed && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int run_out(pid_t shell)
{
    return shell > 0 ? await_end(shell, false, monotonic_ms() + shell_limit_ms) : -1;
}

// Cuts what comes into lines; a line is cut to the room that it has, and the rest of it passed
// over.
struct line_cutter {
    const char* needle;
    char* text;
    std::size_t size;
    std::size_t length;

    // True once the line that `text` holds is the one looked for.
    bool take(char byte)
    {
        if (byte != '\n') {
            if (byte != '\0' && length + 1 < size)
                text[length++] = byte;
            return false;
        }
        return end();
    }
    bool end()
    {
        text[length] = '\0';
        length = 0;
        return std::strstr(text, needle) != nullptr;
    }
};

bool read_until(int fd, line_cutter& cutter, std::int64_t deadline)
{
    std::size_t total = 0;
    while (total < output_limit) {
        const std::int64_t left = deadline - monotonic_ms();
        pollfd ready = {fd, POLLIN, 0};
        const int came = left > 0 ? poll(&ready, 1, static_cast<int>(left)) : 0;
        if (came < 0 && errno == EINTR)
            continue;
        if (came <= 0)
            return false;
        char piece[512];
        const ssize_t count = read(fd, piece, sizeof piece);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count == 0 && cutter.end(); // the last line needs no line feed
        for (ssize_t i = 0; i < count; i++) {
            if (cutter.take(piece[i]))
                return true;
        }
        total += static_cast<std::size_t>(count);
    }
    return false;
}

bool is_plain(char c)
{
    return std::strchr("@%_+=:,./-", c) != nullptr || (c >= '0' && c <= '9') ||
           (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

} // namespace

int shell_limit_ms = 30000;

int shell_run(const char* line)
{
    return run_out(start(line, -1));
}

int shell_run_quietly(const char* line)
{
    return run_out(shell_start(line));
}

bool shell_find(const char* line, const char* needle, int limit_ms, char* found, std::size_t size)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    const std::int64_t deadline = monotonic_ms() + limit_ms;
    const pid_t shell = start(line, ends[1]);
    close(ends[1]);
    line_cutter cutter = {needle, found, size, 0};
    const bool hit = shell > 0 && read_until(ends[0], cutter, deadline);
    close(ends[0]);
    if (shell > 0)
        await_end(shell, true, std::min(deadline, monotonic_ms() + grace_ms));
    return hit;
}

bool shell_quote(char* line, std::size_t size, const char* value)
{
    const std::size_t before = std::strlen(line);
    std::size_t length = before;
    bool fits = true;
    const auto put = [&](char c) {
        if (length + 1 < size)
            line[length++] = c;
        else
            fits = false;
    };
    bool plain = *value != '\0';
    for (const char* at = value; *at != '\0'; at++)
        plain = plain && is_plain(*at);
    if (!plain)
        put('\'');
    for (const char* at = value; *at != '\0'; at++) {
        put(*at);
        if (*at == '\'') { // out of the quotes, the mark itself, and back in
            put('\\');
            put('\'');
            put('\'');
        }
    }
    if (!plain)
        put('\'');
    line[fits ? length : before] = '\0';
    return fits;
}

int shell_start(const char* line)
{
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t child = start(line, nowhere);
    if (nowhere >= 0)
        close(nowhere);
    return child;
}

bool shell_ended(int process, int& status)
{
    int raw = 0;
    const pid_t ended = waitpid(process, &raw, WNOHANG);
    status = ended == process && WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return ended != 0 && (ended > 0 || errno == ECHILD);
}

void shell_signal(int process, int number)
{
    if (process > 1)
        kill(-process, number);
}

bool program_there(const char* name)
{
    const char* const path = std::getenv("PATH");
    for (const char* folder = path != nullptr ? path : "/bin:/usr/bin"; *folder != '\0';) {
        const std::size_t length = std::strcspn(folder, ":");
        char file[256];
        const int wanted =
            std::snprintf(file, sizeof file, "%.*s/%s", static_cast<int>(length), folder, name);
        if (wanted < static_cast<int>(sizeof file) && access(file, X_OK) == 0)
            return true;
        folder += length;
        if (*folder == ':')
            folder++;
    }
    return false;
}

int shell_run_by_host(const char* line)
{
    return kelo_system != nullptr ? kelo_system(line) : shell_run(line);
}

} // namespace kelo
