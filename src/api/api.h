// SPDX-License-Identifier: MIT
// The host's interface: bring-up, settings, and what a host asks for.
//
// Threads: the calls come in on host threads.
// Words that leave: g_netWorkCardFlag, start_status, needSetApn, global_quagga_stop, cell_pdpdeact.
#pragma once

#include "link/link.h"

namespace kelo
{

// apply_settings.cpp
void net_mode_to_scan_code(int net_mode);

// bring_up.cpp

// How long an init after a stop waits for the threads of the run before it.
extern int end_wait_ms;

// What the dialer does to the world outside.
extern dialer_tools real_dialer_tools;

} // namespace kelo
