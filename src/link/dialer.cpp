// SPDX-License-Identifier: MIT
// The dialer thread: owns the state of the data link.
//
// No state is stored: each pass derives its branch from the shared words, so that switching off
// beats the wait for the SIM, and that beats the link. Every threshold looks at its counter ahead
// of the increment: "above N", from 0, comes true on pass N + 2.
#include "link/link.h"

#include "support/diag.h"
#include "support/shell.h"
#include "support/sleeps.h"
#include "support/text.h"
#include "support/wakeup.h"

#include <cstdio>
#include <pthread.h>
#include <unistd.h>

namespace kelo
{

namespace
{

constexpr const char* data_interface = "wwan0";

constexpr long pass_us = 200000;
constexpr long switched_off_us = 500000;

constexpr int qeng_limit = 25;       // 5.4 s
constexpr int supervise_limit = 300; // 60 s
constexpr int cycle_pings = 3;
constexpr int first_wait_s = 5; // doubled for each further ping of a cycle
constexpr int probe_wait_s = 1;
constexpr int redial_pings = 10;    // failed pings of a link that does not come up, until a redial
constexpr int redial_passes = 50;   // 10 s
constexpr int dial_limit = 3;       // four dials, then the way goes over a restart
constexpr int sim_wait_limit = 250; // 50 s

// Counts, and tells whether the limit was passed before.
bool count_above(int& counter, int limit)
{
    return counter++ > limit;
}

int ping(const dialer_state& state, int wait)
{
    return state.tools->link_ping(data_interface, start_ping_settings().target, wait);
}

void redial(dialer_state& state)
{
    state.dial_countdown = redial_passes;
    state.tools->run("killall -q -15 quectel-CM");
    state.tools->run("killall -q -15 udhcpc");
    state.tools->sleep(1);
    char line[128];
    if (!link_stopping() && dialer_command_build(line, sizeof line) == 0)
        state.tools->run(line);
}

void reset_and_restart(dialer_state& state, const char* text)
{
    diag_plain("%s", text);
    state.tools->reset_radio();
    if (!link_stopping()) // the reset takes seconds
        state.tools->restart();
}

// From here the thread waits for the SIM, until the restarted modem has reported it.
void give_up_dialing(dialer_state& state, const char* text)
{
    word_set(is_pin_ready, 0);
    state.dial_countdown = redial_passes;
    state.dial_attempts = 0;
    reset_and_restart(state, text);
}

void wait_for_sim(dialer_state& state)
{
    word_set(cell_network_up, 0);
    if (!count_above(state.sim_wait_ticks, sim_wait_limit))
        return;
    state.sim_wait_ticks = 0;
    reset_and_restart(state, "--------> SIM check fail, restart");
}

// Up to three pings, each given twice the time of the one before it. A host that stops the library
// does not have to wait for all of them.
void supervise(dialer_state& state)
{
    state.ping_fails = 0;
    state.ping_ticks = 0;
    state.ping_wait = first_wait_s;
    while (!link_stopping() && ping(state, state.ping_wait) == 0) {
        state.ping_wait *= 2;
        if (++state.ping_fails < cycle_pings)
            continue;
        diag_plain("ping fail, redialer prog");
        word_set(cell_network_up, 0);
        state.dial_countdown = 0;
        return;
    }
}

void watch_link(dialer_state& state)
{
    if (count_above(state.qeng_ticks, qeng_limit)) {
        state.qeng_ticks = 0;
        state.tools->send_at("at+qeng=\"servingcell\"");
    }
    if (count_above(state.ping_ticks, supervise_limit))
        supervise(state);
}

void dial_when_due(dialer_state& state)
{
    if (--state.dial_countdown > 0)
        return;
    if (count_above(state.dial_attempts, dial_limit))
        give_up_dialing(state, "--------> Try dialer fail, restart");
    else
        redial(state);
}

void try_link(dialer_state& state)
{
    if (ping(state, probe_wait_s) != 0) {
        diag_plain("--------> ip_net_is_up = %s \n", data_interface);
        word_set(cell_network_up, 1);
        state.dial_attempts = 0;
        state.ping_fails = 0;
        return;
    }
    if (!count_above(state.ping_fails, redial_pings))
        return;
    state.ping_fails = 0;
    if (count_above(state.dial_attempts, dial_limit)) {
        give_up_dialing(state, "--------> Try ping fail, restart");
        return;
    }
    diag_plain("--------> ping fail = %s \n", data_interface);
    redial(state);
}

bool append(char* line, std::size_t size, const char* text)
{
    const std::size_t length = std::strlen(line);
    if (length + std::strlen(text) >= size)
        return false;
    text_copy(line + length, size - length, text);
    return true;
}

// Whether a value can be given to the dialer: no quoting keeps that from reading a leading "-" as
// an option.
bool is_value(const char* what, const char* value)
{
    if (value[0] != '-' && !text_has_control(value))
        return true;
    diag_at(plain, "dialer", "refused to dial: %s begins with '-' or holds a control character\n",
            what);
    return false;
}

bool append_value(char* line, std::size_t size, const char* value)
{
    return append(line, size, " ") && shell_quote(line, size, value);
}

bool fill_command(char* line, std::size_t size, const cellular_setting& settings)
{
    line[0] = '\0';
    if (!append(line, size, "quectel-CM -d"))
        return false;
    if (settings.apn[0] == '\0')
        return true;
    if (!append(line, size, " -s") || !append_value(line, size, settings.apn))
        return false;
    if (settings.user[0] == '\0' || settings.password[0] == '\0')
        return true;
    char end[32];
    std::snprintf(end, sizeof end, " %d", settings.auth);
    return append_value(line, size, settings.user) && append_value(line, size, settings.password) &&
           append(line, size, end);
}

// Behind `end` there is nothing: a line without it would keep the shell waiting for the dialer, so
// none is ever cut.
int build_command(char* buffer, std::size_t size, const char* end)
{
    const cellular_setting settings = start_settings_copy();
    bool usable = is_value("apn", settings.apn) && is_value("user", settings.user) &&
                  is_value("password", settings.password);
    if (usable && (!fill_command(buffer, size, settings) || !append(buffer, size, end))) {
        diag_at(plain, "dialer",
                "refused to dial: apn, user and password are too long for one line\n");
        usable = false;
    }
    if (!usable) {
        buffer[0] = '\0';
        return -1;
    }
    diag_plain("[4G]---> dialer = %s \n", buffer);
    return 0;
}

} // namespace

int dialer_command_build(char* buffer, std::size_t size)
{
    return build_command(buffer, size, " &");
}

int dialer_line_build(char* buffer, std::size_t size)
{
    return build_command(buffer, size, "");
}

bool link_stopping()
{
    return word_get(conn_mode_flag) != 0 || word_get(global_quagga_stop) != 0;
}

long dialer_pass(dialer_state& state)
{
    if (link_stopping())
        return -1;
    if (word_get(g_netWorkCardFlag) == 0) {
        word_set(cell_network_up, 0);
        return switched_off_us;
    }
    if (word_get(is_pin_ready) == 0 || cellular_get_status(CELL_STATUS_READY) == 0)
        wait_for_sim(state);
    else if (word_get(cell_network_up) != 0)
        watch_link(state);
    else if (state.tools->interface_present(data_interface) == 0)
        dial_when_due(state);
    else
        try_link(state);
    return pass_us;
}

void dialer_run(dialer_state& state, kept_link_state& kept_state)
{
    const auto pass = [&] {
        const int before = get_cell_network_up();
        const long sleep_us = word_get(keeper_on) != 0 ? kept_link_pass(kept_state, monotonic_ms())
                                                       : dialer_pass(state);
        if (get_cell_network_up() != before)
            wake_host();
        return sleep_us;
    };
    for (long sleep_us; (sleep_us = pass()) >= 0;)
        usleep(static_cast<useconds_t>(sleep_us));
}

void* dialer_thread(void* tools)
{
    pthread_setname_np(pthread_self(), "DialerThread");
    const auto* const given = static_cast<const link_tools*>(tools);
    dialer_state state = {.tools = given->plain};
    kept_link_state kept_state = {.tools = given->kept};
    dialer_run(state, kept_state);
    return nullptr;
}

} // namespace kelo
