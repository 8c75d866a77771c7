// The data link and the way back up: restart, radio reset, SIM selection.
//
// Threads: restarts run on a thread of their own, since cellular_stop waits for the mobile task and
// the mobile task may be the one that asked.
// Words that leave: cell_reload_flag, cell_repower_lock, and the start flag.
#pragma once

#include "core/gsm.h"

namespace kelo
{

// restart.cpp
extern int cell_start_flag;
extern int cell_restart_flag; // 1 at load: the library itself asked for the restart
extern int restart_gate;
void cell_restart_flag_set();
void cell_restart_flag_reset();
int cell_restart_flag_get();
void* restart_cellular_thread(void* argument);

// sim_select.cpp
int select_scanmode(int sim);
const char* cellular_get_pincode();
const char* cellular_get_smscenter();

} // namespace kelo
