// SPDX-License-Identifier: MIT
// The data link while a keeper is on: the same order of things as the dialer's own (switched off
// beats the wait for the SIM, and that beats the link), by times instead of passes, and with the
// dialer as a process of ours. What resets the radio or restarts the modem is the keeper's.
#include "link/link.h"

#include "support/diag.h"
#include "support/shell.h"
#include "support/sleeps.h"
#include "support/text.h"
#include "support/waits.h"

#include <algorithm>
#include <csignal>

namespace kelo
{

namespace
{

constexpr const char* data_interface = "wwan0";
constexpr const char* dialer_program = "quectel-CM";

constexpr long pass_us = 200000;
constexpr long switched_off_us = 500000;

constexpr std::int64_t cell_ms = 5400;
constexpr std::int64_t supervise_ms = 60000;
constexpr int supervise_waits_s[] = {5, 10, 20};
constexpr int probe_wait_s = 1;
constexpr std::int64_t first_ping_ms = 30000; // the first name to look up takes its time
constexpr std::int64_t steady_ms = 10000;     // a link that was up so long has not failed to dial
constexpr std::int64_t missing_ms = 10000;    // between two looks for what is missing
constexpr int term_ms = 5000;                 // that a dialer gets to end in
constexpr int failures_to_reset = 4;
constexpr std::int64_t never_planned = 0; // of a dial

lock waits_lock; // a leaf
link_waits waits_now;

link_waits waits()
{
    const lock_scope<waits_lock> hold;
    return waits_now;
}

void tell(link_state what)
{
    word_set(link_trouble, static_cast<int>(what));
}

// Says what is missing once, until it is something else.
void say_missing(kept_link_state& state, const char* what)
{
    if (state.said != what && what != nullptr)
        diag_plain("keeper: %s\n", what);
    state.said = what;
}

// Whether it ended within the time; a stop of the library waits for nothing.
bool gone_within(kept_link_state& state, const auto& gone, int limit_ms)
{
    constexpr int step_ms = 100;
    for (int waited = 0; !gone(); waited += step_ms) {
        if (waited >= limit_ms || link_stopping())
            return false;
        state.tools->sleep_ms(step_ms);
    }
    return true;
}

// Ends the dialer that we have started.
void end_own(kept_link_state& state)
{
    if (state.process < 0)
        return;
    int status = 0;
    const auto gone = [&] { return state.tools->ended(state.process, status); };
    state.tools->signal(state.process, SIGTERM);
    if (!gone_within(state, gone, term_ms)) {
        state.tools->signal(state.process, SIGKILL);
        gone_within(state, gone, term_ms);
    }
    state.process = -1;
}

// Ends what others have started, a host of before that was killed with its dialer left behind.
void end_strays(kept_link_state& state)
{
    if (state.tools->run("killall -q -15 quectel-CM") != 0)
        return; // there is none, or no killall
    const auto gone = [&] { return state.tools->run("killall -q -0 quectel-CM") != 0; };
    if (!gone_within(state, gone, term_ms))
        state.tools->run("killall -q -9 quectel-CM");
}

// One that was killed leaves its interface up, with an address that is nobody's any more.
void hang_up(kept_link_state& state)
{
    end_own(state);
    end_strays(state);
    state.attempt = false;
    if (!link_stopping() && state.tools->interface_up(data_interface))
        state.tools->run("ifconfig wwan0 down");
}

void set_due(kept_link_state& state, std::int64_t due_ms)
{
    state.due_ms = due_ms;
    word_set(link_due_s, static_cast<int>(due_ms / 1000));
}

// For a dial that nothing has failed ahead of. What has brought it about may have come to every
// device of a cell in the same second. One that is planned already is not put off: a registration
// that comes and goes would do so for ever.
void set_first_due(kept_link_state& state, std::int64_t now_ms)
{
    const std::int64_t due_ms = now_ms + random_up_to(waits().dial_spread_s * 1000);
    const bool planned = state.due_ms > state.dialed_ms;
    set_due(state, planned ? std::min(state.due_ms, due_ms) : due_ms);
}

void fail(kept_link_state& state, std::int64_t now_ms, const char* why)
{
    const link_waits rules = waits();
    state.failures++;
    const std::int64_t wait =
        backoff_ms(rules.redial_s, rules.redial_most_s, rules.spread_percent, state.failures);
    diag_plain("keeper: %s, %d in a row: dialing again in %d s\n", why, state.failures,
               static_cast<int>(wait / 1000));
    hang_up(state);
    set_due(state, now_ms + wait);
    if (state.failures % failures_to_reset == 0)
        word_set(radio_reset_wanted, 1);
}

void dial(kept_link_state& state, std::int64_t now_ms)
{
    char line[160] = "exec ";
    const std::size_t head = std::strlen(line);
    hang_up(state);
    if (link_stopping() || dialer_line_build(line + head, sizeof line - head) != 0) {
        set_due(state, now_ms + missing_ms);
        return;
    }
    state.process = state.tools->start(line);
    state.attempt = true;
    state.dialed_ms = now_ms;
    word_add(dial_count, 1);
    tell(link_state::dialing);
}

// A dialer that went into the background by itself has ended as well, and well.
bool dialer_failed(kept_link_state& state)
{
    int status = 0;
    if (state.process < 0 || !state.tools->ended(state.process, status))
        return false;
    state.process = -1;
    return status != 0;
}

void await_interface(kept_link_state& state, std::int64_t now_ms)
{
    state.interface_ms = -1;
    if (word_get(redial_wanted) != 0) {
        word_set(redial_wanted, 0);
        // What was dialed while there was no network comes to nothing.
        dialer_failed(state);
        state.attempt = false;
        state.failures = 0;
        set_first_due(state, now_ms);
    }
    const bool ended = dialer_failed(state);
    if (state.attempt && ended)
        return fail(state, now_ms, "the dialer has ended");
    if (state.attempt && now_ms - state.dialed_ms < waits().dial_s * 1000LL)
        return tell(link_state::dialing);
    if (state.attempt)
        return fail(state, now_ms, "the dialer brings no interface up");
    if (!state.tools->program_there(dialer_program)) {
        say_missing(state, "there is no program quectel-CM to dial with");
        return tell(link_state::no_dialer);
    }
    tell(link_state::dialing);
    if (state.due_ms == never_planned)
        set_first_due(state, now_ms);
    if (now_ms >= state.due_ms)
        dial(state, now_ms);
}

// Whether one of the targets answers.
bool answered(const kept_link_state& state, const ping_settings& settings, int wait_s)
{
    const char* const first = settings.target;
    const link_waits rules = waits();
    const auto ping = [&](const char* target) {
        return state.tools->link_ping(data_interface, target, wait_s) != 0;
    };
    if (settings.enable == 0)
        return true;
    return (*first != '\0' && ping(first)) ||
           (rules.second_target[0] != '\0' && ping(rules.second_target));
}

// What keeps any ping from being sent, or null. The link is not to blame for that.
const char* ping_missing(const kept_link_state& state, const ping_settings& settings)
{
    if (settings.enable == 0)
        return nullptr;
    if (settings.target[0] == '\0' && waits().second_target[0] == '\0')
        return "there is no ping target: the link can't be verified";
    if (!state.tools->program_there("ping"))
        return "there is no program ping: the link can't be verified";
    return nullptr;
}

void link_is_up(kept_link_state& state, std::int64_t now_ms)
{
    diag_plain("--------> ip_net_is_up = %s \n", data_interface);
    word_set(cell_network_up, 1);
    tell(link_state::up);
    say_missing(state, nullptr);
    state.attempt = false;
    state.up_ms = now_ms;
    state.supervise_ms = now_ms + supervise_ms;
}

void try_link(kept_link_state& state, std::int64_t now_ms)
{
    if (state.interface_ms < 0)
        state.interface_ms = now_ms;
    const ping_settings settings = start_ping_settings();
    if (answered(state, settings, probe_wait_s))
        return link_is_up(state, now_ms);
    if (const char* const missing = ping_missing(state, settings)) {
        say_missing(state, missing);
        return tell(link_state::no_ping);
    }
    const bool addressed = state.tools->interface_addressed(data_interface);
    tell(addressed ? link_state::no_ping : link_state::no_address);
    if (now_ms - state.interface_ms < first_ping_ms)
        return;
    state.interface_ms = -1;
    fail(state, now_ms, addressed ? "no ping comes back" : "the interface gets no address");
}

// Dialed again at once; but a link that comes and goes with the same pauses as one that does not
// come.
void lose(kept_link_state& state, std::int64_t now_ms, const char* why)
{
    const bool short_lived = now_ms - state.up_ms < steady_ms;
    word_set(cell_network_up, 0);
    word_add(link_loss_count, 1);
    state.interface_ms = -1;
    if (short_lived && state.failures > 0)
        return fail(state, now_ms, why);
    diag_plain("keeper: %s: dialing again\n", why);
    state.failures = short_lived ? 1 : 0;
    hang_up(state);
    set_first_due(state, now_ms);
}

bool supervised(const kept_link_state& state)
{
    const ping_settings settings = start_ping_settings();
    if (ping_missing(state, settings) != nullptr)
        return true;
    for (const int wait_s : supervise_waits_s)
        if (link_stopping() || answered(state, settings, wait_s))
            return true;
    return false;
}

void watch_link(kept_link_state& state, std::int64_t now_ms)
{
    if (!state.tools->interface_up(data_interface))
        return lose(state, now_ms, "the interface is down");
    if (now_ms - state.up_ms >= steady_ms)
        state.failures = 0;
    if (now_ms >= state.cell_ms) {
        state.cell_ms = now_ms + cell_ms;
        state.tools->send_at("at+qeng=\"servingcell\"");
    }
    // What the dialer's end or the modem's word makes of the link, a ping tells at once.
    const bool doubt = dialer_failed(state) || get_cell_pdpdeact() != 0;
    if (!doubt && now_ms < state.supervise_ms)
        return;
    set_cell_pdpdeact(0);
    state.supervise_ms = now_ms + supervise_ms;
    if (!supervised(state))
        lose(state, now_ms, "no ping comes back");
}

// Registration comes and goes, and a dialer lives through that. With the modem gone, or the link
// not wanted, all begins anew.
void stand_by(kept_link_state& state, std::int64_t now_ms, bool anew)
{
    if (word_get(cell_network_up) != 0)
        word_add(link_loss_count, 1);
    word_set(cell_network_up, 0);
    tell(link_state::waiting);
    state.interface_ms = -1;
    state.dialed_ms = now_ms;
    if (!anew)
        return;
    dialer_failed(state);
    state.attempt = false;
    state.failures = 0;
    set_due(state, never_planned);
}

} // namespace

void link_waits_set(const link_waits& wanted)
{
    const lock_scope<waits_lock> hold;
    waits_now = wanted;
}

std::int64_t backoff_ms(int first_s, int most_s, int spread_percent, int failures)
{
    const std::int64_t wait = doubled(first_s, most_s, failures - 1) * 1000;
    const std::int64_t spread = wait * spread_percent / 100;
    return wait - spread + random_up_to(static_cast<int>(2 * spread));
}

long kept_link_pass(kept_link_state& state, std::int64_t now_ms)
{
    if (link_stopping())
        return -1;
    const bool wanted = word_get(g_netWorkCardFlag) != 0;
    const bool possible = word_get(link_held) == 0 && word_get(is_pin_ready) != 0 &&
                          cellular_get_status(CELL_STATUS_READY) != 0;
    if (!wanted || !possible) {
        stand_by(state, now_ms, !wanted || word_get(link_held) != 0);
        return wanted ? pass_us : switched_off_us;
    }
    if (word_get(cell_network_up) != 0)
        watch_link(state, now_ms);
    else if (!state.tools->interface_up(data_interface))
        await_interface(state, now_ms);
    else
        try_link(state, now_ms);
    return pass_us;
}

} // namespace kelo
