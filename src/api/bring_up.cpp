// SPDX-License-Identifier: MIT
// Bring-up, restart with new settings, and stop.
#include "api/api.h"

#include "link/link.h"
#include "services/services.h"
#include "support/diag.h"
#include "support/shell.h"
#include "support/sleeps.h"
#include "support/threads.h"
#include "task/task.h"
#include <kelo/host.h>

#include <unistd.h>

#pragma weak log_log

namespace kelo
{

int end_wait_ms = 60000;

dialer_tools real_dialer_tools = {
    .interface_present = interface_present,
    .link_ping = link_ping,
    .run = shell_run_quietly,
    .send_at = libgsm_send_at,
    .reset_radio = libgsm_reset_base_station,
    .restart = cellular_module_restart_extern,
    .sleep = seconds_sleep,
};

kept_link_tools real_kept_tools = {
    .interface_up = interface_up,
    .interface_addressed = interface_addressed,
    .program_there = program_there,
    .link_ping = link_ping,
    .run = shell_run_quietly,
    .start = shell_start,
    .ended = shell_ended,
    .signal = shell_signal,
    .sleep_ms = [](int ms) { microseconds_sleep(ms * 1000L); },
    .send_at = libgsm_send_at,
};

namespace
{

link_tools real_link_tools = {&real_dialer_tools, &real_kept_tools};

constexpr char debug_file[] = "/config/5Gdebug";

// A thread of the library, and whether it still runs: what an init after a stop waits for. It
// counts as running from before its creation. The body may give the record of a mobile task that is
// to run next.
struct worker {
    void* (*body)(void*);
    bool lifecycle::*alive;
};

constexpr worker start_worker = {cellular_start_thread, &lifecycle::start_thread};
constexpr worker dialer_worker = {[](void*) { return dialer_thread(&real_link_tools); },
                                  &lifecycle::dialer_thread};

void* worker_run(void* argument)
{
    const auto* const self = static_cast<const worker*>(argument);
    void* const task_of = self->body(nullptr);
    life_set(self->alive, false);
    return task_of != nullptr ? corvel_mobile_dchannel(task_of) : nullptr;
}

bool worker_create(const worker& self)
{
    life_set(self.alive, true);
    if (thread_start_detached(worker_run, const_cast<worker*>(&self)))
        return true;
    life_set(self.alive, false);
    diag_at(error, "init", "%s: failed to create thread!\n", "init5G");
    return false;
}

// Waits for the threads of the run before and closes their port. The two words beside
// global_quagga_stop are for a host that cleared that one before the threads had seen it.
bool end_old_run()
{
    const std::int64_t deadline = monotonic_ms() + end_wait_ms;
    for (;;) {
        word_set(conn_mode_flag, 1);
        const bool ended = in_life([](lifecycle& now) {
            now.mobile_task_run = false;
            return now.nothing_runs();
        });
        if (ended)
            break;
        if (monotonic_ms() >= deadline)
            return false;
        microseconds_sleep(20000);
    }
    word_set(is_pin_ready, 0);
    return cellular_stop() == 0;
}

bool refuse(const char* why)
{
    diag_at(plain, "init", "%s: refused, %s!\n", "init5G", why);
    return false;
}

// Whether an init may go on: nothing of an earlier run is left then.
bool claim_run()
{
    if (on_mobile_task())
        return refuse("the mobile task can't wait for its own end");
    const lifecycle before = in_life([](const lifecycle& now) { return now; });
    const bool stopped = word_get(global_quagga_stop) != 0 || before.nothing_runs();
    if (before.run == lifecycle::running && !stopped)
        return refuse("the library runs already");
    if (before.run != lifecycle::idle && !end_old_run())
        return refuse("threads of the run before have not ended");
    if (word_get(global_quagga_stop) != 0)
        diag_at(plain, "init", "%s: global_quagga_stop is set, the threads end at once!\n",
                "init5G");
    in_life([](lifecycle& now) { now.run = lifecycle::running; });
    return true;
}

using settings_taker = void(const cellular_setting&);

int bring_up(const cellular_setting& wanted, unsigned char low_power, settings_taker* store)
{
    if (log_log != nullptr)
        log_log(2, "init", "init5G", __LINE__, "[Cellular]---> {init5G} lowPower=%d", low_power);
    set_5g_debug(access(debug_file, F_OK) == 0 ? 1 : 0);
    word_set(g_stability5GCount, 0);
    set_network_card_flag(wanted.enable);
    net_mode_to_scan_code(wanted.net_mode);
    store(wanted);
    set_start_status(1);
    // The setters need the record, which the host may have had the library forget.
    word_set(mobile, &g_mobile);
    libgsm_set_pincode(wanted.pin);
    libgsm_set_apn(wanted.apn, wanted.user, wanted.password, wanted.auth);
    libgsm_set_low_power(low_power);
    cellular_gsm_init(low_power);
    if (!worker_create(start_worker)) {
        in_life([](lifecycle& now) { now.run = lifecycle::idle; }); // the host may try again
        return -1;
    }
    return worker_create(dialer_worker) ? 0 : -1;
}

int init_when_free(const cellular_setting& wanted, unsigned char low_power, settings_taker* store)
{
    if (!life_take(&lifecycle::init_under_way)) {
        refuse("another init is under way");
        return -1;
    }
    const int result = claim_run() ? bring_up(wanted, low_power, store) : -1;
    life_set(&lifecycle::init_under_way, false);
    return result;
}

} // namespace

} // namespace kelo

using namespace kelo;

int init5G(const struct cellular_setting* settings, unsigned char low_power)
{
    if (settings == nullptr) {
        diag_plain("init5G pass parameter error\n");
        return -1;
    }
    return init_when_free(settings_cleaned(*settings), low_power, start_settings_store);
}

int deinit5G(void)
{
    word_set(global_quagga_stop, 1);
    in_life([](lifecycle& now) {
        if (now.run == lifecycle::running)
            now.run = lifecycle::stopping;
    });
    return 0;
}

void cellular_restart(const struct cellular_setting* settings)
{
    if (settings == nullptr) {
        diag_plain("cellular_restart pass parameter error\n");
        return;
    }
    const cellular_setting wanted = settings_cleaned(*settings);
    start_settings_store(wanted);
    set_network_card_flag(wanted.enable);
    net_mode_to_scan_code(wanted.net_mode);
    libgsm_set_pincode(wanted.pin);
    libgsm_set_apn(wanted.apn, wanted.user, wanted.password, wanted.auth);
    word_set(needSetApn, 1); // ahead of the flow that looks at it
    cellular_module_restart_extern();
}

void kelo_init_cellular(const struct cellular_setting* settings, unsigned char low_power)
{
    if (settings == nullptr) {
        diag_plain("kelo_init_cellular pass parameter error\n");
        return;
    }
    diag_plain("setstatus5G->enable = %d\n\n", settings->enable);
    init_when_free(settings_cleaned(*settings), low_power, settings_store);
}

void kelo_cellular_restart(const struct cellular_setting* settings)
{
    cellular_restart(settings);
}

void kelo_deinit_cellular(void)
{
    libgsm_stop_mqtt_update();
    deinit5G();
}
