// SPDX-License-Identifier: MIT
// Time: sleeps that a signal may shorten but not fail, and the two clocks.
#pragma once

#include <cstdint>

namespace kelo
{

// n waits of one second, each a select without descriptors.
void seconds_sleep(int seconds);

// The whole seconds in the same way, then one select for the rest.
void microseconds_sleep(long microseconds);

// Time of day in microseconds; it may step.
std::int64_t time_of_day_us();

// Milliseconds of a clock that never steps.
std::int64_t monotonic_ms();

} // namespace kelo
