// SPDX-License-Identifier: MIT
// Restart of the modem task on a thread of its own.
#include "task/task.h"

#include "support/diag.h"
#include "support/threads.h"

namespace kelo
{

namespace
{

// Whether this caller's wish leads to a restart: none is on its way or under way. `flag_before`
// gives the restart flag back that the restart raises.
bool claim_restart(int& flag_before)
{
    if (refused_in_fork("cellular_module_restart_extern"))
        return false;
    return in_life([&](lifecycle& now) {
        if (now.restart_gate || word_get(cell_repower_lock) != 0)
            return false;
        flag_before = cell_restart_flag_get();
        cell_restart_flag_set();
        return now.restart_gate = true;
    });
}

} // namespace

void* restart_cellular_thread(void*)
{
    pthread_setname_np(pthread_self(), "RestartCellular");
    const bool taken = in_life([](lifecycle& now) {
        now.restart_gate = false;
        return word_take(cell_repower_lock);
    });
    if (!taken) {
        diag_at(plain, "init", "%s: repower thread has been locked!\n", __func__);
        return nullptr;
    }
    if (cellular_stop() == 0)
        cellular_start(0);
    word_set(cell_repower_lock, 0);
    return nullptr;
}

} // namespace kelo

int cellular_module_restart_extern(void)
{
    using namespace kelo;
    int flag_before = 0;
    if (!claim_restart(flag_before))
        return 0;
    diag_at(debug, "init", "%s: ===cellular module restart!\n", __func__);
    if (!thread_start_detached(restart_cellular_thread, nullptr)) {
        // No restart comes of it: the next "+CPIN: READY" is not ours to swallow.
        word_set(cell_restart_flag, flag_before);
        life_set(&lifecycle::restart_gate, false);
        diag_at(error, "init", "%s: failed to create thread!\n", __func__);
    }
    return 0;
}

// The library never cuts the modem's power.
int mobile_power_control(void)
{
    return 0;
}
