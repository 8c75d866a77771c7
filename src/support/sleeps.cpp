// SPDX-License-Identifier: MIT
#include "support/sleeps.h"

#include <ctime>
#include <sys/select.h>

namespace kelo
{

namespace
{

void select_sleep(long seconds, long microseconds)
{
    timeval wait = {};
    wait.tv_sec = static_cast<time_t>(seconds);
    wait.tv_usec = static_cast<suseconds_t>(microseconds);
    select(0, nullptr, nullptr, nullptr, &wait);
}

} // namespace

void seconds_sleep(int seconds)
{
    for (; seconds > 0; seconds--)
        select_sleep(1, 0);
}

void microseconds_sleep(long microseconds)
{
    if (microseconds <= 0)
        return;
    seconds_sleep(static_cast<int>(microseconds / 1000000));
    if (microseconds % 1000000 != 0)
        select_sleep(0, microseconds % 1000000);
}

std::int64_t time_of_day_us()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

std::int64_t monotonic_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

} // namespace kelo
