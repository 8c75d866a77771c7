// SPDX-License-Identifier: MIT
// Where a host listens, and whoever asks it looks, unless told otherwise.
#pragma once

namespace kelo_host
{

constexpr const char* default_control_path = "/run/kelo/host.sock";

} // namespace kelo_host
