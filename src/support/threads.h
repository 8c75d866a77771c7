// SPDX-License-Identifier: MIT
// Threads that nobody joins.
#pragma once

namespace kelo
{

// Starts a detached thread. False when it could not be made.
bool thread_start_detached(void* (*body)(void*), void* argument);

} // namespace kelo
