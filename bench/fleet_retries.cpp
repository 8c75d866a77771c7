// SPDX-License-Identifier: MIT
// Dials of a fleet whose operator is away for a while, second by second: the keeper's own passes,
// and those of its dialer, against a world that is made up. One device behind the other, each
// through the whole time: they share nothing but the clock.
//
//     fleet_retries KIND DEVICES OUTAGE_S TOTAL_S SPREAD:FIRST...
//
// KIND is `core`, the operator's gateway loses every connection at second 0 and takes none until
// OUTAGE_S while the radio stays registered, or `radio`, no cell is heard. SPREAD is
// spread_percent, FIRST dial_spread_s. Printed are, for each second and pair of these, the dials
// and the devices that are online.
#include "keeper/keeper.h"

#include <kelo/log.h>
#include <kelo/status.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <vector>

using namespace kelo;

namespace
{

constexpr int before_s = 300; // in which all come online, each at a moment of its own
constexpr int step_ms = 500;
constexpr std::int64_t never = -1;

// What the made-up world needs.
constexpr std::int64_t interface_ms = 3000; // of a dial, until the interface is up
constexpr std::int64_t reset_ms = 3000;     // of a radio, off and on
constexpr std::int64_t register_ms[] = {
    5000, 30'000}; // of a radio that is on and hears a cell, from and to

struct device {
    std::int64_t now_ms = 0;
    std::int64_t dialed_ms = never; // of the dialer that runs
    std::int64_t registered_ms = 0; // from then on, where a cell is heard
    std::int64_t found_ms = 0;      // the cells that are back
    bool up = false;                // the interface
    int heard = 0;
    std::vector<int>* dials = nullptr;
};

device one;
bool radio_kind = false;
std::int64_t outage_ms = 0;
std::mt19937 chance; // of the world; the keeper has its own

std::int64_t from_to(std::int64_t least, std::int64_t most)
{
    return std::uniform_int_distribution(least, most)(chance);
}

bool away()
{
    return one.now_ms >= 0 && one.now_ms < outage_ms;
}

bool registered()
{
    const bool heard = !radio_kind || one.now_ms < 0 || one.now_ms >= one.found_ms;
    return heard && one.now_ms >= one.registered_ms;
}

// What the network does by itself, ahead of each pass.
void world_pass()
{
    if (away() || !registered())
        one.up = false;
    else if (one.dialed_ms != never && one.now_ms >= one.dialed_ms + interface_ms)
        one.up = true;
}

void radio_reset()
{
    one.up = false;
    one.registered_ms = one.now_ms + reset_ms + from_to(register_ms[0], register_ms[1]);
}

const kept_link_tools link_world = {
    .interface_up = [](const char*) { return one.up; },
    .interface_addressed = [](const char*) { return one.up; },
    .program_there = [](const char*) { return true; },
    .link_ping = [](const char*, const char*, int) { return one.up ? 1 : 0; },
    .run =
        [](const char* line) {
            one.up = one.up && std::strstr(line, "down") == nullptr;
            return 1;
        },
    .start =
        [](const char*) {
            one.dialed_ms = one.now_ms;
            const auto second = static_cast<std::size_t>(before_s + one.now_ms / 1000);
            if (one.now_ms >= 0 && second < one.dials->size())
                ++(*one.dials)[second];
            return 100;
        },
    .ended = [](int, int&) { return one.dialed_ms == never; },
    .signal = [](int, int) { one.dialed_ms = never; },
    .sleep_ms = [](int) {},
    .send_at = [](const char*) { return 0; },
};

keeper_sight look()
{
    keeper_sight sight;
    sight.running = sight.wanted = sight.there = sight.open = sight.walked = true;
    sight.heard = ++one.heard;
    sight.sim.state = sim_state::ready;
    sight.identified = sight.link_wanted = sight.ready = true;
    sight.registered = registered();
    sight.link_up = word_get(cell_network_up) != 0;
    sight.link = static_cast<link_state>(word_get(link_trouble));
    sight.link_due_ms = word_get(link_due_s) * 1000LL;
    sight.reset_wanted = word_get(radio_reset_wanted) != 0;
    return sight;
}

const keeper_tools keeper_world = {
    .look = look,
    .restart = [] {},
    .reload = [] {},
    .reset_radio = radio_reset,
    .send_at = [](const char*) {},
    .drop = [](int& word) { word_set(word, 0); },
    .hold_link = [](bool held) { word_set(link_held, held ? 1 : 0); },
    .redial = [] { word_set(redial_wanted, 1); },
    .unlock = [] {},
    .show_lock = [](unsigned int) {},
    .say = [](const char*, int) {},
    .tell = [](kelo_reason) {},
};

struct curve {
    std::vector<int> dials, online;
};

void live(curve& seen, const kelo_keeper& rules)
{
    for (int* const word : {&cell_network_up, &redial_wanted, &radio_reset_wanted, &link_held,
                            &link_trouble, &link_due_s})
        word_set(*word, 0);
    one = {};
    one.dials = &seen.dials;
    one.now_ms = -before_s * 1000LL + from_to(0, before_s * 500LL);
    one.registered_ms = one.now_ms;
    one.found_ms = outage_ms + from_to(register_ms[0], register_ms[1]);
    keeper_state keeper = {.tools = &keeper_world};
    kept_link_state link = {.tools = &link_world};
    keeper.rules = rules;
    // The clock of the passes counts from the start of a device, and is never 0.
    const std::int64_t boot_ms = 1000 - one.now_ms;
    const auto total_ms = static_cast<std::int64_t>(seen.dials.size() - before_s) * 1000;
    for (; one.now_ms < total_ms; one.now_ms += step_ms) {
        world_pass();
        keeper_pass(keeper, one.now_ms + boot_ms);
        kept_link_pass(link, one.now_ms + boot_ms);
        if (one.now_ms >= 0 && one.now_ms % 1000 < step_ms && word_get(cell_network_up) != 0)
            ++seen.online[static_cast<std::size_t>(before_s + one.now_ms / 1000)];
    }
}

curve fleet(int devices, int total_s, int spread, int first)
{
    curve seen;
    seen.dials.resize(static_cast<std::size_t>(before_s + total_s));
    seen.online.resize(seen.dials.size());
    kelo_keeper rules{};
    rules.size = sizeof rules;
    kelo_keeper_defaults(&rules);
    link_waits waits;
    waits.spread_percent = spread;
    waits.dial_spread_s = first;
    link_waits_set(waits);
    chance.seed(1);
    for (int i = 0; i < devices; i++)
        live(seen, rules);
    return seen;
}

} // namespace

int main(int count, char** words)
{
    if (count < 6 || (std::strcmp(words[1], "core") != 0 && std::strcmp(words[1], "radio") != 0)) {
        std::cerr << "usage: fleet_retries core|radio DEVICES OUTAGE_S TOTAL_S SPREAD:FIRST...\n";
        return 2;
    }
    radio_kind = std::strcmp(words[1], "radio") == 0;
    const int devices = std::atoi(words[2]);
    const int total_s = std::atoi(words[4]);
    outage_ms = std::atoi(words[3]) * 1000LL;
    if (devices < 1 || total_s < 1 || total_s > 864000 || outage_ms < 0) {
        std::cerr << "fleet_retries: these figures are of no use\n";
        return 2;
    }
    kelo_set_log([](kelo_log_level, const char*, void*) {}, nullptr);
    cellular_setting settings{};
    settings.ping_enable = 0;
    settings_store(settings);
    start_settings_store(settings);
    word_set(g_netWorkCardFlag, 1);
    word_set(is_pin_ready, 1);
    cellular_set_status(CELL_STATUS_READY);

    std::vector<curve> curves;
    std::cout << "second";
    for (int i = 5; i < count; i++) {
        int spread = 0;
        int first = 0;
        if (std::sscanf(words[i], "%d:%d", &spread, &first) != 2) {
            std::cerr << "fleet_retries: " << words[i] << " is no pair of figures\n";
            return 2;
        }
        std::cout << " dials_" << words[i] << " online_" << words[i];
        curves.push_back(fleet(devices, total_s, spread, first));
    }
    std::cout << '\n';
    for (int second = 0; second < total_s; second++) {
        std::cout << second;
        for (const curve& seen : curves)
            std::cout << ' ' << seen.dials[static_cast<std::size_t>(before_s + second)] << ' '
                      << seen.online[static_cast<std::size_t>(before_s + second)];
        std::cout << '\n';
    }
    return 0;
}
