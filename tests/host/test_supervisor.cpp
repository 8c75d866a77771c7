#include "host/supervisor.h"
#include "tests/host/fakes.h"

#include <gtest/gtest.h>

using namespace kelo_host;

namespace
{

constexpr char lost[] = "no modem port is open: looking for one every 10 seconds;";
constexpr char back[] = "the modem port is open: /dev/null;";
constexpr char reloads[] = "reload;a reload is wanted: the reload flow runs;";
constexpr char anew[] = "a fresh start is wanted: the modem task restarts;restart;";

// clang-format off
void closed() { g_mobile.fd = -1; }
void opened() { g_mobile.fd = 0; }
void unplugged() { g_mobile.at_dev[8] = '?'; }
void plugged() { g_mobile.at_dev[8] = 'l'; }
void forgotten() { auto record = &g_mobile; libgsm_mobile_free(&record); }
void restart_begins() { cell_repower_lock = 1; }
void restart_ends() { cell_repower_lock = 0; }
void reload_refused() { cell_reload_flag = 1; fake.reload = -1; }
void reload_taken() { fake.reload = 0; }
void call() { cellular_set_call_received(1); }
void news() { call(); cellular_set_sms_received(1); cellular_set_mqtt_received(1); set_cell_pdpdeact(1); }
// clang-format on

// NOLINTNEXTLINE(readability-identifier-naming): the name of the suite
struct Supervision : testing::Test {
    void SetUp() override { fresh_library(); }
    supervisor keeper{note};
    const std::function<void(moment)> pass = [this](moment now) { keeper.pass(now); };
};

} // namespace

// clang-format off

// Catches: a port called lost while the start looks for it, tries that come too often or never, and a modem that is
// restarted although its port is open again.
TEST_F(Supervision, LooksForAPortUntilThereIsOne)
{
    walk(pass, {{0, closed, ""}, {3999, nullptr, ""}, {4000, nullptr, lost}, {13999, nullptr, ""},
                {14000, nullptr, "restart;"}, {23999, nullptr, ""}, {24000, restart_begins, ""},
                {24250, restart_ends, "restart;"}, {26250, opened, ""}, {26251, nullptr, back}, {99999, nullptr, ""},
                {100000, unplugged, lost}, {109000, plugged, ""}, {110000, nullptr, "restart;"}});
    EXPECT_EQ(keeper.restarts(), 1);
}

// Catches: a device that was gone for a moment taken for the one whose port is open, and a host that restarts a
// library without a record.
TEST_F(Supervision, OpensAPortAnewWhoseDeviceWasGone)
{
    walk(pass, {{0, nullptr, ""}, {1000, unplugged, ""}, {3000, plugged, ""}, {5000, unplugged, lost},
                {8000, plugged, ""}, {15000, nullptr, "restart;"}, {17001, nullptr, back}, {18000, forgotten, ""},
                {60000, closed, ""}});
}

// Catches: a wish that is lost when it is refused, and wishes that never let the flow get to its end.
TEST_F(Supervision, ReloadsWhenAskedAndNotTooOften)
{
    walk(pass, {{0, nullptr, ""}, {100, reload_refused, "reload;"}, {350, nullptr, "reload;"},
                {600, reload_taken, reloads}, {850, nullptr, ""}, {1000, cell_reload_flag_set, ""},
                {5599, nullptr, ""}, {5600, nullptr, reloads}, {20000, nullptr, ""}});
}

// Catches: one request that restarts the modem for ever, and one that comes during a restart forgotten.
TEST_F(Supervision, StartsAnewOnceForEachRequest)
{
    walk(pass, {{0, cell_start_flag_set, anew}, {250, restart_begins, ""}, {500, cell_start_flag_set, anew},
                {750, restart_ends, ""}, {1000, nullptr, ""}});
    EXPECT_EQ(keeper.restarts(), 1);
}

// Catches: news that are told or counted twice, or not at all.
TEST_F(Supervision, TellsNewsOnce)
{
    walk(pass, {{0, news, "a call came in;an MQTT message came in;the packet data context was lost;"},
                {250, nullptr, ""}, {500, call, "a call came in;"}});
    const auto [sms, calls, mqtt] = keeper.received();
    EXPECT_EQ(std::tuple(sms, calls, mqtt, kelo_is_sms_received()), std::tuple(0, 2, 1, 0)); // SMS: by their queue
}
