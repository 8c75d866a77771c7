// SPDX-License-Identifier: MIT
// MQTT from the host's settings to a real broker and back: mosquitto on loopback, its loss, its
// refusals, and TLS with certificates made on the spot.
#include "tests/e2e/story.h"

#include <cstdlib>
#include <cstring>
#include <fstream>

using namespace kelo_story;

namespace
{

// The broker has a folder, and a port on the loopback, of this case's own.
#define FOLDER "/tmp/mqtt/"
#define PORT   "18830"

void run(const std::string& line)
{
    ASSERT_EQ(std::system(("cd " FOLDER " && " + line + " >>tools.log 2>&1").c_str()), 0)
        << line << ": " << text_of(FOLDER "tools.log");
}

void start_broker(const std::string& settings)
{
    std::ofstream(FOLDER "broker.conf") << "user root\nlistener " PORT " 127.0.0.1\n" << settings;
    run("{ mosquitto -c broker.conf & echo $! >pid; }");
    EXPECT_SOON(std::system("bash -c 'exec 3<>/dev/tcp/127.0.0.1/" PORT "' 2>/dev/null") == 0);
}

void stop_broker()
{
    run("kill -9 $(cat pid)");
}

// What the callbacks were told; they get no argument of the host's.
std::atomic<int> confirmed, lost;
mqtt_config current;

void on_done(int result)
{
    confirmed += result;
    kelo_check_mqtt_update();
    kelo_set_gps_on();
}

// The host of the story: each loss is answered at once, from inside the callback.
void on_report(const char* text)
{
    if (std::strstr(text, "+QMTSTAT") == nullptr)
        return;
    lost++;
    EXPECT_EQ(kelo_set_cellular_wake(&current), 0);
    EXPECT_EQ(kelo_check_mqtt_update(), 1);
}

class MqttStory : public Story
{
  protected:
    MqttStory() { EXPECT_EQ(std::system("rm -rf " FOLDER "; mkdir " FOLDER), 0); }
    ~MqttStory() override { stop_broker(); }

    void be_ready()
    {
        start_and_come_to_rest();
        std::atomic_ref(is_pin_ready).store(1);
        cellular_set_status(CELL_STATUS_READY);
        kelo_set_urc_callback(on_report);
        modem.clear_log();
    }
    static void update(int tls_mode, const char* password)
    {
        // clang-format off
        current = {0, tls_mode, "127.0.0.1", PORT, "dev-77", "u", "", "dev/77/down",
                   FOLDER "ca.pem", FOLDER "dev.pem", FOLDER "dev.key", 120, on_done};
        // clang-format on
        std::strcpy(current.password, password);
        ASSERT_EQ(kelo_set_cellular_wake(&current), 0);
    }
    static bool stands(int times, milliseconds limit = 12s)
    {
        return eventually([&] { return confirmed == times; }, within(limit));
    }
    void expect_message(const std::string& text, const std::string& more)
    {
        kelo_clean_mqtt_received();
        run("mosquitto_pub -h 127.0.0.1 -p " PORT " -t dev/77/down -m " + text + more);
        EXPECT_SOON(kelo_is_mqtt_received() == 1);
        EXPECT_EQ(modem.count_sent("+QMTRECV: 0,*,\"dev/77/down\",\"" + text + "\""), 1u);
    }
};

} // namespace

// Catches: a subscription that is told of though the broker refused the user, or that is lost and
// stays so.
TEST_F(MqttStory, RefusedThenUpThenLostAndUpAgain)
{
    const std::string users = "allow_anonymous false\npassword_file " FOLDER "users\n";
    const std::string user = " -u u -P right";
    run("mosquitto_passwd -b -c users u right");
    start_broker(users);
    be_ready();
    update(0, "wrong");
    ASSERT_TRUE(modem.wait_sent("+QMTCONN: 0,0,*", within(12s)));
    ASSERT_TRUE(says("mqtt connect refused, +QMTCONN: 0,0,", 4s));
    EXPECT_EQ(kelo_check_mqtt_update(), 1);
    EXPECT_EQ(modem.count("AT+QMTSUB*"), 0u);

    update(0, "right");
    ASSERT_TRUE(stands(1, 20s));
    EXPECT_EQ(kelo_check_mqtt_update(), 0);
    EXPECT_TRUE(wire("AT+QGPS=1", 2s)); // out of the callback
    EXPECT_EQ(modem.count("AT+QMTDISC=0"), 2u);
    EXPECT_TRUE(says("update mqtt success", 1s));
    expect_message("one", user);

    modem.clear_log();
    stop_broker();
    EXPECT_SOON(lost == 1);
    EXPECT_TRUE(modem.wait_sent("+QMTOPEN: 0,5", within(12s))); // nobody listens
    EXPECT_EQ(kelo_check_mqtt_update(), 1);
    EXPECT_EQ(modem.count("AT+QMTCONN*"), 0u);
    start_broker(users);
    ASSERT_TRUE(stands(2, 20s));
    expect_message("two", user);
    EXPECT_EQ(lost, 1);
}

// Catches: files that are not what was uploaded, and a broker of TLS that was never asked for them.
TEST_F(MqttStory, TlsWithUploadedFilesAndAMissingKey)
{
    const std::string make =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 ";
    run(make + "-keyout ca.key -out ca.pem -subj /CN=ca");
    for (const std::string name : {"broker", "dev"})
        run(make + "-CA ca.pem -CAkey ca.key -keyout " + name + ".key -out " + name +
            ".pem -subj /CN=" + name);
    start_broker("allow_anonymous true\nrequire_certificate true\ncafile " FOLDER
                 "ca.pem\ncertfile " FOLDER "broker.pem\nkeyfile " FOLDER "broker.key\n");
    const std::string key = text_of(FOLDER "dev.key");
    run("mv dev.key later");
    be_ready();
    update(2, "");
    ASSERT_TRUE(modem.wait_sent("+QMTOPEN: 0,5", within(12s)));
    EXPECT_EQ(modem.count("AT+QSSLCFG=\"clientkey\",1,\"RAM:user_key.pem\""), 1u);
    EXPECT_EQ(modem.count("AT+QF*=\"RAM:user_key.pem\"*"), 0u);
    EXPECT_EQ(modem.count_sent("+QFUPL: *"), 2u);

    modem.clear_log();
    run("mv later dev.key");
    ASSERT_TRUE(stands(1, 20s));
    EXPECT_EQ(modem.count_sent("+QFUPL: *"), 3u);
    EXPECT_EQ(said().find(key.substr(40, 40)), std::string::npos); // in no line of the library
    expect_message("secret", " --cafile ca.pem --cert dev.pem --key dev.key --insecure");
}
