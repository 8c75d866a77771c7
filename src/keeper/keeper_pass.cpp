// SPDX-License-Identifier: MIT
// What the keeper makes of what it sees: from the port up to the link, the first thing that is
// wrong is the reason, and is what it acts on.
#include "keeper/keeper.h"

#include "support/waits.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <iterator>
#include <utility>

namespace kelo
{

namespace
{

constexpr int pass_ms = 500;

using figure = unsigned int kelo_keeper::*;

// How long the keeper waits for what. Each wait is twice as long as the one before it, up to the
// most, until what it waits for is well again.
struct wait_rule {
    figure first, most; // of the host's figures; null: the seconds behind them
    unsigned int first_s, most_s;
};
// clang-format off
constexpr wait_rule wait_rules[wait_count] = {
    //           first                    most                       s    s
    /* start  */ {nullptr,                nullptr,                   5,   60},
    /* wish   */ {nullptr,                nullptr,                  10,  900},
    /* pin    */ {nullptr,                nullptr,                  10,  900},
    /* reload */ {nullptr,                nullptr,                   5, 1800},
    /* ask    */ {&kelo_keeper::ask_s,    &kelo_keeper::ask_s,       0,    0},
    /* sim    */ {nullptr,                nullptr,                  10,   10},
    /* nudge  */ {nullptr,                nullptr,                   5,   60},
    /* search */ {&kelo_keeper::search_s, &kelo_keeper::search_most_s, 0,  0},
    /* redial */ {&kelo_keeper::search_s, &kelo_keeper::search_most_s, 0,  0},
};

// What a modem that hangs gets, by its silence. The last goes on for good.
struct hang_row {
    figure after;
    kelo_action action;
};
constexpr hang_row hang_rows[] = {
    {&kelo_keeper::first_restart_s,  KELO_ACTION_MODEM_RESTART},
    {&kelo_keeper::second_restart_s, KELO_ACTION_MODEM_RESTART},
    {&kelo_keeper::power_s,          KELO_ACTION_POWER},
};
// clang-format on

// A modem that has spoken is asked for a word after so long.
constexpr std::int64_t quiet_ms = 20000;

std::int64_t length_ms(const keeper_state& state, wait_name name)
{
    const wait_rule& rule = wait_rules[name];
    const unsigned int first = rule.first != nullptr ? state.rules.*rule.first : rule.first_s;
    const unsigned int most = rule.most != nullptr ? state.rules.*rule.most : rule.most_s;
    return doubled(first, most, state.waits[name].times) * 1000;
}

void plan(keeper_state& state, kelo_action action, std::int64_t at_ms)
{
    state.figures.action = action;
    state.action_ms = at_ms;
}

// Whether a wait is over. The next begins with that.
bool is_over(keeper_state& state, wait_name name, std::int64_t now_ms)
{
    wait_state& wait = state.waits[name];
    if (now_ms < wait.due_ms)
        return false;
    wait.due_ms = now_ms + length_ms(state, name);
    wait.times++;
    return true;
}

void calm(keeper_state& state, wait_name name)
{
    state.waits[name] = {};
}

// Only once it was not needed for as long again: what asks all the time is to be heard ever more
// rarely.
void calm_when_quiet(keeper_state& state, wait_name name, std::int64_t now_ms)
{
    if (now_ms >= state.waits[name].due_ms + length_ms(state, name))
        calm(state, name);
}

// Whether the radio has been on, and all was not well, for as long as it is given to come to
// something.
bool patience_is_over(keeper_state& state, wait_name name, std::int64_t well_ms,
                      std::int64_t now_ms)
{
    const std::int64_t due_ms = std::max(state.radio_on_ms, well_ms) + length_ms(state, name);
    plan(state, KELO_ACTION_RADIO_RESET, due_ms);
    if (now_ms < due_ms)
        return false;
    state.waits[name].times++;
    return true;
}

int waited_s(const keeper_state& state, std::int64_t well_ms, std::int64_t now_ms)
{
    return static_cast<int>((now_ms - std::max(state.radio_on_ms, well_ms)) / 1000);
}

void reset_radio(keeper_state& state, std::int64_t now_ms)
{
    state.tools->drop(cell_reload_flag);
    state.tools->drop(cell_start_flag);
    state.tools->reset_radio();
    state.radio_on_ms = now_ms;
}

void restart(keeper_state& state)
{
    state.fresh = true;
    state.tools->restart();
}

void obey_wishes(keeper_state& state, const keeper_sight& sight, std::int64_t now_ms)
{
    if (sight.start_wanted && is_over(state, wait_wish, now_ms)) {
        state.tools->say("keeper: a fresh start is wanted, the modem task restarts\n", 0);
        state.tools->drop(cell_start_flag);
        restart(state);
        return;
    }
    if (sight.reload_wanted && is_over(state, wait_reload, now_ms)) {
        state.tools->say("keeper: a reload is wanted, the reload flow runs\n", 0);
        state.radio_on_ms = now_ms;
        state.fresh = true;
        state.tools->reload();
    }
}

kelo_reason port_reason(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
        return KELO_REASON_NO_PERMISSION;
    case EBUSY:
        return KELO_REASON_PORT_IN_USE;
    default:
        return KELO_REASON_NO_PORT;
    }
}

// ---- The port

kelo_reason mind_port(keeper_state& state, const keeper_sight& sight, std::int64_t now_ms)
{
    if (state.was_open)
        state.figures.port_losses++;
    state.was_open = false;
    state.tools->hold_link(true);
    if (!sight.there)
        return KELO_REASON_NO_PORT;
    if (is_over(state, wait_start, now_ms))
        restart(state);
    plan(state, KELO_ACTION_START, state.waits[wait_start].due_ms);
    return port_reason(sight.open_error);
}

// ---- The modem's word

// Its silence is that of an open port: no time counts in which it could not be heard.
void count_silence(keeper_state& state, const keeper_sight& sight, std::int64_t passed_ms)
{
    if (sight.heard == state.heard) {
        state.silent_ms += sight.at_work ? 0 : passed_ms;
        return;
    }
    state.heard = sight.heard;
    state.spoke = true;
    state.silent_ms = 0;
    state.hang_step = 0;
    calm(state, wait_nudge);
    calm(state, wait_start);
}

void nudge(keeper_state& state, std::int64_t now_ms)
{
    const std::int64_t patience_ms = state.spoke ? quiet_ms : length_ms(state, wait_nudge);
    if (state.silent_ms >= patience_ms && is_over(state, wait_nudge, now_ms))
        state.tools->send_at("AT");
}

// Silence after which the step of the ladder is due: beyond the last row after twice the time of
// the one before.
std::int64_t hang_due_ms(const keeper_state& state)
{
    constexpr int last = std::size(hang_rows) - 1;
    const std::int64_t base = state.rules.*hang_rows[std::min(state.hang_step, last)].after;
    const int beyond = std::clamp(state.hang_step - last, 0, 16);
    return base * ((2LL << beyond) - 1) * 1000;
}

void climb_hang_ladder(keeper_state& state, const keeper_sight& sight, std::int64_t now_ms)
{
    constexpr int last = std::size(hang_rows) - 1;
    const hang_row& row = hang_rows[std::min(state.hang_step, last)];
    plan(state, row.action, now_ms + hang_due_ms(state) - state.silent_ms);
    if (state.silent_ms < hang_due_ms(state) || sight.busy)
        return;
    const int power_number = state.hang_step - last + 1;
    state.hang_step++;
    state.figures.modem_restarts++;
    state.radio_on_ms = now_ms;
    if (row.action == KELO_ACTION_POWER) {
        state.tools->say("keeper: the modem hangs, its power has to be cut, try %d\n",
                         power_number);
        state.stuck_number = power_number;
        return;
    }
    state.tools->say("keeper: no word for %d s, the modem restarts\n",
                     static_cast<int>(state.silent_ms / 1000));
    state.tools->send_at("AT+CFUN=1,1");
}

// ---- The radio

// Asked once in each walk: without its radio a modem finds no network, and some find no SIM.
void ask_radio(keeper_state& state)
{
    if (!std::exchange(state.radio_asked, true))
        state.tools->send_at("AT+CFUN?");
}

// A start that was ended between radio off and radio on leaves it off for good.
bool switched_on(keeper_state& state, const keeper_sight& sight, std::int64_t now_ms)
{
    constexpr int off = 0 + 1;
    constexpr int flight = 4 + 1;
    if (sight.radio == 0)
        return false;
    state.tools->drop(radio_answer);
    if (sight.radio != off && sight.radio != flight)
        return false;
    state.tools->say("keeper: the radio is off (%d): on\n", sight.radio - 1);
    state.tools->send_at("AT+CFUN=1");
    state.tools->drop(cell_reload_flag); // which would switch it off and on
    state.radio_on_ms = now_ms;
    return true;
}

// ---- The SIM

struct sim_row {
    sim_state state;
    kelo_reason reason;
    unsigned int status;
};
constexpr sim_row sim_rows[] = {
    {sim_state::pin, KELO_REASON_PIN_REQUIRED, CELL_STATUS_PIN_REQUIRED},
    {sim_state::puk, KELO_REASON_PUK_REQUIRED, CELL_STATUS_PUK_REQUIRED},
    {sim_state::missing, KELO_REASON_NO_SIM, 0},
    {sim_state::failed, KELO_REASON_SIM_FAILED, 0},
};

// A lock is for the host to open, whatever the ladders would do. Asked about all the same: another
// card may be there by now, of which no word has come.
kelo_reason mind_lock(keeper_state& state, const keeper_sight& sight, const sim_row& row,
                      std::int64_t now_ms)
{
    if (!sight.walked && sight.sim.may_send)
        return KELO_REASON_SEARCHING; // the flow is about to send it
    const bool refused = row.state == sim_state::pin && sight.sim.refused;
    state.tools->show_lock(refused ? CELL_STATUS_PIN_ERROR : row.status);
    if (sight.walked && sight.sim.may_send && is_over(state, wait_pin, now_ms)) {
        state.tools->say("keeper: a PIN is there for the SIM, the modem task restarts\n", 0);
        restart(state);
    } else if (sight.walked && is_over(state, wait_ask, now_ms)) {
        state.tools->send_at("AT+CPIN?");
    }
    return refused ? KELO_REASON_PIN_REFUSED : row.reason;
}

// Some modules say nothing when a card is put in, and some cards come back with the radio.
kelo_reason mind_sim(keeper_state& state, const keeper_sight& sight, const sim_row& row,
                     std::int64_t now_ms)
{
    if (!sight.walked) { // a radio that is off for a moment takes the SIM along
        constexpr std::int64_t moment_ms = 10'000;
        return now_ms - state.sim_well_ms < moment_ms ? KELO_REASON_SEARCHING : row.reason;
    }
    if (switched_on(state, sight, now_ms))
        return row.reason;
    if (sight.start_wanted || sight.reload_wanted)
        obey_wishes(state, sight, now_ms);
    if (patience_is_over(state, wait_search, state.ready_ms, now_ms)) {
        state.tools->say("keeper: no SIM for %d s, radio off and on\n",
                         waited_s(state, state.ready_ms, now_ms));
        reset_radio(state, now_ms);
    } else if (is_over(state, wait_sim, now_ms)) {
        state.tools->send_at("AT+CPIN?");
        ask_radio(state);
    }
    return row.reason;
}

// ---- The network

// Each time that the radio is switched off and on the search begins anew: that is for one that has
// come to nothing.
void search(keeper_state& state, const keeper_sight& sight, std::int64_t now_ms)
{
    switched_on(state, sight, now_ms);
    if (patience_is_over(state, wait_search, state.ready_ms, now_ms)) {
        state.tools->say("keeper: not registered for %d s, radio off and on\n",
                         waited_s(state, state.ready_ms, now_ms));
        reset_radio(state, now_ms);
        return;
    }
    if (!is_over(state, wait_ask, now_ms))
        return;
    state.tools->send_at("AT+COPS?");
    ask_radio(state);
}

// ---- The link

kelo_reason link_reason(keeper_state& state, const keeper_sight& sight, std::int64_t now_ms)
{
    if (!sight.link_wanted)
        return KELO_REASON_ONLINE;
    if (sight.link_up) {
        state.link_ms = now_ms;
        calm(state, wait_redial);
        state.tools->drop(radio_reset_wanted);
        return KELO_REASON_ONLINE;
    }
    if (sight.reset_wanted && patience_is_over(state, wait_redial, state.link_ms, now_ms)) {
        state.tools->drop(radio_reset_wanted);
        state.tools->say("keeper: dialing alone does not help, %d s: radio off and on\n",
                         waited_s(state, state.link_ms, now_ms));
        reset_radio(state, now_ms);
    }
    plan(state, KELO_ACTION_DIAL, sight.link_due_ms);
    switch (sight.link) {
    case link_state::no_dialer:
        return KELO_REASON_NO_DIALER;
    case link_state::no_address:
        return KELO_REASON_NO_ADDRESS;
    case link_state::no_ping:
        return KELO_REASON_NO_PING;
    default:
        return KELO_REASON_DIALING;
    }
}

// ---- All of it

const sim_row* sim_trouble(const keeper_sight& sight)
{
    for (const sim_row& row : sim_rows)
        if (row.state == sight.sim.state)
            return &row;
    return nullptr;
}

kelo_reason mind_modem(keeper_state& state, const keeper_sight& sight, std::int64_t now_ms)
{
    nudge(state, now_ms);
    const bool hangs = state.silent_ms >= state.rules.silent_s * 1000LL;
    if (hangs)
        climb_hang_ladder(state, sight, now_ms);
    const sim_row* const trouble = sim_trouble(sight);
    if (trouble == nullptr)
        state.sim_well_ms = now_ms;
    const bool locked = trouble != nullptr && trouble->state != sim_state::missing &&
                        trouble->state != sim_state::failed;
    state.tools->hold_link(trouble != nullptr); // a modem may go on carrying data, and say nothing
    if (hangs || !state.spoke)
        return KELO_REASON_NO_ANSWER;
    if (sight.unknown_module)
        return KELO_REASON_UNKNOWN_MODULE;
    if (locked)
        return mind_lock(state, sight, *trouble, now_ms);
    state.tools->show_lock(0);
    // A PIN that was taken was worth its start: the next card, or the same one, does not wait.
    if (sight.sim.state == sim_state::ready)
        state.waits[wait_pin].times = 0;
    const bool was_well = std::exchange(state.was_well, false);
    if (trouble != nullptr)
        return mind_sim(state, sight, *trouble, now_ms);
    if (sight.registered || sight.identified)
        state.tools->unlock();
    // READY outlives a lost registration; what carries data has one.
    if (!sight.ready || !(sight.registered || sight.link_up)) {
        if (sight.walked)
            search(state, sight, now_ms);
        return sight.denied ? KELO_REASON_DENIED : KELO_REASON_SEARCHING;
    }
    // What the search for a network asked for has no object any more.
    if (!was_well || !sight.registered) {
        state.tools->drop(cell_reload_flag);
        state.tools->drop(cell_start_flag);
    } else {
        obey_wishes(state, sight, now_ms);
    }
    state.was_well = true;
    if (!state.was_registered && sight.registered && !sight.link_up)
        state.tools->redial();
    state.ready_ms = now_ms;
    calm(state, wait_search);
    calm(state, wait_sim);
    // Not every module reports that its registration went or came. No dialer gets through without
    // one, and a link that carries data belies the want of one.
    const bool settled = sight.registered && (sight.link_up || !sight.link_wanted);
    if (settled)
        calm(state, wait_ask);
    else if (is_over(state, wait_ask, now_ms))
        state.tools->send_at("AT+COPS?");
    calm_when_quiet(state, wait_wish, now_ms);
    calm_when_quiet(state, wait_reload, now_ms);
    return link_reason(state, sight, now_ms);
}

kelo_reason mind(keeper_state& state, const keeper_sight& sight, std::int64_t now_ms,
                 std::int64_t passed_ms)
{
    state.figures.action = KELO_ACTION_NONE;
    if (!sight.running || (!sight.wanted && !sight.busy)) {
        state.tools->hold_link(false);
        state.was_open = false;
        state.fresh = true;
        return KELO_REASON_STOPPED;
    }
    if (sight.there && !state.was_there) { // the modem has started, or we have
        state.radio_on_ms = now_ms;
        calm(state, wait_start);
    }
    state.was_there = sight.there;
    if (sight.busy) {
        // What asked for a start that is under way has it.
        state.tools->drop(cell_start_flag);
        state.tools->hold_link(true);
        state.fresh = true;
        return state.was_running && state.reason != KELO_REASON_ONLINE ? state.reason
                                                                       : KELO_REASON_SEARCHING;
    }
    if (!sight.there || !sight.open)
        return mind_port(state, sight, now_ms);
    if (state.fresh) {
        state.fresh = state.radio_asked = false;
        state.spoke = state.spoke && state.was_open;
        state.heard = sight.heard;
        calm(state, wait_ask);
    }
    state.was_open = true;
    count_silence(state, sight, passed_ms);
    const kelo_reason reason = mind_modem(state, sight, now_ms);
    // What every module understands is asked of it all the same, and may bring it online.
    return sight.unlisted && reason > KELO_REASON_UNKNOWN_MODULE && reason != KELO_REASON_ONLINE
               ? KELO_REASON_UNKNOWN_MODULE
               : reason;
}

void count_time(keeper_state& state, std::int64_t passed_ms)
{
    const bool online = state.reason == KELO_REASON_ONLINE;
    (online ? state.online_ms : state.offline_ms) += passed_ms;
    if (!online) {
        state.outage_ms += passed_ms;
    } else if (state.outage_ms != 0) {
        state.figures.last_outage_s = static_cast<unsigned int>(state.outage_ms / 1000);
        state.outage_ms = 0;
    }
    state.longest_ms = std::max(state.longest_ms, state.outage_ms);
}

void write_figures(keeper_state& state, const keeper_sight& sight, std::int64_t now_ms)
{
    const auto seconds = [](std::int64_t ms) { return static_cast<unsigned int>(ms / 1000); };
    kelo_figures& figures = state.figures;
    figures.online_s = seconds(state.online_ms);
    figures.offline_s = seconds(state.offline_ms);
    if (state.outage_ms != 0)
        figures.last_outage_s = seconds(state.outage_ms);
    figures.longest_outage_s = seconds(state.longest_ms);
    if (sight.registered && !state.was_registered)
        figures.registered_at = std::time(nullptr);
    state.was_registered = sight.registered;
    figures.pin_tries = sight.sim.tries;
    figures.action_in_s = figures.action == KELO_ACTION_NONE
                              ? 0
                              : seconds(std::max<std::int64_t>(state.action_ms - now_ms, 0));
}

} // namespace

int keeper_pass(keeper_state& state, std::int64_t now_ms)
{
    const std::int64_t passed_ms = state.last_ms != 0 ? now_ms - state.last_ms : 0;
    state.last_ms = now_ms;
    const keeper_sight sight = state.tools->look();
    count_time(state, passed_ms);
    const kelo_reason before = state.reason;
    state.reason = mind(state, sight, now_ms, passed_ms);
    state.was_running = sight.running;
    if (state.reason != before)
        state.tools->tell(state.reason);
    write_figures(state, sight, now_ms);
    return pass_ms;
}

} // namespace kelo
