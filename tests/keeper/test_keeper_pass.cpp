// SPDX-License-Identifier: MIT
// The keeper, pass by pass: what is wrong, what is done about it, and when.
#include "keeper/keeper.h"
#include "tests/testing.h"

namespace
{

keeper_sight sight;
std::string acts; // of the passes since it was cleared, with a ';' behind each
int now_s;

void act(const std::string& what)
{
    acts += in_words(now_s, " ", what, ";");
}

const keeper_tools noted = {
    .look = [] { return sight; },
    .restart = [] { act("restart"); },
    .reload = [] { act("reload"); },
    .reset_radio = [] { act("radio"); },
    .send_at = [](const char* text) { act(text); },
    .drop =
        [](int& word) {
            sight.radio *= &word != &radio_answer;
            sight.reload_wanted &= &word != &cell_reload_flag;
            sight.start_wanted &= &word != &cell_start_flag;
            sight.reset_wanted &= &word != &radio_reset_wanted;
        },
    .hold_link = [](bool) {},
    .redial = [] { act("redial"); },
    .unlock = [] { sight.ready = true; },
    .show_lock = [](unsigned int) {},
    .say = [](const char*, int) {},
    .tell = [](kelo_reason) {},
};

// NOLINTNEXTLINE(readability-identifier-naming): the name of the suite
struct Keeper : testing::Test {
    Keeper()
    {
        now_s = 0;
        acts.clear();
        state.rules.size = sizeof state.rules;
        kelo_keeper_defaults(&state.rules);
        sight = {};
        sight.running = sight.wanted = sight.there = sight.open = sight.walked = true;
        sight.sim.state = sim_state::ready;
    }
    // Passes up to a second, with a word of the modem ahead of each when it speaks.
    std::string until(int end_s, bool speaks = true)
    {
        acts.clear();
        for (; now_s < end_s; now_s++) {
            sight.heard += speaks;
            keeper_pass(state, (now_s + 1) * 1000LL);
            keeper_pass(state, (now_s + 1) * 1000LL + 500);
        }
        return acts;
    }
    std::string reason() { return kelo_reason_name(state.reason); }

    keeper_state state = {.tools = &noted};
};

void online()
{
    sight.registered = sight.ready = sight.link_up = true;
}

} // namespace

// The first thing that is wrong, from the port up, is the reason.
TEST_F(Keeper, SaysTheFirstThingThatIsWrong)
{
    const std::pair<const char*, void (*)()> rows[] = {
        {"online", online},
        {"no ping",
         [] { sight.link_up = false, sight.link_wanted = true, sight.link = link_state::no_ping; }},
        {"no address", [] { sight.link = link_state::no_address; }},
        {"dialing", [] { sight.link = link_state::dialing; }},
        {"no dialer", [] { sight.link = link_state::no_dialer; }},
        {"searching", [] { sight.registered = false; }},
        {"denied", [] { sight.denied = true; }},
        {"SIM failed", [] { sight.sim.state = sim_state::failed; }},
        {"no SIM", [] { sight.sim.state = sim_state::missing; }},
        {"PUK required", [] { sight.sim.state = sim_state::puk; }},
        {"PIN required", [] { sight.sim.state = sim_state::pin; }},
        {"PIN refused", [] { sight.sim.refused = true; }},
        {"unknown module", [] { sight.unlisted = true; }},
        {"unknown module", [] { sight.unknown_module = true, sight.unlisted = false; }},
        {"port in use", [] { sight.open = false, sight.open_error = EBUSY; }},
        {"no permission", [] { sight.open_error = EACCES; }},
        {"no port", [] { sight.there = false; }},
        {"stopped", [] { sight.wanted = false; }}};
    for (const auto& [expected, make] : rows) {
        make();
        until(now_s + 2);
        EXPECT_EQ(reason(), expected);
    }
}

// A radio that searches is asked every 15 s and left alone for 6 min, then 12, 24, 30 and 30; the
// reload that three losses of registration ask for does not come in between.
TEST_F(Keeper, IsPatientWithARadioThatSearches)
{
    sight.reload_wanted = true;
    EXPECT_EQ(until(46), "1 AT+COPS?;1 AT+CFUN?;16 AT+COPS?;31 AT+COPS?;");
    std::string resets;
    for (int minute = 1; minute <= 110; minute++) {
        sight.reload_wanted = true;
        for (std::istringstream all(until(minute * 60)); std::getline(all, acts, ';');)
            resets += text_has(acts.c_str(), "AT+") ? "" : acts + ";";
    }
    EXPECT_EQ(resets, "360 radio;1080 radio;2520 radio;4320 radio;6120 radio;");

    // Found by itself, it drops the reload; and patience begins anew with the next loss.
    online();
    EXPECT_EQ(until(now_s + 5), "");
    EXPECT_EQ(reason(), "online");
    EXPECT_FALSE(sight.reload_wanted);
    const int lost_s = now_s;
    sight.registered = sight.link_up = false;
    EXPECT_EQ(until(lost_s + 1), in_words(lost_s, " AT+COPS?;"));
    EXPECT_FALSE(text_has(until(lost_s + 355).c_str(), "radio"));
    EXPECT_TRUE(text_has(until(lost_s + 365).c_str(), "radio"));
}

// A link that carries data belies the registration that is said to be lost: asked about, no more.
TEST_F(Keeper, BelievesTheLink)
{
    online();
    until(10);
    sight.registered = false;
    sight.reload_wanted = true;
    EXPECT_EQ(until(30), "10 AT+COPS?;25 AT+COPS?;");
    EXPECT_EQ(reason(), "online");
    sight.registered = true;
    EXPECT_EQ(until(60), "");
}

// A radio that was left off is switched on as soon as it says so.
TEST_F(Keeper, SwitchesOnARadioThatIsOff)
{
    const std::pair<int, const char*> rows[] = {{1, "2 AT+CFUN=1;"}, {5, "2 AT+CFUN=1;"}, {2, ""}};
    for (const auto& [answer, expected] : rows) {
        now_s = 0;
        state = {.tools = &noted, .rules = state.rules};
        until(2);
        sight.radio = answer;
        EXPECT_EQ(until(10), expected) << answer;
    }
}

// Nothing is started without a node, a start comes within a second of one, and a port that can't be
// opened is tried with growing pauses.
TEST_F(Keeper, StartsWhenThereIsAPort)
{
    online();
    until(3);
    sight.there = sight.open = false;
    EXPECT_EQ(until(100), "");
    sight.there = true;
    EXPECT_EQ(until(200), "100 restart;105 restart;115 restart;135 restart;175 restart;");
    EXPECT_EQ(state.figures.port_losses, 1U);
    sight.busy = true;
    EXPECT_EQ(until(300), "");
    sight.running = sight.busy = false;
    EXPECT_EQ(until(310), "");
    EXPECT_EQ(reason(), "stopped");
}

// A locked SIM is left alone by every ladder, but for a PIN that the host sets.
TEST_F(Keeper, LeavesALockedSimAlone)
{
    sight.sim.state = sim_state::pin;
    sight.reload_wanted = true;
    const std::string all = until(4000); // nothing but the question, every 15 s
    EXPECT_EQ(std::pair(count_of(all, "AT+CPIN?;"), count_of(all, ";")), std::pair(267, 267));
    sight.sim.may_send = true;
    EXPECT_TRUE(text_has(until(4001).c_str(), "4000 restart;"));
}

// Catches: a card that took its PIN each time and waits the longer for it, the more often it was
// gone.
TEST_F(Keeper, SendsAPinWithoutDelayWhereTheLastWasTaken)
{
    online();
    for (int time = 25; time < 500; time += 25) {
        until(time);
        sight.sim = {.state = sim_state::pin, .may_send = true};
        sight.start_wanted = time % 2 == 0;
        EXPECT_EQ(count_of(until(time + 5), "restart;"), 1) << time;
        sight.sim = {.state = sim_state::ready};
        sight.start_wanted = false;
    }
    sight.sim = {.state = sim_state::pin, .may_send = true};
    EXPECT_LT(count_of(until(500 + 3600), "restart;"), 10) << "it is not taken";
}

// A flow of half a minute must not hide it; a radio that is off for a moment must not show it.
TEST_F(Keeper, SaysThatTheSimIsMissingWhileAFlowRuns)
{
    sight.walked = false;
    until(5);
    sight.sim.state = sim_state::missing;
    for (const auto& [second, expected] : {std::pair{14, "searching"}, std::pair{17, "no SIM"}}) {
        EXPECT_EQ(until(second), "") << "the flow is not disturbed";
        EXPECT_EQ(reason(), expected);
    }
}

TEST_F(Keeper, AsksForASimThatIsGone)
{
    sight.sim.state = sim_state::missing;
    EXPECT_EQ(until(25), "1 AT+CPIN?;1 AT+CFUN?;11 AT+CPIN?;21 AT+CPIN?;");
    sight.reload_wanted = true;
    sight.radio = 1; // off, and with it the SIM on some modules
    EXPECT_EQ(until(27), "25 AT+CFUN=1;");
    sight.reload_wanted = true;
    EXPECT_EQ(until(28), "27 reload;");
}

// Silence is met by a word, then by restarts, then by the power switch, never during a start.
TEST_F(Keeper, ClimbsTheLadderOfAModemThatHangs)
{
    online();
    until(3);
    std::string steps;
    std::vector<int> stuck;
    sight.busy = false;
    for (int second = 4; second < 6400; second++) {
        for (std::istringstream all(until(second, false)); std::getline(all, acts, ';');)
            if (text_has(acts.c_str(), "AT+CFUN=1,1"))
                steps += acts + ";";
        if (const int number = std::exchange(state.stuck_number, 0); number != 0)
            stuck.insert(stuck.end(), {number, now_s - 1});
        if (second == 30 || second == 64) {
            EXPECT_EQ(reason(), second == 30 ? "online" : "no answer");
        }
    }
    EXPECT_EQ(steps, "122 AT+CFUN=1,1;602 AT+CFUN=1,1;");
    EXPECT_EQ(stuck, (std::vector<int>{1, 902, 2, 2702, 3, 6302}));
    EXPECT_EQ(state.figures.modem_restarts, 5U);
    until(now_s + 1);
    EXPECT_EQ(reason(), "online");
    EXPECT_EQ(until(now_s + 18, false), "");
    const std::string word = in_words(now_s + 1, " AT;");
    EXPECT_EQ(until(now_s + 4, false), word);
}

// Wishes of events are obeyed at once, then with growing pauses; one that a start under way serves
// asks for no second.
TEST_F(Keeper, ObeysWishes)
{
    online();
    until(3);
    sight.start_wanted = true;
    EXPECT_EQ(until(4), "3 restart;");
    sight.start_wanted = sight.busy = true;
    until(5);
    sight.busy = false;
    EXPECT_EQ(until(60), "");
    sight.reload_wanted = true;
    EXPECT_EQ(until(61), "60 reload;");

    std::string reloads; // one that is asked for all the time
    for (int end_s = 300; now_s < end_s;) {
        sight.reload_wanted = true;
        reloads += until(now_s + 1);
    }
    EXPECT_EQ(reloads, "65 reload;75 reload;95 reload;135 reload;215 reload;");
    sight.reload_wanted = false;

    // What three losses of registration asked for in the flow that found it in the end.
    sight.registered = sight.link_up = false;
    until(310);
    online();
    sight.reload_wanted = sight.start_wanted = true;
    EXPECT_EQ(until(320), "");
}

// The radio is reset for the dialer's sake with the same patience, and not at all once it is up.
TEST_F(Keeper, ResetsTheRadioForTheDialer)
{
    online();
    sight.link_wanted = sight.reset_wanted = true;
    sight.link_up = false;
    EXPECT_EQ(until(18), "1 AT+COPS?;16 AT+COPS?;");
    sight.registered = false;
    until(20);
    sight.registered = true;
    EXPECT_EQ(until(21), "20 redial;");
    EXPECT_TRUE(text_has(until(400).c_str(), "360 radio;"));
    sight.reset_wanted = sight.link_up = true;
    EXPECT_EQ(until(2000), "");
    EXPECT_EQ(reason(), "online");
}

TEST_F(Keeper, CountsTime)
{
    until(100);
    online();
    until(150);
    sight.registered = sight.link_up = false;
    until(180);
    const kelo_figures& figures = state.figures;
    EXPECT_NEAR(figures.online_s, 50, 1);
    EXPECT_NEAR(figures.offline_s, 130, 1);
    EXPECT_NEAR(figures.last_outage_s, 30, 1);
    EXPECT_NEAR(figures.longest_outage_s, 100, 1);
    EXPECT_EQ(figures.action, KELO_ACTION_RADIO_RESET);
    EXPECT_NEAR(figures.action_in_s, 330, 2);
    EXPECT_NEAR(static_cast<double>(figures.registered_at), static_cast<double>(std::time(nullptr)),
                5);
}
