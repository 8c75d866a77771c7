// SPDX-License-Identifier: MIT
// The data link with a keeper, by the clock: what it does to the dialer, and what it says.
#include "tests/testing.h"

namespace
{

struct world {
    bool up = false, addressed = true, there = true, pings = true, deaf = false, stray = false;
    int alive = -1, exit_status = -1, next = 100;
    std::string answers; // the ping target that does
};
world outside;
std::string acts;
std::int64_t now_ms;

void act(const std::string& what)
{
    acts += in_words(now_ms / 1000, " ", what, ";");
}

const kept_link_tools noted = {
    .interface_up = [](const char*) { return outside.up; },
    .interface_addressed = [](const char*) { return outside.addressed; },
    .program_there = [](const char* name) { return *name == 'p' ? outside.pings : outside.there; },
    .link_ping = [](const char*, const char* target,
                    int) { return outside.answers == target ? 1 : 0; },
    .run =
        [](const char* line) {
            if (text_has(line, "killall"))
                outside.stray &= !text_has(line, "-9");
            else
                act(line);
            return text_has(line, "killall") && outside.stray ? 0 : 1;
        },
    .start =
        [](const char* line) {
            act(line);
            return outside.alive = outside.next++;
        },
    .ended =
        [](int process, int& status) {
            status = outside.exit_status;
            return process != outside.alive;
        },
    .signal =
        [](int, int number) {
            act(in_words("signal ", number));
            if (number == SIGKILL || !outside.deaf)
                outside.alive = -1;
        },
    .sleep_ms = [](int ms) { now_ms += ms; },
    .send_at = [](const char*) { return 0; },
};

// NOLINTNEXTLINE(readability-identifier-naming): the name of the suite
struct KeptLink : testing::Test {
    KeptLink()
    {
        outside = {};
        now_ms = 1000;
        cellular_setting settings{};
        settings.ping_enable = 1;
        text_set(settings.ping_target, "first");
        settings_store(settings);
        g_netWorkCardFlag = is_pin_ready = 1;
        link_held = 0;
        cellular_set_status(CELL_STATUS_READY);
        link_waits waits;
        waits.spread_percent = 0;
        text_set(waits.second_target, "second");
        link_waits_set(waits);
    }
    std::string until(int second)
    {
        acts.clear();
        while (now_ms < second * 1000LL) {
            EXPECT_GT(kept_link_pass(state, now_ms), 0);
            now_ms += 200;
        }
        return acts;
    }
    link_state said() const { return static_cast<link_state>(word_get(link_trouble)); }

    kept_link_state state = {.tools = &noted};
};

} // namespace

// A dialer that needs 30 s is not killed; one that brings nothing up is, after 45 s, and dialed
// again after 10, 20, 40 s and so on, and after four the radio has to help.
TEST_F(KeptLink, PatienceAndBackOff)
{
    EXPECT_EQ(until(31), "1 exec quectel-CM -d;");
    outside.up = true;
    outside.answers = "second";
    EXPECT_EQ(until(120), "");
    EXPECT_EQ(said(), link_state::up);

    outside.up = false;
    EXPECT_EQ(until(160), "120 signal 15;120 exec quectel-CM -d;");
    EXPECT_EQ(in_words(cell_network_up, link_loss_count), "01");
    EXPECT_EQ(until(400),
              "165 signal 15;175 exec quectel-CM -d;220 signal 15;240 exec quectel-CM -d;"
              "285 signal 15;325 exec quectel-CM -d;370 signal 15;");
    EXPECT_EQ(radio_reset_wanted, 1);
    for (const auto& [failures, seconds] :
         {std::pair(1, 10), {4, 80}, {7, 640}, {8, 900}, {99, 900}})
        EXPECT_EQ(backoff_ms(10, 900, 0, failures), seconds * 1000) << failures;
    std::set<std::int64_t> waits;
    for (int i = 0; i < 50; i++)
        waits.insert(backoff_ms(10, 900, 20, 1));
    EXPECT_GT(waits.size(), 20U);
    EXPECT_GE(*waits.begin(), 8000);
    EXPECT_LE(*waits.rbegin(), 12000);
}

// With a spread what a whole cell does in one second is done within that time: the dial behind a
// start, a lost link and a new registration. A registration that comes and goes does not put it
// off.
TEST_F(KeptLink, SpreadsFirstDials)
{
    link_waits waits;
    waits.dial_spread_s = 30;
    link_waits_set(waits);
    const std::pair<const char*, void (*)()> causes[] = {
        {"start", [] {}},
        {"loss",
         [] {
             outside.up = false;
             now_ms += 20000;
         }},
        {"registration", [] { word_set(redial_wanted, 1); }}};
    for (const auto& [name, happens] : causes) {
        std::set<std::int64_t> seen;
        for (int i = 0; i < 40; i++) {
            outside = {};
            state = {.tools = &noted};
            word_set(cell_network_up, 0);
            if (*name == 'l') { // it was up
                outside.up = true;
                outside.answers = "first";
                until(static_cast<int>(now_ms / 1000) + 1);
            }
            happens();
            const std::int64_t from_ms = now_ms;
            for (acts.clear(); acts.empty() && now_ms < from_ms + 40000; now_ms += 200) {
                word_set(redial_wanted, *name == 'r' ? 1 : 0);
                kept_link_pass(state, now_ms);
            }
            seen.insert((now_ms - from_ms) / 1000);
        }
        EXPECT_GT(seen.size(), 3U) << name;
        EXPECT_LE(*seen.rbegin(), 30) << name;
    }
}

// A dialer that ends is a failure at once, one that is deaf is killed, a stranger's is not doubled.
TEST_F(KeptLink, EndsWhatItStarted)
{
    outside.stray = true;
    EXPECT_EQ(until(8), "6 exec quectel-CM -d;");
    outside.alive = -1;
    outside.exit_status = 1;
    EXPECT_EQ(until(20), "18 exec quectel-CM -d;");
}

TEST_F(KeptLink, KillsADeafDialer)
{
    until(2);
    outside.deaf = outside.up = true;
    EXPECT_EQ(until(45), "32 signal 15;37 signal 9;37 ifconfig wwan0 down;") << "no ping for 30 s";
    EXPECT_EQ(said(), link_state::no_ping);
}

// What is missing is said once, and the radio is not to blame.
TEST_F(KeptLink, WhatIsMissing)
{
    outside.there = false;
    const captured out;
    EXPECT_EQ(until(300), "");
    EXPECT_EQ(said(), link_state::no_dialer);
    outside.up = true;
    outside.pings = false;
    EXPECT_EQ(until(600), "");
    EXPECT_EQ(said(), link_state::no_ping);
    EXPECT_EQ(radio_reset_wanted, 0);
    EXPECT_EQ(std::pair(count_of(out.text(), "no program quectel-CM"),
                        count_of(out.text(), "no program ping")),
              std::pair(1, 1));
    outside.pings = true;
    outside.addressed = false;
    until(602);
    EXPECT_EQ(said(), link_state::no_address);
}

// The lost context and the dialer's end are looked into at once, not after a minute; a modem that
// is away costs no failure.
TEST_F(KeptLink, LooksAtOnceAndStandsBy)
{
    outside.up = true;
    outside.answers = "first";
    until(100);
    outside.answers = "";
    EXPECT_EQ(until(110), "");
    set_cell_pdpdeact(1);
    EXPECT_EQ(until(111), "110 ifconfig wwan0 down;");
    outside.up = false;
    EXPECT_EQ(until(112), "111 exec quectel-CM -d;");
    EXPECT_EQ(get_cell_pdpdeact(), 0);
    word_set(link_held, 1);
    outside.alive = -1; // with the modem
    EXPECT_EQ(until(200), "");
    word_set(link_held, 0);
    EXPECT_EQ(until(201), "200 exec quectel-CM -d;");
    EXPECT_EQ(state.failures, 0);
}
