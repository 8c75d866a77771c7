// MQTT: the commands of an attempt, the chain of reports, and who waits for whom.
#include "api/api.h"
#include "support/words.h"
#include "testing.h"

#include <kelo/mqtt.h>

#include <chrono>
#include <sys/socket.h>
#include <sys/stat.h>

using namespace kelo;
using namespace kelo::test;

namespace
{

std::atomic<int> confirmed;

mqtt_config config(int tls_mode = 0, const char* topic = "t")
{
    mqtt_config c = {};
    c.tls_mode = tls_mode;
    std::strcpy(c.host, "mq.example.net");
    std::strcpy(c.port, "1883");
    std::strcpy(c.client_id, "dev");
    std::strcpy(c.topic, topic);
    c.keepalive = 60;
    c.mqtt_done_callback = [](int result) { confirmed += result; };
    return c;
}

class Mqtt : public testing::Test
{
  protected:
    Mqtt()
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
        g_mobile.fd = ends[0];
        word_set(is_pin_ready, 1);
        cellular_set_status(CELL_STATUS_READY);
    }
    ~Mqtt() override
    {
        g_mobile.fd = -1;
        close(ends[0]);
        close(ends[1]);
    }

    // What went out since the last look, a bar for each line end.
    std::string sent() const
    {
        std::string all;
        char bytes[4096];
        for (ssize_t count; (count = read(ends[1], bytes, sizeof bytes)) > 0;)
            all.append(bytes, static_cast<std::size_t>(count));
        for (std::size_t at; (at = all.find("\r\n")) != std::string::npos;)
            all.replace(at, 2, "|");
        return all;
    }
    // An attempt, whatever is left of the countdown.
    void attempt() const
    {
        while (libgsm_set_cellular_wake() == 0)
            if (text_has((last = sent()).c_str(), "QMTOPEN"))
                return;
        FAIL() << "no update is pending";
    }

    int ends[2] = {-1, -1};
    mutable std::string last;
};

const std::string opening = "AT+QMTDISC=0|AT+QMTCLOSE=0|AT+QMTCFG=\"ssl\",0,";
const std::string closing = "AT+QMTCFG=\"keepalive\",0,60|AT+QMTOPEN=0,\"mq.example.net\",1883|";
const std::string tls_settings =
    "AT+QSSLCFG=\"cacert\",1,\"RAM:cacert.pem\"|AT+QSSLCFG=\"clientcert\",1,\"RAM:client.pem\"|"
    "AT+QSSLCFG=\"clientkey\",1,\"RAM:user_key.pem\"|AT+QSSLCFG=\"seclevel\",1,2|"
    "AT+QSSLCFG=\"sslversion\",1,4|AT+QSSLCFG=\"ciphersuite\",1,0xFFFF|"
    "AT+QSSLCFG=\"ignorelocaltime\",1,1|";

std::string uploaded(const std::string& name, const std::string& content)
{
    return "AT+QFDEL=\"RAM:" + name + "\"|AT+QFUPL=\"RAM:" + name + "\"," +
           std::to_string(content.size()) + ",100|" + content + "|";
}

void put_file(const char* path, const std::string& content)
{
    std::ofstream(path) << content;
}

struct Dialogue {
    std::string name;
    int tls_mode;
    std::string expected;
    int least_ms, most_ms;
    friend void PrintTo(const Dialogue& row, std::ostream* out) { *out << row.name; }
};
const std::string with_nul("k\0y", 3);

class MqttDialogue : public Mqtt, public testing::WithParamInterface<Dialogue>
{
};

} // namespace

TEST_P(MqttDialogue, OfOneAttempt)
{
    mqtt_config c = config(GetParam().tls_mode);
    put_file("/tmp/ca.pem", "-CA-\n");
    put_file("/tmp/dev.pem", std::string(65536, 'c'));
    put_file("/tmp/dev.key", with_nul);
    std::strcpy(c.ca_file, "/tmp/ca.pem");
    std::strcpy(c.cert_file, "/tmp/dev.pem");
    std::strcpy(c.key_file, "/tmp/dev.key");
    ASSERT_EQ(kelo_set_cellular_wake(&c), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(libgsm_set_cellular_wake(), 0);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(sent(), GetParam().expected);
    EXPECT_GE(took, std::chrono::milliseconds(GetParam().least_ms));
    EXPECT_LE(took, std::chrono::milliseconds(GetParam().most_ms));
}

INSTANTIATE_TEST_SUITE_P(
    Mode, MqttDialogue,
    testing::Values(Dialogue{"Plain", 0, opening + "0,1|" + closing, 3200, 4000},
                    Dialogue{"Tls", 1, opening + "1,1|" + closing, 3200, 4000},
                    Dialogue{"AnyOtherIsTls", -7, opening + "1,1|" + closing, 3200, 4000},
                    Dialogue{"TlsWithFiles", 2,
                             opening + "1,1|" + uploaded("cacert.pem", "-CA-\n") +
                                 uploaded("client.pem", std::string(65536, 'c')) +
                                 uploaded("user_key.pem", with_nul) + tls_settings + closing,
                             4800, 5600}),
    [](const auto& row) { return row.param.name; });

// Catches: a pipe that holds the mobile task for good, a file that fills the port.
TEST_F(Mqtt, FilesThatAreNotUploaded)
{
    mqtt_config c = config(2);
    put_file("/tmp/huge", std::string(65537, 'c'));
    put_file("/tmp/empty", "");
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    std::strcpy(c.ca_file, "/tmp/huge");
    std::strcpy(c.cert_file, "/tmp/pipe");
    std::strcpy(c.key_file, "/tmp/empty");
    ASSERT_EQ(kelo_set_cellular_wake(&c), 0);
    captured said;
    attempt();
    EXPECT_EQ(last, opening + "1,1|" + tls_settings + closing);
    EXPECT_TRUE(said.has("'/tmp/huge' is not uploaded, it is larger than 64 KiB!\n"));
    EXPECT_TRUE(said.has("'/tmp/pipe' is not uploaded, it is not a regular file!\n"));

    char* text = nullptr;
    const struct {
        const char* path;
        int expected;
    } rows[] = {{"/tmp/huge", 65537}, {"/tmp/empty", 0}, {"/tmp/pipe", -1},
                {"/tmp", -1},         {"/tmp/none", -1}, {nullptr, 1}};
    for (const auto& row : rows) {
        EXPECT_EQ(ReadFile2String(row.path, &text), row.expected);
        EXPECT_EQ(text != nullptr, row.expected == 0 || row.expected > 1);
        if (text != nullptr) {
            EXPECT_EQ(text[row.expected], '\0');
        }
        std::free(text);
    }
    EXPECT_EQ(ReadFile2String("/tmp/huge", nullptr), -1);
}

// Catches: a module that takes the next commands for the rest of a file.
TEST_F(Mqtt, ShortWritesOfAFileAreSaidAndCompleted)
{
    constexpr int small = 4096;
    ASSERT_EQ(setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);
    mqtt_config c = config(2);
    put_file("/tmp/ca.pem", std::string(20000, 'c'));
    std::strcpy(c.ca_file, "/tmp/ca.pem");
    ASSERT_EQ(kelo_set_cellular_wake(&c), 0);
    captured said;
    std::atomic<bool> over = false;
    std::string heard;
    std::thread modem([&] {
        while (!over) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            heard += sent();
        }
    });
    EXPECT_EQ(libgsm_set_cellular_wake(), 0);
    over = true;
    modem.join();
    EXPECT_NE(heard.find(uploaded("cacert.pem", std::string(20000, 'c'))), std::string::npos);
    EXPECT_TRUE(said.has("short write, ")) << said.text();
    EXPECT_FALSE(said.has("cccc"));
}

// Catches: a value that ends its command and begins another, or a copy that never ends.
TEST_F(Mqtt, RefusedSettingsChangeNothing)
{
    const mqtt_config good = config(0, "kept");
    ASSERT_EQ(kelo_set_cellular_wake(&good), 0);
    const struct {
        char (mqtt_config::*field)[64];
        const char* text;
    } rows[] = {
        {&mqtt_config::host, ""},        {&mqtt_config::host, "a\",1|AT"},
        {&mqtt_config::host, "a\r"},     {&mqtt_config::client_id, "a\"b"},
        {&mqtt_config::client_id, "\n"}, {&mqtt_config::topic, "t\",0"},
        {&mqtt_config::topic, "\x1a"},   {&mqtt_config::topic, ""},
    };
    for (const auto& row : rows) {
        mqtt_config c = config(2);
        std::strcpy(c.*row.field, row.text);
        EXPECT_EQ(kelo_set_cellular_wake(&c), -1) << row.text;
    }
    for (const char* port : {"", "1883\r", "18 83", "-1", "0x10"}) {
        mqtt_config c = config(2);
        std::strcpy(c.port, port);
        EXPECT_EQ(kelo_set_cellular_wake(&c), -1) << port;
    }
    for (char(mqtt_config::*field)[256] : {&mqtt_config::user, &mqtt_config::password}) {
        mqtt_config c = config(2);
        std::strcpy(c.*field, "\"");
        EXPECT_EQ(kelo_set_cellular_wake(&c), -1);
        std::memset(c.*field, 'u', sizeof(c.*field)); // no end
        EXPECT_EQ(kelo_set_cellular_wake(&c), -1);
    }
    for (char(mqtt_config::*field)[64] : {&mqtt_config::ca_file, &mqtt_config::key_file}) {
        mqtt_config c = config(2);
        std::memset(c.*field, '/', sizeof(c.*field));
        EXPECT_EQ(kelo_set_cellular_wake(&c), -1);
    }
    EXPECT_EQ(kelo_set_cellular_wake(nullptr), -1);
    EXPECT_EQ(kelo_check_mqtt_update(), 1);
    attempt();
    EXPECT_EQ(last, opening + "0,1|" + closing);
    libgsm_check_mqtt_sub("+QMTOPEN: 0,0");
    libgsm_check_mqtt_sub("+QMTCONN: 0,0,0");
    EXPECT_EQ(sent(), "AT+QMTCONN=0,\"dev\",\"\",\"\"|AT+QMTSUB=0,1,\"kept\",0|");
}

// Catches: a host that is told of a subscription that does not stand.
TEST_F(Mqtt, ChainOfReports)
{
    const mqtt_config c = config();
    libgsm_check_mqtt_sub("+QMTOPEN: 0,0"); // the chain is off
    ASSERT_EQ(kelo_set_cellular_wake(&c), 0);
    attempt();
    const struct {
        const char* line;
        const char* sent;
        int confirmed, pending;
    } rows[] = {
        {"+QMTSUB: 0,1,0,0", "", 0, 1}, // of the attempt before: disconnected since
        {"AT+QMTOPEN=0,\"mq.example.net\",1883", "", 0, 1},
        {"+QMTOPEN: 0,-1", "", 0, 1},
        {"+QMTOPEN: 0,3", "", 0, 1},
        {"+QMTOPEN: 0,0", "AT+QMTCONN=0,\"dev\",\"\",\"\"|", 0, 1},
        {"+QMTCONN: 0,0,4", "", 0, 1},
        {"+QMTCONN: 0,1", "", 0, 1},
        {"+QMTCONN: 0,2", "", 0, 1},
        {"+QMTCONN: 0,0,0", "AT+QMTSUB=0,1,\"t\",0|", 0, 1},
        {"+QMTSUB: 0,1,0,128", "", 0, 1},
        {"+QMTSUB: 0,1,2", "", 0, 1},
        {"+QMTRECV: 0,0,\"t\",\"+QMTSUB: 0,1,0,0\"", "", 0, 1},
        {"AT+QMTSUB=0,1,\"+QMTSUB: 0,1,0,0\",0", "", 0, 1},
        {"+QMTSUB: 0,1,0,0", "", 1, 0},
        {"+QMTSUB: 0,1,0,0", "", 1, 0}, // once
        {"+QMTOPEN: 0,0", "", 1, 0},
        {"+QMTCONN: 0,0,0", "", 1, 0},
    };
    for (const auto& row : rows) {
        libgsm_check_mqtt_sub(row.line);
        EXPECT_EQ(sent(), row.sent) << row.line;
        EXPECT_EQ(confirmed, row.confirmed) << row.line;
        EXPECT_EQ(kelo_check_mqtt_update(), row.pending) << row.line;
    }
    mqtt_config silent = config();
    silent.mqtt_done_callback = nullptr;
    captured said;
    kelo_set_cellular_wake(&silent);
    libgsm_check_mqtt_sub("+QMTSUB: 0,1,0,0");
    EXPECT_EQ(kelo_check_mqtt_update(), 0);
    EXPECT_TRUE(said.has("no mqtt_done_callback is set!\n"));
}

// Catches: new settings mixed into an attempt that was made with the old ones.
TEST_F(Mqtt, OtherSettingsWaitForTheirOwnAttempt)
{
    const mqtt_config first = config(0, "first"), second = config(0, "second");
    kelo_set_cellular_wake(&first);
    attempt();
    libgsm_check_mqtt_sub("AT+QMTOPEN=0,\"mq.example.net\",1883");
    kelo_set_cellular_wake(&second);
    for (const char* line : {"+QMTOPEN: 0,0", "+QMTCONN: 0,0,0", "+QMTSUB: 0,1,0,0"})
        libgsm_check_mqtt_sub(line);
    EXPECT_EQ(sent(), "");
    EXPECT_EQ(confirmed, 0);
    kelo_set_cellular_wake(&first); // as before: the attempt counts again
    libgsm_check_mqtt_sub("+QMTCONN: 0,0,0");
    EXPECT_EQ(sent(), "AT+QMTSUB=0,1,\"first\",0|");
}

TEST_F(Mqtt, EverySixthTickAndOnlyWhenReady)
{
    EXPECT_EQ(libgsm_set_cellular_wake(), -1); // nothing is pending
    const mqtt_config c = config();
    kelo_set_cellular_wake(&c);
    word_set(is_pin_ready, 0);
    EXPECT_EQ(libgsm_set_cellular_wake(), -1);
    EXPECT_EQ(sent(), "");
    word_set(isLowPower, 1); // which has no such gate
    std::string ticks;
    for (int tick = 0; tick < 8; tick++) {
        kelo_set_cellular_wake(&c); // does not shorten the countdown
        EXPECT_EQ(libgsm_set_cellular_wake(), 0);
        ticks += sent().empty() ? '.' : 'A';
    }
    EXPECT_EQ(ticks, "A.....A.");
}

// Catches: a stop that ends ahead of the attempt, and calls of the host that wait for one.
TEST_F(Mqtt, StopWaitsForTheAttemptAndNobodyElseDoes)
{
    using clock = std::chrono::steady_clock;
    const mqtt_config c = config(), other = config(0, "other");
    kelo_set_cellular_wake(&c);
    std::atomic<bool> out = false;
    std::thread task([&] {
        libgsm_set_cellular_wake();
        out = true;
    });
    std::string heard;
    ASSERT_TRUE(wait_until([&] { return text_has((heard += sent()).c_str(), "QMTDISC"); }));
    const auto start = clock::now();
    for (int i = 0; i < 1000; i++) {
        kelo_set_cellular_wake(i % 2 ? &other : &c);
        kelo_check_mqtt_update();
    }
    EXPECT_LT(clock::now() - start, std::chrono::seconds(1));
    EXPECT_FALSE(out);
    libgsm_stop_mqtt_update();
    heard += sent();
    EXPECT_TRUE(text_has(heard.c_str(), "AT+QMTOPEN=0,\"mq.example.net\",1883|"));
    EXPECT_LT(clock::now() - start, std::chrono::milliseconds(4200));
    task.join();
    EXPECT_EQ(kelo_check_mqtt_update(), 0);
    EXPECT_EQ(libgsm_set_cellular_wake(), -1);
    EXPECT_EQ(sent(), "");
}

// A callback of the host may call the library: no lock of it may be held then.
TEST_F(Mqtt, CallbacksMayCallTheLibrary)
{
    static mqtt_config again;
    again = config(0, "again");
    again.mqtt_done_callback = [](int) { libgsm_stop_mqtt_update(); };
    mqtt_config c = config();
    c.mqtt_done_callback = [](int) {
        kelo_deinit_cellular();
        kelo_set_cellular_wake(&again);
    };
    kelo_set_cellular_wake(&c);
    libgsm_check_mqtt_sub("+QMTSUB: 0,1,0,0");
    EXPECT_EQ(kelo_check_mqtt_update(), 1);
    libgsm_check_mqtt_sub("+QMTSUB: 0,1,0,0");
    EXPECT_EQ(kelo_check_mqtt_update(), 0);

    static std::string heard;
    EXPECT_EQ(libgsm_mqtt_urc_error("nobody listens"), 0);
    kelo_set_urc_callback([](const char* text) {
        heard = text;
        kelo_set_cellular_wake(&again);
        kelo_set_urc_callback(nullptr);
    });
    libgsm_mqtt_urc_error("+QMTSTAT: 0,1");
    libgsm_mqtt_urc_error("not heard");
    EXPECT_EQ(heard, "+QMTSTAT: 0,1");
    EXPECT_EQ(kelo_check_mqtt_update(), 1);
}
