// SPDX-License-Identifier: MIT
// MQTT: the commands of an attempt, the chain of reports, and who waits for whom.
#include "tests/testing.h"

#include <set>
#include <sys/select.h>
#include <sys/syscall.h>

using std::chrono::milliseconds;
using steady = std::chrono::steady_clock;

namespace
{

// Sleeps of an attempt take no time while `hurry` is set; either way they tell that one was made.
std::atomic<bool> hurry;
std::atomic<int> sleeps;
std::atomic<int> seconds_gone_by;

std::atomic<int> confirmed;

void on_done(int result)
{
    confirmed += result;
    libgsm_stop_mqtt_update(); // no lock of the library may be held now
}

mqtt_config config(int tls_mode)
{
    return {0,   tls_mode,      "mq.example.net", "1883",      "dev", "",     "",
            "t", "/tmp/ca.pem", "/tmp/pipe",      "/tmp/huge", 60,    on_done};
}

} // namespace

extern "C" int select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* limit)
{
    sleeps++;
    const timespec wait = {hurry ? 0 : limit->tv_sec, hurry ? 0 : limit->tv_usec * 1000};
    return pselect(count, in, out, except, &wait, nullptr);
}

extern "C" int clock_gettime(clockid_t clock, timespec* now)
{
    const long result = syscall(SYS_clock_gettime, clock, now);
    now->tv_sec += clock == CLOCK_MONOTONIC ? seconds_gone_by.load() : 0;
    return static_cast<int>(result);
}

namespace
{

struct Mqtt : testing::Test {
    Mqtt()
    {
        word_set(is_pin_ready, 1);
        cellular_set_status(CELL_STATUS_READY);
    }
    // What the modem is told behind these reports.
    std::string report(std::initializer_list<const char*> reports)
    {
        for (const char* line : reports)
            libgsm_check_mqtt_sub(line);
        return port.heard();
    }
    void attempt()
    {
        const auto start = steady::now();
        EXPECT_EQ(libgsm_set_cellular_wake(), 0);
        took = steady::now() - start;
    }
    // What the modem hears of an attempt, which runs on after `quiet_ms` of silence.
    std::string attempt_beside(int quiet_ms)
    {
        task = std::thread([&] { attempt(); });
        return port.heard(quiet_ms);
    }
    // Ticks ahead of the one that makes an attempt, or up to `most`.
    int wait(int most = 1000)
    {
        port.heard(1);
        for (int ticks = 0; ticks < most; ticks++) {
            const int before = sleeps;
            attempt();
            if (sleeps != before)
                return ticks;
        }
        return most;
    }
    modem_port port;
    std::thread task;
    steady::duration took;
};

const std::string opening = "AT+QMTDISC=0\r\nAT+QMTCLOSE=0\r\nAT+QMTCFG=\"ssl\",0,";
const std::string closing =
    "AT+QMTCFG=\"keepalive\",0,60\r\nAT+QMTOPEN=0,\"mq.example.net\",1883\r\n";
const std::string tls_settings =
    "AT+QSSLCFG=\"cacert\",1,\"RAM:cacert.pem\"\r\nAT+QSSLCFG=\"clientcert\",1,\"RAM:client.pem\""
    "\r\nAT+QSSLCFG=\"clientkey\",1,\"RAM:user_key.pem\"\r\nAT+QSSLCFG=\"seclevel\",1,2\r\n"
    "AT+QSSLCFG=\"sslversion\",1,4\r\nAT+QSSLCFG=\"ciphersuite\",1,0xFFFF\r\n"
    "AT+QSSLCFG=\"ignorelocaltime\",1,1\r\n";

} // namespace

// Catches: a module that takes the next commands for the rest of a file, a pipe that holds the
// mobile task for good, a file that fills the port.
TEST_F(Mqtt, FilesAreUploadedWholeOrNotAtAll)
{
    const mqtt_config c = config(2);
    const std::string content = std::string(65530, 'c') + std::string("\0cccc\n", 6);
    const scratch ca("/tmp/ca.pem"), huge("/tmp/huge"), pipe("/tmp/pipe");
    std::ofstream(ca.path) << content;
    std::ofstream(huge.path) << content << 'c';
    ASSERT_EQ(mkfifo(pipe.path, 0600), 0);
    ASSERT_EQ(kelo_set_cellular_wake(&c), 0);
    captured said;
    EXPECT_EQ(attempt_beside(1500), opening + "1,1\r\nAT+QFDEL=\"RAM:cacert.pem\"\r\n" +
                                        "AT+QFUPL=\"RAM:cacert.pem\",65536,100\r\n" + content +
                                        "\r\n" + tls_settings + closing);
    task.join();
    EXPECT_GE(took, milliseconds(4200));
    EXPECT_TRUE(said.has("short write, "));
    EXPECT_FALSE(said.has("cccc"));
    EXPECT_TRUE(said.has("'/tmp/huge' is not uploaded, it is larger than 64 KiB!\n"));
    EXPECT_TRUE(said.has("'/tmp/pipe' is not uploaded, it is not a regular file!\n"));
}

// Catches: a value that ends its command and begins another, a copy that never ends.
TEST_F(Mqtt, RefusedSettings)
{
    mqtt_config bad;
    const std::string endless(256, 'u');
    const std::pair<std::span<char>, std::vector<std::string>> rows[] = {
        {bad.host, {"", "a\",1|AT", "a\r"}},
        {bad.port, {"", "1883\r", "18 83", "-1", "0x10"}},
        {bad.client_id, {"a\"b", "\n"}},
        {bad.topic, {"", "t\",0", "\x1a"}},
        {bad.user, {"\"", endless}},
        {bad.password, {"\"", endless}},
        {bad.ca_file, {endless}}};
    for (const auto& [field, texts] : rows)
        for (const std::string& text : texts) {
            bad = config(2);
            std::strncpy(field.data(), text.c_str(), field.size());
            EXPECT_EQ(kelo_set_cellular_wake(&bad), -1) << text;
        }
    EXPECT_EQ(kelo_set_cellular_wake(nullptr), -1);
    EXPECT_EQ(kelo_check_mqtt_update(), 0);
}

// Catches: new settings mixed into an attempt that was made with the old ones; a host that is told
// of a subscription that does not stand, or told twice.
TEST_F(Mqtt, ChainOfReportsAmongOtherSettings)
{
    static mqtt_config c = config(0), other = config(1);
    hurry = true;
    libgsm_check_mqtt_sub("+QMTOPEN: 0,0"); // the chain is off
    EXPECT_EQ(kelo_set_cellular_wake(&c), 0);
    attempt();
    EXPECT_EQ(port.heard(), opening + "0,1\r\n" + closing);
    EXPECT_EQ(report({"+QMTSUB: 0,1,0,0", "+QMTOPEN: 0,0", // of an attempt disconnected since
                      "AT+QMTDISC=0", "OK", "+QMTOPEN: 0,0", "+QMTDISC: 0,0", "AT+QMTCLOSE=0", "OK",
                      "+QMTOPEN: 0,0", "AT+QMTOPEN=0,\"mq.example.net\",1883", "+QMTOPEN: 0,-1",
                      "+QMTOPEN: 0,3"}),
              "");
    kelo_set_cellular_wake(&other); // which waits for its own attempt
    EXPECT_EQ(report({"+QMTOPEN: 0,0", "+QMTCONN: 0,0,0", "+QMTSUB: 0,1,0,0"}), "");
    kelo_set_cellular_wake(&c); // as before: the attempt counts again
    EXPECT_EQ(report({"+QMTOPEN: 0,0"}), "AT+QMTCONN=0,\"dev\",\"\",\"\"\r\n");
    EXPECT_EQ(report({"+QMTCONN: 0,0,4", "+QMTCONN: 0,1", "+QMTCONN: 0,2"}), "");
    EXPECT_EQ(report({"+QMTCONN: 0,0,0"}), "AT+QMTSUB=0,1,\"t\",0\r\n");
    report({"+QMTSUB: 0,1,0,128", "+QMTSUB: 0,1,2", "+QMTRECV: 0,0,\"t\",\"+QMTSUB: 0,1,0,0\"",
            "AT+QMTSUB=0,1,\"+QMTSUB: 0,1,0,0\",0"});
    EXPECT_EQ(confirmed, 0);
    EXPECT_EQ(kelo_check_mqtt_update(), 1);
    EXPECT_EQ(report({"+QMTSUB: 0,1,0,0", "+QMTSUB: 0,1,0,0", "+QMTOPEN: 0,0", "+QMTCONN: 0,0,0"}),
              "");
    EXPECT_EQ(confirmed, 1);
    EXPECT_EQ(kelo_check_mqtt_update(), 0);

    other.mqtt_done_callback = [](int) { kelo_set_cellular_wake(&c); };
    kelo_set_cellular_wake(&other);
    report({"+QMTSUB: 0,1,0,0", "+QMTSUB: 0,1,0,0"});
    EXPECT_EQ(confirmed, 2); // of what was handed in out of the callback
}

// Catches: a stop that ends ahead of the attempt, and calls of the host that wait for one.
TEST_F(Mqtt, EverySixthTickOnlyWhenReadyUntilAStop)
{
    const mqtt_config c = config(-7), other = config(0);
    kelo_set_cellular_wake(&c);
    word_set(is_pin_ready, 0);
    EXPECT_EQ(libgsm_set_cellular_wake(), -1);
    word_set(isLowPower, 1); // which has no such gate
    std::string ticks;
    hurry = true;
    for (int tick = 0; tick < 12; tick++) {
        kelo_set_cellular_wake(&c); // does not shorten the countdown
        attempt();
        ticks += port.heard().empty() ? '.' : 'A';
    }
    EXPECT_EQ(ticks, "A.....A.....");

    hurry = false;
    const auto start = steady::now();
    const std::string heard = attempt_beside(300);
    for (int i = 0; i < 1000; i++) {
        kelo_set_cellular_wake(i % 2 ? &other : &c);
        kelo_check_mqtt_update();
    }
    EXPECT_LT(steady::now() - start, milliseconds(1000));
    kelo_deinit_cellular();
    EXPECT_LT(steady::now() - start, milliseconds(4200));
    EXPECT_EQ(heard + port.heard(), opening + "1,1\r\n" + closing);
    task.join();
    EXPECT_GE(took, milliseconds(3200));
    EXPECT_LE(took, milliseconds(4000));
    EXPECT_EQ(libgsm_set_cellular_wake(), -1);
}

// Catches: an attempt that is torn down in the middle because the modem was slow, a modem without
// echo whose open is never seen, and one that is left with half of an attempt by a stop.
TEST_F(Mqtt, LateAnswersAndTheStopOfTheLibrary)
{
    const mqtt_config c = config(0);
    hurry = true;
    kelo_set_cellular_wake(&c);
    EXPECT_EQ(wait(), 0);
    EXPECT_EQ(report({"+QMTOPEN: 0,0"}).find("AT+QMTCONN"), std::string::npos);
    EXPECT_EQ(report({"OK", "OK"}), "");
    for (const char* late : {"+QMTOPEN: 0,0", "+QMTCONN: 0,0,0"}) {
        EXPECT_EQ(wait(5), 5);
        EXPECT_NE(report({late}), "");
    }
    EXPECT_EQ(wait(), 5);

    port.heard();
    hurry = false;
    wait(5);
    const auto start = steady::now();
    EXPECT_EQ(attempt_beside(300), "AT+QMTDISC=0\r\n");
    word_set(global_quagga_stop, 1);
    task.join();
    EXPECT_LT(steady::now() - start, milliseconds(1500));
    EXPECT_EQ(port.heard(), "");
}

// Catches: a fleet that acts in step, a broker that is never left alone or left alone for good.
TEST_F(Mqtt, BacksOffWhenAsked)
{
    mqtt_config c = config(0);
    const auto expect_wait = [&](std::initializer_list<const char*> said, int least, int most) {
        libgsm_check_mqtt_sub("AT+QMTOPEN");
        report(said);
        const int ticks = wait();
        EXPECT_GE(ticks, least) << *said.begin();
        EXPECT_LE(ticks, most) << *said.begin();
        return ticks;
    };
    const auto lost = [&](int stood_for) {
        report({"AT+QMTOPEN", "+QMTSUB: 0,1,0,0"});
        seconds_gone_by += stood_for;
        kelo_set_cellular_wake(&c);
    };
    hurry = true;
    kelo_set_mqtt_backoff(1);
    kelo_set_cellular_wake(&c);
    EXPECT_EQ(wait(), 0);
    expect_wait({"OK"}, 80, 96);
    const std::pair<const char*, int> failures[] = {{"+QMTOPEN: 0,5", 20},
                                                    {"+QMTCONN: 0,2", 40},
                                                    {"+QMTCONN: 0,0,4", 80},
                                                    {"+QMTSUB: 0,1,0,128", 160},
                                                    {"+QMTSTAT: 0,1", 320}};
    for (const auto& [failure, about] : failures)
        expect_wait({failure}, about * 8 / 10, about * 12 / 10);
    std::set<int> spread;
    for (int i = 0; i < 8; i++)
        spread.insert(expect_wait({"+QMTOPEN: 0,-1"}, 512, 768));
    EXPECT_GT(spread.size(), 1u);

    c.keepalive = 61; // no failure of these yet
    kelo_set_cellular_wake(&c);
    EXPECT_EQ(wait(), 5);
    expect_wait({"+QMTOPEN: 0,0", "+QMTCONN: 0,1", "+QMTCONN: 0,3"}, 80, 96);
    for (const int about : {20, 40}) { // subscriptions that do not last
        lost(59);
        expect_wait({"lost"}, about * 8 / 10, about * 12 / 10);
    }
    lost(60);
    expect_wait({"lost"}, 0, 10);
    expect_wait({"+QMTOPEN: 0,3"}, 8, 12);
    word_set(is_pin_ready, 0);
    EXPECT_EQ(libgsm_set_cellular_wake(), -1);
    word_set(is_pin_ready, 1);
    expect_wait({"registered again"}, 0, 10);
    kelo_set_mqtt_backoff(0);
    expect_wait({"+QMTOPEN: 0,3"}, 8, 96); // as it was begun
    expect_wait({"+QMTOPEN: 0,3"}, 5, 5);
}
