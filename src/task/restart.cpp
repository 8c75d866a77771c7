// Restart of the modem task on a thread of its own, and the flags that say what is wanted.
#include "task/task.h"

#include "support/diag.h"
#include "support/threads.h"

// Taken by the restart thread for its stop and start.
int cell_repower_lock = 0;

namespace kelo
{

// Taken from the wish for a restart until its thread holds cell_repower_lock or has given up, so
// that one of the two is taken for as long as a restart is on its way.
int restart_gate = 0;

void* restart_cellular_thread(void*)
{
    pthread_setname_np(pthread_self(), "RestartCellular");
    const bool taken = word_take(cell_repower_lock);
    word_set(restart_gate, 0);
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
    // The gate first: whoever holds it knows that no thread is between the gate and the lock.
    if (!word_take(restart_gate))
        return 0;
    if (word_get(cell_repower_lock) != 0) {
        word_set(restart_gate, 0);
        return 0;
    }
    const int flag_before = cell_restart_flag_get();
    cell_restart_flag_set();
    diag_at(debug, "init", "%s: ===cellular module restart!\n", __func__);
    if (!thread_start_detached(restart_cellular_thread, nullptr)) {
        // No restart comes of it: the next "+CPIN: READY" is not ours to swallow.
        word_set(cell_restart_flag, flag_before);
        word_set(restart_gate, 0);
        diag_at(error, "init", "%s: failed to create thread!\n", __func__);
    }
    return 0;
}

// The library never cuts the modem's power.
int mobile_power_control(void)
{
    return 0;
}
