// SPDX-License-Identifier: MIT
#include "host/input/settings_file.h"
#include "host/services.h"
#include "host/state/happenings.h"
#include "tests/host/fakes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

using namespace kelo_host;

namespace
{

constexpr char up[] = "MQTT: subscribed to t?1;";
const std::string loss = "MQTT: +QMTSTAT: 0,1;";
const std::string again = "MQTT: the subscription is lost, bringing it up again;t\n1;";
constexpr char engine[] = "on;start;GPS: the engine is on, waiting for a position;";

// clang-format off
void refused() { fake.mqtt_done(0); }
void confirmed() { fake.mqtt_done(1); fake.mqtt_pending = 0; }
void dropped() { fake.mqtt_report("+QMTSTAT: 0,1"); }
void dropped_twice() { dropped(); fake.mqtt_report("Mqtt is\nlost"); }
void dropped_in_update() { dropped(); fake.mqtt_pending = 1; }
void registered() { cellular_set_status(CELL_STATUS_READY); }
void located() { fake.position = "1,\x1b[2J"; }
// clang-format on

// NOLINTNEXTLINE(readability-identifier-naming): the name of the suite
struct Services : testing::Test {
    void SetUp() override { fresh_library(); }
    bool start_mqtt()
    {
        mqtt_config config{};
        std::strcpy(config.topic, "t\n1");
        fake.log.clear();
        const bool started = mqtt.start(config);
        EXPECT_EQ(fake.log, "backoff;t\n1;"); // a fleet of hosts must not act in step
        fake.log.clear();
        return started;
    }
    feed nobody;
    mqtt_client mqtt{note, nobody};
    gps_engine gps{note, nobody};
    int restarts = 0;
    const std::function<void(moment)> mqtt_pass = [this](moment now) { mqtt.pass(now, restarts); };
    const std::function<void(moment)> gps_pass = [this](moment now) { gps.pass(now); };
};

} // namespace

// clang-format off

// Catches: a lost subscription that nobody brings up again, or that is handed in on top of an update that still runs,
// at each report of a burst, or without a pause to a modem that keeps dropping it.
TEST_F(Services, MqttComesUpAgainAfterALoss)
{
    ASSERT_TRUE(start_mqtt());
    walk(mqtt_pass, {{0, nullptr, ""}, {250, refused, ""}});
    EXPECT_STREQ(mqtt.state(), "connecting");
    walk(mqtt_pass, {{500, confirmed, up}, {750, nullptr, ""}});
    EXPECT_STREQ(mqtt.state(), "subscribed");
    walk(mqtt_pass, {{1000, dropped_twice, loss + "MQTT: Mqtt is?lost;" + again}});
    EXPECT_STREQ(mqtt.state(), "connecting");
    walk(mqtt_pass, {{1250, dropped_in_update, loss}, {7000, nullptr, ""}, {7250, dropped, loss}, {8000, confirmed, up},
                     {9000, nullptr, ""}, {9250, dropped, loss + again}, {9400, dropped, loss}, {9500, confirmed, up},
                     {14300, nullptr, ""}, {15000, dropped, loss + again}, {15250, confirmed, up},
                     {15500, dropped, loss}, {19999, nullptr, ""}, {20000, nullptr, again}, {30000, nullptr, ""}});
}

// Catches: a restart that took the connection and said so nowhere, one taken for the loss of what never stood, a flood
// of reports that fills the memory, and refused settings that are kept up.
TEST_F(Services, MqttOutlivesRestartsAndFloods)
{
    ASSERT_TRUE(start_mqtt());
    restarts = 1;
    walk(mqtt_pass, {{0, nullptr, ""}, {250, confirmed, up}, {500, nullptr, ""}});
    restarts = 2;
    walk(mqtt_pass, {{750, nullptr, again}, {10000, nullptr, ""}});
    for (int i = 0; i < 1000; i++)
        dropped();
    mqtt_pass(at_ms(10001));
    EXPECT_EQ(std::count(fake.log.begin(), fake.log.end(), '+'), 32);

    fake.mqtt_wake = -1;
    EXPECT_FALSE(start_mqtt());
    EXPECT_STREQ(mqtt.state(), "off");
    walk(mqtt_pass, {{50000, dropped, ""}});
}

// Catches: a mode sent again that did not change, which takes the link down where the operator has no 3G; one that
// changed while the link was switched off and is forgotten; a restart with the PIN of before.
TEST_F(Services, ChangedSettingsReachTheLibraryOnceAndTheModeWhenItChanged)
{
    const std::pair<const char*, const char*> changes[] = {
        {"ping_target=10.0.0.1", "but mode;"}, {"net_mode=1", "all;"}, {"pin=1234", "but mode;restart;"},
        {"enable=0", "all;but mode;"}, {"net_mode=4", "all;but mode;"}, {"enable=1", "all;"}, {"enable=0", "all;but mode;"},
        {"net_mode=1 apn=a", "all;but mode;restart;"}, {"enable=1", "but mode;"}};
    cellular_setting settings = default_settings();
    settings.net_mode = 2;
    int mode = settings.net_mode;
    for (const auto& [line, calls] : changes) {
        const cellular_setting before = settings;
        EXPECT_EQ(set_settings(settings, line), "");
        EXPECT_EQ(apply_change(before, settings, mode), std::strstr(calls, "restart") != nullptr);
        EXPECT_EQ(std::exchange(fake.log, ""), calls) << line;
    }
}

// Catches: a figure that is none, or on no globe, told as one.
TEST(Position, OfWhateverColumns)
{
    const std::pair<const char*, const char*> rows[] = {
        {"061951.0,31.22415,-121.35479,0.7,62.2,3,0.00,1.5,0.8,110524,09",
         R"(31.22415,-121.35479,62.2,0.7,3,0.0,1.5,9,"2024-05-11T06:19:51Z")"},
        {"251951.0,91,nan,inf,1e9,4,-1,x,,110524,", "null,null,null,null,null,null,null,null,null"},
        {"0619,3113.4493N,12121.2878E", "null,null,null,null,null,null,null,null,null"},
        {"", "null,null,null,null,null,null,null,null,null"}};
    for (const auto& [columns, told] : rows) {
        std::string text;
        for (const json_value& value : position_of(columns))
            text += (text.empty() ? "" : ",") + value.dump();
        EXPECT_EQ(text, told) << columns;
    }
}

// Catches: an engine asked for ahead of the modem, given up at its first refusal, asked without a pause, or left on
// once the position is there; a position that acts on the terminal; one that never comes waited for.
TEST_F(Services, GpsFetchesOnePosition)
{
    walk(gps_pass, {{0, registered, ""}});
    cellular_clear_status(CELL_STATUS_READY);
    gps.start(at_ms(0));
    fake.gps_on = -1;
    walk(gps_pass, {{0, nullptr, ""}, {999, registered, ""}, {1000, nullptr, "on;"}, {1999, nullptr, ""}});
    fake.gps_on = 0, fake.gps_start = -1;
    walk(gps_pass, {{2000, nullptr, "on;start;"}});
    fake.gps_start = 0;
    walk(gps_pass, {{3000, nullptr, engine}, {4000, nullptr, ""}, {5000, located, "GPS: 1,?[2J;stop;"}});
    gps.start(at_ms(5500));
    walk(gps_pass, {{5500, nullptr, engine}});
    gps.start(at_ms(8000));
    cellular_clear_status(CELL_STATUS_READY);
    walk(gps_pass, {{305499, nullptr, "GPS: a position is asked for already;"}});
    EXPECT_TRUE(gps.busy());
    walk(gps_pass, {{306499, nullptr, "GPS: no position in 300 s;stop;"}});
    cellular_clear_status(CELL_STATUS_READY);
    gps.start(at_ms(400000));
    walk(gps_pass, {{699999, nullptr, ""}, {700999, nullptr, "GPS: no position in 300 s;"}}); // no engine to stop
    EXPECT_EQ(std::pair(gps.busy(), gps.not_found()), std::pair(false, 2));
}

// Catches: an engine that a restart of the modem has switched off, or that never heard, asked in vain until the position
// is given up; one that is switched on ahead of the flow of that restart, at each question, or behind its position.
TEST_F(Services, GpsEngineIsSwitchedOnAgain)
{
    gps.start(at_ms(0));
    walk(gps_pass, {{0, registered, engine}, {29000, nullptr, ""}, {30000, nullptr, "on;"}, {59000, nullptr, ""}});
    cellular_clear_status(CELL_STATUS_READY);
    walk(gps_pass, {{60000, nullptr, ""}, {70000, registered, "on;"}, {99000, nullptr, ""}, {100000, nullptr, "on;"},
                    {101000, located, "GPS: 1,?[2J;stop;"}, {140000, nullptr, ""}});
}
