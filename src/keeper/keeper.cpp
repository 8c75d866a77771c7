// SPDX-License-Identifier: MIT
// The Keeper thread, what it sees and does, and the calls of kelo/keeper.h.
#include "keeper/keeper.h"

#include "core/family.h"
#include "modules/modules.h"
#include "support/diag.h"
#include "support/sleeps.h"
#include "support/text.h"
#include "support/threads.h"
#include "support/wakeup.h"
#include "task/task.h"
#include <kelo/status.h>

#include <algorithm>
#include <iterator>
#include <poll.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace kelo
{

namespace
{

// ---- The world

// False while nothing runs: a host may still be filling its words then, and none is looked at. A
// modem that belongs to another program is not ours to restart.
bool look_at_life(keeper_sight& sight)
{
    const lifecycle now = in_life([](const lifecycle& as_is) { return as_is; });
    sight.running = now.run == lifecycle::running && !now.init_under_way &&
                    word_get(global_quagga_stop) == 0 && !left_alone();
    sight.wanted = now.mobile_task_run;
    sight.busy = now.start_thread || now.cell_start_lock || now.restart_gate ||
                 word_get(cell_repower_lock) != 0;
    sight.open = sight.running && !now.mobile_task_stopped && !port_lost(&g_mobile);
    return sight.running;
}

void look_at_record(keeper_sight& sight)
{
    const lock_scope<record_lock> hold;
    const gsm_mobile* const rec = modem_record();
    if (rec == nullptr)
        return;
    sight.identified = *rec->imsi != '\0';
    sight.registered = is_registered(rec->reg_status);
    // The network's answer outlives a question for the operator, which knows yes and no alone.
    sight.denied =
        rec->reg_status == KELO_REGISTRATION_DENIED ||
        (rec->reg_status == KELO_REGISTRATION_NONE && rec->reg_stat == KELO_REGISTRATION_DENIED);
    sight.unlisted = *rec->model == '\0' && *module_unlisted() != '\0';
    sight.unknown_module = sight.walked && *rec->model != '\0' && *rec->revision != '\0' &&
                           module_steps(rec->model, rec->revision, FLOW_START).empty();
}

keeper_sight look()
{
    keeper_sight sight;
    if (!look_at_life(sight))
        return sight;
    sight.there = port_there();
    sight.open_error = word_get(port_error);
    sight.heard = word_get(reads_heard);
    sight.at_work = word_get(modem_at_work) != 0;
    sight.walked = word_get(flow_walked) != 0;
    look_at_record(sight);
    sight.reload_wanted = word_get(cell_reload_flag) != 0;
    sight.start_wanted = word_get(cell_start_flag) != 0;
    sight.sim = sim_guard_look();
    sight.ready = cellular_get_status(CELL_STATUS_READY) != 0;
    sight.radio = word_get(radio_answer);
    sight.link_wanted = word_get(g_netWorkCardFlag) != 0;
    sight.link_up = get_cell_network_up() != 0;
    sight.link = static_cast<link_state>(word_get(link_trouble));
    sight.link_due_ms = word_get(link_due_s) * 1000LL;
    sight.reset_wanted = word_get(radio_reset_wanted) != 0;
    return sight;
}

void show_lock(unsigned int status)
{
    constexpr unsigned int all =
        CELL_STATUS_PIN_REQUIRED | CELL_STATUS_PIN_ERROR | CELL_STATUS_PUK_REQUIRED;
    cellular_clear_status(all & ~status);
    if (status == 0)
        return;
    cellular_clear_status(CELL_STATUS_NO_SIM);
    cellular_set_status(status);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
void say(const char* text, int number)
{
    diag_plain(text, number);
}
#pragma GCC diagnostic pop

} // namespace

const keeper_tools real_keeper_tools = {
    .look = look,
    .restart = [] { cellular_module_restart_extern(); },
    .reload = [] { cellular_reload(); },
    .reset_radio = [] { libgsm_reset_base_station(); },
    .send_at = [](const char* text) { libgsm_send_at(text); },
    .drop = [](int& word) { word_set(word, 0); },
    .hold_link = [](bool held) { word_set(link_held, held ? 1 : 0); },
    .redial = [] { word_set(redial_wanted, 1); },
    .unlock = [] { word_set(is_pin_ready, 1); },
    .show_lock = show_lock,
    .say = say,
    .tell = [](kelo_reason reason) { diag_plain("keeper: %s\n", kelo_reason_name(reason)); },
};

namespace
{

// ---- The thread

// What the calls and the thread share; guarded by keeper_lock, a leaf.
struct keeper {
    bool wanted = false;
    bool alive = false; // its thread
    kelo_keeper rules{};
    kelo_figures figures{};
    kelo_reason reason = KELO_REASON_STOPPED;
};
lock keeper_lock;
keeper shared;

// The keeper's own state lives through stops and new figures.
keeper_state state = {.tools = &real_keeper_tools};

int watch_devices()
{
    const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd >= 0 && inotify_add_watch(fd, "/dev", IN_CREATE | IN_DELETE | IN_MOVE | IN_ATTRIB) < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Until the next pass is due, or the devices change. Without the watch the pass alone looks at
// them.
void wait_for_devices(int fd, int ms)
{
    pollfd ready = {fd, POLLIN, 0};
    if (poll(&ready, fd >= 0 ? 1 : 0, ms) <= 0)
        return;
    alignas(inotify_event) char bytes[1024];
    while (read(fd, bytes, sizeof bytes) > 0) {
    }
    microseconds_sleep(20000); // udev sets the owner behind the creation; and no busy loop
}

// False ends the thread.
bool take_rules()
{
    const lock_scope<keeper_lock> hold;
    state.rules = shared.rules;
    shared.alive = shared.wanted;
    return shared.wanted;
}

void publish()
{
    kelo_figures figures = state.figures;
    figures.size = sizeof figures;
    figures.starts = static_cast<unsigned int>(word_get(start_count));
    figures.reloads = static_cast<unsigned int>(word_get(reload_count));
    figures.radio_resets = static_cast<unsigned int>(word_get(radio_reset_count));
    figures.dials = static_cast<unsigned int>(word_get(dial_count));
    figures.link_losses = static_cast<unsigned int>(word_get(link_loss_count));
    const lock_scope<keeper_lock> hold;
    const kelo_reason reason = shared.wanted ? state.reason : KELO_REASON_STOPPED;
    const bool news = reason != shared.reason || figures.action != shared.figures.action;
    shared.figures = figures;
    shared.reason = reason;
    if (news)
        wake_host();
}

void call_stuck()
{
    const int number = std::exchange(state.stuck_number, 0);
    if (number != 0 && state.rules.stuck != nullptr)
        state.rules.stuck(number, state.rules.context);
}

void* keeper_thread(void*)
{
    pthread_setname_np(pthread_self(), "Keeper");
    const int devices = watch_devices();
    while (take_rules()) {
        const int ms = keeper_pass(state, monotonic_ms());
        publish();
        call_stuck();
        wait_for_devices(devices, ms);
    }
    if (devices >= 0)
        close(devices);
    return nullptr;
}

// ---- The figures of a host

struct range_row {
    const char* name;
    unsigned int kelo_keeper::*field;
    unsigned int least, most, standard;
};
constexpr unsigned int day_s = 86400;
// clang-format off
constexpr range_row range_rows[] = {
    {"search_s",         &kelo_keeper::search_s,         1, day_s,  360},
    {"search_most_s",    &kelo_keeper::search_most_s,    1, day_s, 1800},
    {"ask_s",            &kelo_keeper::ask_s,            1, day_s,   15},
    {"dial_s",           &kelo_keeper::dial_s,           1, day_s,   45},
    {"redial_s",         &kelo_keeper::redial_s,         1, day_s,   10},
    {"redial_most_s",    &kelo_keeper::redial_most_s,    1, day_s,  900},
    {"spread_percent",   &kelo_keeper::spread_percent,   0,    50,   20},
    {"pin_tries_least",  &kelo_keeper::pin_tries_least,  1,     3,    3},
    {"silent_s",         &kelo_keeper::silent_s,         1, day_s,   60},
    {"first_restart_s",  &kelo_keeper::first_restart_s,  1, day_s,  120},
    {"second_restart_s", &kelo_keeper::second_restart_s, 1, day_s,  600},
    {"power_s",          &kelo_keeper::power_s,          1, day_s,  900},
    {"dial_spread_s",    &kelo_keeper::dial_spread_s,    0,  3600,    0},
};
// clang-format on

kelo_keeper defaults()
{
    kelo_keeper rules{};
    rules.size = sizeof rules;
    for (const range_row& row : range_rows)
        rules.*row.field = row.standard;
    return rules;
}

bool refuse(const char* what)
{
    diag_plain("kelo_keep: refused, %s\n", what);
    return false;
}

bool are_usable(const kelo_keeper& rules)
{
    for (const range_row& row : range_rows) {
        if (rules.*row.field >= row.least && rules.*row.field <= row.most)
            continue;
        diag_plain("kelo_keep: refused, %s is %u, not %u to %u\n", row.name, rules.*row.field,
                   row.least, row.most);
        return false;
    }
    if (std::memchr(rules.second_ping_target, '\0', sizeof rules.second_ping_target) == nullptr)
        return refuse("second_ping_target has no end");
    if (rules.second_ping_target[0] == '-' || text_has_control(rules.second_ping_target))
        return refuse("second_ping_target begins with '-' or holds a control character");
    return true;
}

bool read_rules(const kelo_keeper* given, kelo_keeper& rules)
{
    rules = defaults();
    if (given == nullptr)
        return true;
    if (given->size <= sizeof given->size)
        return refuse("its size is not set");
    std::memcpy(&rules, given, std::min(given->size, sizeof rules));
    rules.size = sizeof rules;
    return are_usable(rules);
}

link_waits waits_of(const kelo_keeper& rules)
{
    link_waits waits;
    waits.dial_s = static_cast<int>(rules.dial_s);
    waits.redial_s = static_cast<int>(rules.redial_s);
    waits.redial_most_s = static_cast<int>(rules.redial_most_s);
    waits.spread_percent = static_cast<int>(rules.spread_percent);
    waits.dial_spread_s = static_cast<int>(rules.dial_spread_s);
    text_set(waits.second_target, rules.second_ping_target);
    return waits;
}

constexpr const char* reason_names[] = {
    "stopped",      "no port",     "no permission", "port in use", "no answer",  "unknown module",
    "PIN required", "PIN refused", "PUK required",  "no SIM",      "SIM failed", "searching",
    "denied",       "no dialer",   "dialing",       "no address",  "no ping",    "online",
};
static_assert(std::size(reason_names) == KELO_REASON_ONLINE + 1);

} // namespace

} // namespace kelo

using namespace kelo;

int kelo_keeper_defaults(struct kelo_keeper* keeper)
{
    if (keeper == nullptr || keeper->size <= sizeof keeper->size)
        return -1;
    const std::size_t size = keeper->size;
    const kelo_keeper rules = defaults();
    std::memcpy(keeper, &rules, std::min(size, sizeof rules));
    keeper->size = size;
    return 0;
}

int kelo_keep(const struct kelo_keeper* given)
{
    kelo_keeper rules;
    if (refused_in_fork(__func__) || !read_rules(given, rules))
        return -1;
    {
        const lock_scope<keeper_lock> hold;
        shared.rules = rules;
        shared.wanted = true;
        if (!shared.alive && !thread_start_detached(keeper_thread, nullptr)) {
            shared.wanted = false;
            diag_error("kelo_keep: failed to create thread!\n");
            return -1;
        }
        shared.alive = true;
    }
    link_waits_set(waits_of(rules));
    sim_guard_rule(static_cast<int>(rules.pin_tries_least));
    word_set(keeper_on, 1);
    return 0;
}

int kelo_keep_stop(void)
{
    const lock_scope<keeper_lock> hold;
    shared.wanted = false;
    if (std::exchange(shared.reason, KELO_REASON_STOPPED) != KELO_REASON_STOPPED)
        wake_host();
    word_set(keeper_on, 0);
    return 0;
}

enum kelo_reason kelo_get_reason(void)
{
    const lock_scope<keeper_lock> hold;
    return shared.reason;
}

const char* kelo_reason_name(enum kelo_reason reason)
{
    const auto at = static_cast<std::size_t>(reason);
    return at < std::size(reason_names) ? reason_names[at] : "unknown";
}

int kelo_get_figures(struct kelo_figures* figures, size_t size)
{
    if (figures == nullptr)
        return -1;
    const lock_scope<keeper_lock> hold;
    kelo_figures now = shared.figures;
    if (now.size == 0)
        now.pin_tries = -1; // nobody has looked yet
    now.size = sizeof now;
    std::memcpy(figures, &now, std::min(size, sizeof now));
    return 0;
}
