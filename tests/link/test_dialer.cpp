// The dialer, pass by pass: every threshold at its pass, and what it leaves behind.
#include "link/init.h"
#include "stand_ins.h"
#include "support/shell.h"
#include "testing.h"
#include <kelo/settings.h>

using namespace kelo;

namespace
{

using call_list = std::vector<std::string>;

// The world outside the dialer, and what one pass did to it.
bool listed, answered;
call_list calls;

int note(const std::string& call)
{
    calls.push_back(call);
    return 0;
}

int ping(const char*, const char* target, int wait)
{
    note("ping " + std::string(target) + " " + std::to_string(wait));
    return answered ? 1 : 0;
}

const dialer_tools noted = {[](const char*) { return listed ? 1 : 0; },
                            ping,
                            [](const char* line) { return note(line); },
                            [](const char* text) { return note(text); },
                            [] { return note("reset"); },
                            [] { return note("restart"); },
                            [](int seconds) { note("sleep " + std::to_string(seconds)); }};

class Dialer : public testing::Test
{
  protected:
    Dialer()
    {
        text_set(get_start_cellular_status()->apn, "net");
        text_set(get_start_cellular_status()->ping_target, "there");
        g_netWorkCardFlag = 1;
        cellular_set_status(CELL_STATUS_READY);
    }
    void world(int up, int pin, bool is_listed, bool is_answered)
    {
        cell_network_up = up;
        is_pin_ready = pin;
        listed = is_listed;
        answered = is_answered;
    }
    // The passes, counted from 1, in which a call was made.
    std::vector<int> passes_with(const std::string& call, int count)
    {
        std::vector<int> at;
        for (int i = 1; i <= count; i++) {
            calls.clear();
            EXPECT_EQ(dialer_pass(state), 200000);
            if (std::find(calls.begin(), calls.end(), call) != calls.end())
                at.push_back(i);
        }
        return at;
    }
    dialer_state state = {.tools = &noted};
};

using passes = std::vector<int>;
constexpr const char* dial = "quectel-CM -d -s net &";

} // namespace

TEST_F(Dialer, Thresholds)
{
    struct {
        int up, pin;
        bool is_listed, is_answered;
        const char* call;
        int count;
        passes expected;
    } const rows[] = {
        {1, 1, true, true, "at+qeng=\"servingcell\"", 60, {2, 29, 56}},
        {1, 1, true, true, "ping there 5", 700, {302, 604}},
        {0, 1, false, false, dial, 200, {1, 51, 101, 151}},
        {0, 1, false, false, "restart", 201, {201}},
        {0, 1, true, false, dial, 59, {12, 24, 36, 48}},
        {0, 1, true, false, "restart", 60, {60}},
        {0, 0, true, true, "restart", 510, {252, 504}},
    };
    for (const auto& row : rows) {
        state = {.tools = &noted};
        world(row.up, row.pin, row.is_listed, row.is_answered);
        EXPECT_EQ(passes_with(row.call, row.count), row.expected) << row.call;
    }
}

TEST_F(Dialer, OffBeatsSimWaitBeatsLinkAndStopBeatsAll)
{
    world(1, 0, true, true);
    g_netWorkCardFlag = 0;
    EXPECT_EQ(dialer_pass(state), 500000);
    EXPECT_EQ(cell_network_up + state.sim_wait_ticks, 0);
    g_netWorkCardFlag = 1;

    // Short drops of the SIM or the status add up, and the PIN stays as it is.
    EXPECT_EQ(passes_with("restart", 200), passes{});
    world(1, 1, true, true);
    EXPECT_EQ(passes_with("restart", 50), passes{});
    cellular_reset_status();
    EXPECT_EQ(passes_with("restart", 60), passes{52});
    EXPECT_EQ(cell_network_up, 0);
    EXPECT_EQ(is_pin_ready, 1);

    cell_network_up = global_quagga_stop = 1;
    EXPECT_EQ(dialer_thread(nullptr), nullptr);
    EXPECT_EQ(cell_network_up, 1);
}

TEST_F(Dialer, LadderFromALostLinkToTheRestart)
{
    world(0, 1, true, true);
    state.dial_attempts = 3;
    EXPECT_EQ(passes_with("ping there 1", 1), passes{1});
    EXPECT_EQ(get_cell_network_up(), 1);

    // Three pings, each given twice the time; then the redial comes three failures early.
    answered = false;
    state.ping_ticks = 301;
    passes_with("", 1);
    EXPECT_EQ(calls, (call_list{"ping there 5", "ping there 10", "ping there 20"}));
    EXPECT_EQ(cell_network_up, 0);
    EXPECT_EQ(passes_with(dial, 9), passes{9});
    EXPECT_EQ(calls, (call_list{"ping there 1", "killall -q -15 quectel-CM",
                                "killall -q -15 udhcpc", "sleep 1", dial}));

    // Without the interface the count of dials goes on. A line that is refused is a failed dial.
    text_set(get_start_cellular_status()->apn, "-s");
    listed = false;
    EXPECT_EQ(passes_with("sleep 1", 150), (passes{50, 100, 150}));
    EXPECT_EQ(calls.back(), "sleep 1");
    EXPECT_EQ(passes_with("restart", 50), passes{50});
    EXPECT_EQ(calls, (call_list{"reset", "restart"}));
    EXPECT_EQ(is_pin_ready, 0);
    is_pin_ready = 1; // once the SIM is back, a full wait ahead of the first dial
    EXPECT_EQ(passes_with("sleep 1", 50), passes{50});

    state.ping_ticks = 301; // a link lost together with its interface dials at once
    cell_network_up = 1;
    EXPECT_EQ(passes_with("sleep 1", 2), passes{2});
}

// Each value of the host reaches the dialer as one argument, or the line is refused whole.
TEST_F(Dialer, CommandLine)
{
    const std::string wide(31, 'a');
    const std::string fits(42, 'u'); // between two wide ones it fills the line
    struct {
        std::string apn, user, password;
        int auth;
        std::string arguments; // empty: refused
        const char* line = nullptr;
    } const rows[] = {
        {"", "u", "p", 1, "[-d]", "quectel-CM -d &"},
        {"net", "u", "", 1, "[-d][-s][net]", "quectel-CM -d -s net &"},
        {"a.b", "u@d", "p-1", 9, "[-d][-s][a.b][u@d][p-1][9]", "quectel-CM -d -s a.b u@d p-1 9 &"},
        {"$(>/tmp/x)", "`>/tmp/x`", "it's", 0, "[-d][-s][$(>/tmp/x)][`>/tmp/x`][it's][0]"},
        {"a;>/tmp/x", "~", "*", 0, "[-d][-s][a;>/tmp/x][~][*][0]"},
        {wide, fits, wide, 1, "[-d][-s][" + wide + "][" + fits + "][" + wide + "][1]"},
        {wide, fits + "u", wide, 1, ""},
        {std::string(31, '\''), "", "", 1, ""},
        {"net", "-6", "p", 0, ""},
        {"n\net", "", "", 0, ""},
    };
    test::stand_in("quectel-CM", "printf '[%s]' \"$@\" >/tmp/new; mv /tmp/new /tmp/arguments");
    for (const auto& row : rows) {
        cellular_setting& settings = *get_start_cellular_status();
        text_set(settings.apn, row.apn.c_str());
        text_set(settings.user, row.user.c_str());
        text_set(settings.password, row.password.c_str());
        settings.auth = row.auth;
        char line[128];
        test::captured out;
        ASSERT_EQ(dialer_command_build(line, sizeof line), row.arguments.empty() ? -1 : 0);
        EXPECT_TRUE(row.line == nullptr ||
                    out.has("[4G]---> dialer = " + std::string(row.line) + " \n"));
        EXPECT_EQ(out.has("refused to dial"), row.arguments.empty());
        if (row.arguments.empty())
            continue;
        shell_run(line);
        EXPECT_TRUE(test::wait_until([] { return access("/tmp/arguments", F_OK) == 0; }));
        EXPECT_EQ(test::content_of("/tmp/arguments"), row.arguments);
        std::remove("/tmp/arguments");
    }
    EXPECT_NE(access("/tmp/x", F_OK), 0);
}
