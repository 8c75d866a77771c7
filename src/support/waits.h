// SPDX-License-Identifier: MIT
// Waits that grow from failure to failure, and chance, which keeps the devices of a fleet apart.
#pragma once

#include <cstdint>

namespace kelo
{

// `first`, doubled so many times, and never above `most`.
std::int64_t doubled(std::int64_t first, std::int64_t most, int times);

// From 0 to `limit`. Devices that were started together have one clock, but not one source of this.
int random_up_to(int limit);

} // namespace kelo
