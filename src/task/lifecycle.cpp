// SPDX-License-Identifier: MIT
// Start, stop and reload of the modem, and the words that keep them apart.

#include "task/task.h"

#include "core/family.h"
#include "modules/modules.h"
#include "sms/sms.h"
#include "support/diag.h"
#include "support/shell.h"
#include "support/sleeps.h"
#include "support/threads.h"
#include "support/wakeup.h"

#include <cerrno>
#include <cstring>
#include <pthread.h>
#include <unistd.h>

namespace kelo
{

lock life_lock;
lifecycle life;

bool lifecycle::nothing_runs() const
{
    return !start_thread && !dialer_thread && mobile_task_stopped && !cell_start_lock &&
           !restart_gate && word_get(cell_repower_lock) == 0;
}

namespace
{

// A fork reads what it has of the record; the modem, and all that acts on it, stays with the
// parent.
void in_fork()
{
    if (life.nothing_runs())
        return;
    locks_abandon();
    if (g_mobile.fd >= 0)
        close(g_mobile.fd);
    g_mobile.fd = -1;
}

[[gnu::constructor]] void watch_forks()
{
    pthread_atfork(nullptr, nullptr, in_fork);
}

// The rows and profiles of libgsm_init are there for good once they were added.
bool lists_filled = false;

// What an earlier run, or another program, may have left running on the modem.
constexpr const char* stale_programs[] = {
    "killall -q -15 quectel-CM",  "killall -q -15 fibocom-dial", "killall -q -15 udhcpc",
    "killall -q -15 quectel_log", "killall -q -15 lsqxdm",       "ifconfig wwan0 down",
};

void create_mobile_task(gsm_mobile* rec)
{
    if (thread_start_detached(corvel_mobile_dchannel, rec))
        return;
    life_set(&lifecycle::mobile_task_stopped, true);
    diag_at(error, "gsm", "%s: failed to create thread!!!\n", "cellular_start");
}

// Gives whose task is to run to a caller that runs it, else it has a thread of its own.
void start_locked(gsm_mobile** task_of)
{
    life_set(&lifecycle::mobile_task_run, true);
    // With nothing to start, the lines below would stop programs of others for nothing.
    if (word_get(keeper_on) != 0 && !port_there()) {
        word_set(port_error, ENOENT);
        return;
    }
    word_add(start_count, 1);
    word_set(is_pin_ready, 0);
    for (const char* line : stale_programs)
        shell_run(line);
    if (!slot_by_command())
        select_scanmode(word_get(selected_card));
    copy_sim_settings();
    gsm_mobile* const rec = modem_record();
    if (libgsm_start(rec, word_get(selected_card)) != 0)
        return;
    // The task counts as running from here on, so that a stop right behind waits for it.
    life_set(&lifecycle::mobile_task_stopped, false);
    if (task_of != nullptr)
        *task_of = rec;
    else
        create_mobile_task(rec);
    life_set(&lifecycle::at_ready, true);
}

int start_modem(int low_power, gsm_mobile** task_of)
{
    diag_plain("--------------------> cellular_start = %d \n", low_power);
    if (!life_take(&lifecycle::cell_start_lock)) {
        diag_at(plain, "gsm", "%s: cellular start thread has been locked!\n", "cellular_start");
        return -1;
    }
    // A second task would read the same port and lose half of every answer.
    const bool running = !life_get(&lifecycle::mobile_task_stopped);
    if (running)
        diag_at(plain, "gsm", "%s: the mobile task runs already!\n", "cellular_start");
    else
        start_locked(task_of);
    life_set(&lifecycle::cell_start_lock, false);
    wake_host();
    return running ? -1 : 0;
}

} // namespace

int libgsm_init(gsm_mobile** place, unsigned char low_power)
{
    if (!lists_filled) {
        lists_filled = true;
        exchange_use(task_hooks);
        search_cfg_folders();
        modules_of_files();
        at_list_add_first_rows(&start_sim1_list, low_power != 0);
    }
    word_set(*place, &g_mobile);
    return 0;
}

int libgsm_start(gsm_mobile* rec, int sim)
{
    if (rec == nullptr)
        return -1;
    libgsm_change_flow(rec, FLOW_START, sim);
    libgsm_search_usb_port(rec);
    if (libgsm_mobile_open_usb(rec) != 0)
        return -1;
    sms_port_fresh(rec);
    lock_scope<record_lock> guard;
    rec->at_done = 1;
    return 0;
}

void libgsm_stop(gsm_mobile* rec)
{
    if (rec == nullptr)
        return;
    {
        lock_scope<record_lock> guard;
        rec->at_done = 0;
    }
    libgsm_mobile_close_usb(rec);
}

void cellular_gsm_free()
{
    libgsm_stop(modem_record());
}

// Gives the record that the mobile task is to run on, here: the C library keeps the stack of a
// thread that is over, and this one's is as good as any.
void* cellular_start_thread(void*)
{
    pthread_setname_np(pthread_self(), "CellularStart");
    gsm_mobile* task_of = nullptr;
    start_modem(word_get(isLowPower), &task_of);
    return task_of;
}

} // namespace kelo

using namespace kelo;

int cellular_gsm_init(unsigned char low_power)
{
    word_set(conn_mode_flag, 0);
    return libgsm_init(&mobile, low_power);
}

int cellular_start(int low_power)
{
    return start_modem(low_power, nullptr);
}

int cellular_stop()
{
    if (on_mobile_task()) {
        diag_at(plain, "gsm", "%s: the mobile task can't wait for its own end!\n", __func__);
        return -1;
    }
    if (!life_take(&lifecycle::cell_start_lock)) {
        diag_at(plain, "gsm", "%s: cellular stop thread has been locked!\n", __func__);
        return -1;
    }
    life_set(&lifecycle::mobile_task_run, false);
    cellular_reset_status();
    while (!life_get(&lifecycle::mobile_task_stopped))
        seconds_sleep(1);
    cellular_gsm_free();
    life_set(&lifecycle::cell_start_lock, false);
    wake_host();
    return 0;
}

int cellular_reload()
{
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr) {
        diag_at(plain, "gsm", "%s: unexpected error!\n", __func__);
        return -1;
    }
    if (word_get(cell_repower_lock) != 0 || !life_take(&lifecycle::cell_start_lock)) {
        diag_at(plain, "gsm", "%s: cellular reload thread has been locked!\n", __func__);
        return -1;
    }
    diag_at(plain, "gsm", "%s: reloading cellular modem...\n", __func__);
    word_add(reload_count, 1);
    cellular_reset_status();
    word_set(sms_pending_count, 0);
    libgsm_change_flow(rec, FLOW_RELOAD, word_get(selected_card));
    copy_sim_settings();
    cell_reload_flag_unset();
    life_set(&lifecycle::cell_start_lock, false);
    return 0;
}

int cellular_at_is_ready()
{
    return life_get(&lifecycle::at_ready) ? 1 : 0;
}
