#include "support/shell.h"

#include "support/diag.h"
#include "support/sleeps.h"
#include <kelo/host.h>

#include <csignal>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#pragma weak kelo_system

extern char** environ;

namespace kelo
{

namespace
{

// Longer than any line of the library takes on a loaded device; a tool that hangs must not keep a
// start or a stop from ever coming back.
constexpr int time_limit_ms = 30000;

// The child starts with the signals of a fresh process, whatever the host has done to its own.
bool prepare(posix_spawnattr_t& attributes)
{
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    return posix_spawnattr_setsigmask(&attributes, &none) == 0 &&
           posix_spawnattr_setsigdefault(&attributes, &all) == 0 &&
           posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) ==
               0;
}

// Waits for the child. A host that reaps every child itself, or ignores SIGCHLD, takes the status
// away: then the line is over and its status unknown.
int await_end(pid_t child)
{
    int status = 0;
    pid_t ended = 0;
    const std::int64_t deadline = monotonic_ms() + time_limit_ms;
    long pause_us = 500;
    while ((ended = waitpid(child, &status, WNOHANG)) == 0) {
        if (monotonic_ms() > deadline) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return -1;
        }
        microseconds_sleep(pause_us);
        if (pause_us < 16000)
            pause_us *= 2;
    }
    return ended == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

int shell_run(const char* line)
{
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0)
        return -1;
    char shell[] = "sh";
    char option[] = "-c";
    char* const arguments[] = {shell, option, const_cast<char*>(line), nullptr};
    pid_t child = -1;
    int error = 0;
    if (prepare(attributes))
        error = posix_spawn(&child, "/bin/sh", nullptr, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0 || child < 0) {
        diag_plain("%s:%d failed to run '%s': %s\n", __func__, __LINE__, line,
                   std::strerror(error));
        return -1;
    }
    return await_end(child);
}

int shell_run_by_host(const char* line)
{
    return kelo_system != nullptr ? kelo_system(line) : shell_run(line);
}

} // namespace kelo
