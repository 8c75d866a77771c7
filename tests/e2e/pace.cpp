// SPDX-License-Identifier: MIT
// The pace of the library: see story.h.
#include "tests/e2e/story.h"

#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <link.h>
#include <poll.h>
#include <sys/select.h>
#include <unistd.h>

using namespace kelo_story;

namespace
{

// Shorter waits are looks at something real: the end of a shell line, a message on its way.
constexpr std::int64_t shortest_us = 100000;

dl_find_object library_in_memory()
{
    dl_find_object found = {};
    _dl_find_object(dlsym(RTLD_DEFAULT, "cellular_start"), &found);
    return found;
}

const dl_find_object library = library_in_memory();

timespec paced(const void* caller, std::int64_t us)
{
    if (us >= shortest_us && in_library(caller))
        us /= pace;
    return {static_cast<std::time_t>(us / 1000000), static_cast<long>(us % 1000000 * 1000)};
}

} // namespace

// Callers may be threads that a sanitizer can't watch, since they are not yet or no more whole.
__attribute__((no_sanitize("thread"))) bool kelo_story::in_library(const void* caller)
{
    return caller >= library.dlfo_map_start && caller < library.dlfo_map_end;
}

extern "C" {

int select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* limit)
{
    if (limit == nullptr)
        return pselect(count, in, out, except, nullptr, nullptr);
    const timespec wait =
        paced(__builtin_return_address(0), limit->tv_sec * std::int64_t{1000000} + limit->tv_usec);
    return pselect(count, in, out, except, &wait, nullptr);
}

// The library waits a second for the port. What it gives a shell line is for a real program.
int poll(pollfd* ports, nfds_t count, int limit)
{
    constexpr int second = 1000;
    if (limit < 0)
        return ppoll(ports, count, nullptr, nullptr);
    const timespec wait =
        paced(limit == second ? __builtin_return_address(0) : nullptr, limit * std::int64_t{1000});
    return ppoll(ports, count, &wait, nullptr);
}

int usleep(useconds_t us)
{
    const timespec wait = paced(__builtin_return_address(0), us);
    return clock_nanosleep(CLOCK_MONOTONIC, 0, &wait, nullptr) == 0 ? 0 : -1;
}
}
