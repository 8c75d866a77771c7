// MQTT: the commands of an attempt, the chain of reports, and who waits for whom.
#include "tests/testing.h"

using std::chrono::milliseconds;
using steady = std::chrono::steady_clock;

namespace
{

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
    static mqtt_config c = config(0);
    mqtt_config other = config(1);
    libgsm_check_mqtt_sub("+QMTOPEN: 0,0"); // the chain is off
    EXPECT_EQ(kelo_set_cellular_wake(&c), 0);
    attempt();
    EXPECT_EQ(port.heard(), opening + "0,1\r\n" + closing);
    report({"+QMTSUB: 0,1,0,0", // of the attempt before: disconnected since
            "AT+QMTOPEN=0,\"mq.example.net\",1883", "+QMTOPEN: 0,-1", "+QMTOPEN: 0,3"});
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

    c.mqtt_done_callback = nullptr;
    other.mqtt_done_callback = [](int) { kelo_set_cellular_wake(&c); };
    kelo_set_cellular_wake(&other);
    report({"+QMTSUB: 0,1,0,0"});
    EXPECT_EQ(kelo_check_mqtt_update(), 1); // out of the callback
    report({"+QMTSUB: 0,1,0,0"});
    EXPECT_EQ(kelo_check_mqtt_update(), 0);
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
    for (int tick = 0; tick < 12; tick++) {
        kelo_set_cellular_wake(&c); // does not shorten the countdown
        attempt();
        ticks += port.heard().empty() ? '.' : 'A';
    }
    EXPECT_EQ(ticks, "A.....A.....");

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
