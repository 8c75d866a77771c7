// SPDX-License-Identifier: MIT
// Wakes a host that waits at kelo_event_fd (kelo/event.h).
#pragma once

namespace kelo
{

// There is something new to poll for, and it stands where the host will look. From any thread,
// under any lock; nothing for a host that has not asked.
void wake_host();

// Whether one has.
bool host_is_woken();

} // namespace kelo
