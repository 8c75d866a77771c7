// The library's own time, in which the stories are told.
//
// The library spends nearly all of its time waiting: for its pace, for a second of silence on the
// port, between two looks at the link. The program of the stories has a select, a poll and a usleep
// ahead of libc's; in them the waits of libkelo.so, and of nobody else, are pace() times shorter.
// The library itself is the one that ships.
#pragma once

#include <chrono>

namespace kelo_story
{

// 1: as told. Set ahead of the start; a story about times keeps 1.
void set_pace(int times_as_fast);
int pace();

// What the library's `told` time is on the clock of the test.
inline std::chrono::milliseconds real(std::chrono::milliseconds told)
{
    return told / pace();
}

// Whether a return address stands in libkelo.so.
bool in_library(const void* caller);

} // namespace kelo_story
