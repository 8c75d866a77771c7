// SPDX-License-Identifier: MIT
// The dialer, pass by pass: every threshold at its pass, and what it leaves behind.
#include "tests/testing.h"

namespace
{

// The world outside the dialer, and what one pass did to it.
int listed, answered;
std::vector<std::string> calls;

void set_world(int up, int pin, int is_listed, int is_answered)
{
    std::tie(cell_network_up, is_pin_ready, listed, answered) =
        std::tuple(up, pin, is_listed, is_answered);
}

int note(const std::string& call, int result = 0)
{
    calls.push_back(call);
    return result;
}

const dialer_tools noted = {[](const char*) { return listed; },
                            [](const char*, const char* target, int wait) {
                                return note(in_words("ping ", target, " ", wait), answered);
                            },
                            [](const char* line) { return note(line); },
                            [](const char* text) { return note(text); },
                            [] { return note("reset"); },
                            [] { return note("restart"); },
                            [](int seconds) { note(in_words("sleep ", seconds)); }};

using passes = std::vector<int>;
constexpr const char* dial = "quectel-CM -d -s net &";

struct Dialer : testing::Test {
    Dialer()
    {
        text_set(settings.apn, "net");
        text_set(settings.ping_target, "there");
        g_netWorkCardFlag = 1;
        cellular_set_status(CELL_STATUS_READY);
    }
    // The passes, counted from 1, in which a call was made.
    passes passes_with(const std::string& call, int count)
    {
        passes at;
        for (int i = 1; i <= count; i++) {
            calls.clear();
            EXPECT_EQ(dialer_pass(state), 200000);
            if (std::find(calls.begin(), calls.end(), call) != calls.end())
                at.push_back(i);
        }
        return at;
    }
    cellular_setting& settings = *get_start_cellular_status();
    dialer_state state = {.tools = &noted};
};

} // namespace

TEST_F(Dialer, Thresholds)
{
    const std::tuple<int, int, int, int, const char*, int, passes> rows[] = {
        {1, 1, 1, 1, "at+qeng=\"servingcell\"", 60, {2, 29, 56}},
        {1, 1, 1, 1, "ping there 5", 700, {302, 604}},
        {0, 1, 0, 0, dial, 200, {1, 51, 101, 151}},
        {0, 1, 0, 0, "restart", 201, {201}},
        {0, 1, 1, 0, dial, 59, {12, 24, 36, 48}},
        {0, 1, 1, 0, "restart", 60, {60}},
        {0, 0, 1, 1, "restart", 510, {252, 504}}};
    for (const auto& [up, pin, is_listed, is_answered, call, count, expected] : rows) {
        state = {.tools = &noted};
        set_world(up, pin, is_listed, is_answered);
        EXPECT_EQ(passes_with(call, count), expected) << call;
    }
}

TEST_F(Dialer, OffBeatsSimWaitBeatsLinkAndStopBeatsAll)
{
    set_world(1, 0, 1, 1);
    g_netWorkCardFlag = 0;
    EXPECT_EQ(dialer_pass(state), 500000);
    EXPECT_EQ(cell_network_up + state.sim_wait_ticks, 0);
    g_netWorkCardFlag = 1;

    // Short drops of the SIM or the status add up, and the PIN stays as it is.
    EXPECT_EQ(passes_with("restart", 200), passes{});
    set_world(1, 1, 1, 1);
    EXPECT_EQ(passes_with("restart", 50), passes{});
    cellular_reset_status();
    EXPECT_EQ(passes_with("restart", 60), passes{52});
    EXPECT_EQ(in_words(cell_network_up, is_pin_ready), "01");

    cell_network_up = global_quagga_stop = 1;
    EXPECT_EQ(dialer_pass(state), -1);
    EXPECT_EQ(cell_network_up, 1);
}

TEST_F(Dialer, LadderFromALostLinkToTheRestart)
{
    set_world(0, 1, 1, 1);
    state.dial_attempts = 3;
    EXPECT_EQ(passes_with("ping there 1", 1), passes{1});
    EXPECT_EQ(get_cell_network_up(), 1);

    // Three pings, each given twice the time; then the redial comes three failures early.
    answered = false;
    state.ping_ticks = 301;
    passes_with("", 1);
    EXPECT_EQ(calls, (std::vector<std::string>{"ping there 5", "ping there 10", "ping there 20"}));
    EXPECT_EQ(cell_network_up, 0);
    EXPECT_EQ(passes_with(dial, 9), passes{9});
    EXPECT_EQ(calls, (std::vector<std::string>{"ping there 1", "killall -q -15 quectel-CM",
                                               "killall -q -15 udhcpc", "sleep 1", dial}));

    // Without the interface the count of dials goes on. A line that is refused is a failed dial.
    text_set(settings.apn, "-s");
    listed = false;
    EXPECT_EQ(passes_with("sleep 1", 150), (passes{50, 100, 150}));
    EXPECT_EQ(calls.back(), "sleep 1");
    EXPECT_EQ(passes_with("restart", 50), passes{50});
    EXPECT_EQ(calls, (std::vector<std::string>{"reset", "restart"}));
    EXPECT_EQ(is_pin_ready, 0);
    is_pin_ready = 1; // once the SIM is back, a full wait ahead of the first dial
    EXPECT_EQ(passes_with("sleep 1", 50), passes{50});

    state.ping_ticks = 301; // a link lost together with its interface dials at once
    cell_network_up = 1;
    EXPECT_EQ(passes_with("sleep 1", 2), passes{2});
}

// The reset of the radio takes three seconds, in which a host may stop the library.
TEST_F(Dialer, StoppedDuringTheResetDoesNotRestart)
{
    dialer_tools tools = noted;
    tools.reset_radio = [] { return global_quagga_stop = 1; };
    state.tools = &tools;
    set_world(0, 1, 1, 0);
    EXPECT_EQ(passes_with("restart", 60), passes{});
    EXPECT_EQ(global_quagga_stop, 1);
}

// Each value of the host reaches the dialer as one argument, or the line is refused whole.
TEST_F(Dialer, CommandLine)
{
    const std::string wide(31, 'a');
    const std::string fits(42, 'u'); // between two wide ones it fills the line
    const std::array<std::string, 4> rows[] = {
        {"", "u", "p", "quectel-CM -d &"},
        {"net", "u", "", "quectel-CM -d -s net &"},
        {"a.b", "u@d", "p-1", "quectel-CM -d -s a.b u@d p-1 9 &"},
        {"a;>x", "~", "it's", "quectel-CM -d -s 'a;>x' '~' 'it'\\''s' 9 &"},
        {wide, fits, wide, "quectel-CM -d -s " + wide + " " + fits + " " + wide + " 9 &"},
        {wide, fits + "u", wide, ""},
        {std::string(31, '\''), "", "", ""},
        {"net", "-6", "p", ""},
        {"n\net", "", "", ""}};
    settings.auth = 9;
    for (const auto& [apn, user, password, expected] : rows) {
        text_set(settings.apn, apn.c_str());
        text_set(settings.user, user.c_str());
        text_set(settings.password, password.c_str());
        char line[128];
        const captured out;
        EXPECT_EQ(dialer_command_build(line, sizeof line), expected.empty() ? -1 : 0);
        EXPECT_EQ(line, expected);
        EXPECT_EQ(out.has("refused to dial"), expected.empty());
    }
}
