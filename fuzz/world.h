// SPDX-License-Identifier: MIT
// A world for the whole library in one thread and in no time: its threads are fibers that change at
// their waits, its clock goes from one wait's end to the next, its port is a socket whose far end
// the fuzz target holds, and no program of the system runs. The linker puts these functions in the
// place of libc's (fuzz/CMakeLists.txt), for whoever runs inside world::run.
#pragma once

#include <cstdint>
#include <functional>

namespace fuzz_world
{

void require(bool holds, const char* what);
#define REQUIRE(condition) fuzz_world::require(condition, #condition)

// Once, with the library as it is at the start of each input.
void remember();

// One input: the library as remembered, `body` on the host's thread. What the library has left on
// the heap is freed behind it.
void run(const std::function<void()>& body);

std::int64_t now_us(); // since the start of the input

// The host's thread waits; fibers and the far end go on.
void pass_time(std::int64_t us);

int fibers(); // threads that have not ended

// The far end: what it does at each step, and when it wants the next by itself.
struct far_end {
    std::function<void()> step;
    std::function<std::int64_t()> next_us;
};
void set_far_end(const far_end& other);

// The node of the port: the path by which it is named, and the end that an open gets; -1: no node.
inline constexpr char port_path[] = "/proc/self/exe"; // a regular file has the number of no device
void set_port(int end);

} // namespace fuzz_world
