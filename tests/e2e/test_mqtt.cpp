// MQTT from the host's settings to a real broker and back: mosquitto on loopback, its loss, its
// refusals, and TLS with certificates made on the spot.
#include "story.h"

#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace kelo_story;

namespace
{

class Broker // mosquitto with a folder of its own
{
  public:
    Broker()
    {
        char name[] = "/tmp/mqtt-XXXXXX"; // short: a path has 63 characters in the settings
        folder = mkdtemp(name);
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in any = {};
        any.sin_family = AF_INET;
        any.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof any;
        auto* const address = reinterpret_cast<sockaddr*>(&any);
        EXPECT_EQ(bind(fd, address, size) | getsockname(fd, address, &size), 0);
        port = std::to_string(ntohs(any.sin_port));
        close(fd);
    }
    ~Broker()
    {
        stop();
        run("rm -rf .");
    }
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    int run(const std::string& line) const
    {
        return std::system(("cd " + folder + " && " + line + " >>tools.log 2>&1").c_str());
    }
    void start(const std::string& settings)
    {
        std::ofstream(folder + "/broker.conf") << "user root\nlistener " << port << " 127.0.0.1\n"
                                               << settings;
        const std::string file = folder + "/broker.conf";
        const char* const words[] = {"mosquitto", "-c", file.c_str(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 2, (folder + "/broker.log").c_str(),
                                         O_WRONLY | O_CREAT | O_APPEND, 0600);
        ASSERT_EQ(
            posix_spawnp(&pid_, words[0], &actions, nullptr, const_cast<char**>(words), environ),
            0);
        posix_spawn_file_actions_destroy(&actions);
        ASSERT_TRUE(eventually(
            [&] { return run("bash -c 'exec 3<>/dev/tcp/127.0.0.1/" + port + "'") == 0; },
            within(5s)))
            << text_of(folder + "/broker.log");
    }
    void stop()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
    }
    void publish(const std::string& topic, const std::string& text, const std::string& more = "")
    {
        EXPECT_EQ(run("mosquitto_pub -h 127.0.0.1 -p " + port + " -t " + topic + " -m '" + text +
                      "' " + more),
                  0)
            << text_of(folder + "/tools.log");
    }
    static std::string text_of(const std::string& path)
    {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    std::string folder, port;

  private:
    pid_t pid_ = -1;
};

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
    Broker broker;

    void be_ready()
    {
        start_and_come_to_rest();
        std::atomic_ref(is_pin_ready).store(1);
        cellular_set_status(CELL_STATUS_READY);
        kelo_set_urc_callback(on_report);
        modem.clear_log();
    }

    static void set(char* field, const std::string& text) { std::strcpy(field, text.c_str()); }

    void use(int tls_mode, const std::string& password = "")
    {
        current = {};
        current.tls_mode = tls_mode;
        set(current.host, "127.0.0.1");
        set(current.port, broker.port);
        set(current.client_id, "dev-77");
        set(current.user, "u");
        set(current.password, password);
        set(current.topic, "dev/77/down");
        set(current.ca_file, broker.folder + "/ca.pem");
        set(current.cert_file, broker.folder + "/dev.pem");
        set(current.key_file, broker.folder + "/dev.key");
        current.keepalive = 120;
        current.mqtt_done_callback = on_done;
    }
    bool stands(int times, milliseconds limit = 12s)
    {
        return eventually([&] { return confirmed == times; }, within(limit));
    }
    void expect_message(const std::string& text, const std::string& more = "")
    {
        kelo_clean_mqtt_received();
        broker.publish("dev/77/down", text, more);
        EXPECT_TRUE(eventually([] { return kelo_is_mqtt_received() == 1; }, within(3s)));
        EXPECT_EQ(modem.count_sent("+QMTRECV: 0,*,\"dev/77/down\",\"" + text + "\""), 1u);
    }
    std::string open_line() const { return "AT+QMTOPEN=0,\"127.0.0.1\"," + broker.port; }
    void make_certificates()
    {
        const std::string key = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 ";
        ASSERT_EQ(
            broker.run("openssl req -x509 " + key + "-keyout ca.key -out ca.pem -subj /CN=ca"), 0);
        for (const std::string name : {"broker", "dev"})
            ASSERT_EQ(broker.run("openssl req -x509 -CA ca.pem -CAkey ca.key " + key + "-keyout " +
                                 name + ".key -out " + name + ".pem -subj /CN=" + name),
                      0)
                << Broker::text_of(broker.folder + "/tools.log");
    }
    static constexpr const char* tls_settings = "allow_anonymous true\nrequire_certificate true\n";
    std::string with_certificates() const
    {
        return std::string(tls_settings) + "cafile " + broker.folder + "/ca.pem\ncertfile " +
               broker.folder + "/broker.pem\nkeyfile " + broker.folder + "/broker.key\n";
    }
};

} // namespace

TEST_F(MqttStory, PlainLostAndUpAgain)
{
    broker.start("allow_anonymous true\n");
    be_ready();
    use(0);
    ASSERT_EQ(kelo_set_cellular_wake(&current), 0);
    ASSERT_TRUE(stands(1));
    EXPECT_EQ(kelo_check_mqtt_update(), 0);
    EXPECT_TRUE(wire("AT+QGPS=1", 2s)); // out of the callback
    EXPECT_EQ(modem.commands(), (Lines{"AT+QMTDISC=0", "AT+QMTCLOSE=0", "AT+QMTCFG=\"ssl\",0,0,1",
                                       "AT+QMTCFG=\"keepalive\",0,120", open_line(),
                                       "AT+QMTCONN=0,\"dev-77\",\"u\",\"\"",
                                       "AT+QMTSUB=0,1,\"dev/77/down\",0", "AT+QGPS=1"}));
    EXPECT_TRUE(says("update mqtt success", 1s));
    expect_message("one");

    modem.clear_log();
    broker.stop();
    ASSERT_TRUE(eventually([] { return lost == 1; }, within(3s)));
    EXPECT_TRUE(modem.wait_sent("+QMTOPEN: 0,5", within(12s))); // nobody listens
    EXPECT_EQ(kelo_check_mqtt_update(), 1);
    EXPECT_EQ(modem.count("AT+QMTCONN*"), 0u);
    broker.start("allow_anonymous true\n");
    ASSERT_TRUE(stands(2, 20s));
    expect_message("two");
    EXPECT_EQ(lost, 1);
}

// Catches: files that are not what was uploaded, and a broker of TLS that was never asked for them.
TEST_F(MqttStory, TlsWithUploadedFilesAndAMissingKey)
{
    make_certificates();
    broker.start(with_certificates());
    const std::string key = Broker::text_of(broker.folder + "/dev.key");
    ASSERT_EQ(broker.run("mv dev.key later"), 0);
    be_ready();
    use(2);
    ASSERT_EQ(kelo_set_cellular_wake(&current), 0);
    ASSERT_TRUE(modem.wait_sent("+QMTOPEN: 0,5", within(12s)));
    EXPECT_EQ(modem.count("AT+QSSLCFG=\"clientkey\",1,\"RAM:user_key.pem\""), 1u);
    EXPECT_EQ(modem.count("AT+QF*=\"RAM:user_key.pem\"*"), 0u);
    EXPECT_EQ(modem.count_sent("+QFUPL: *"), 2u);

    modem.clear_log();
    ASSERT_EQ(broker.run("mv later dev.key"), 0);
    ASSERT_TRUE(stands(1, 20s)) << Broker::text_of(broker.folder + "/broker.log");
    Lines expected = {"AT+QMTDISC=0", "AT+QMTCLOSE=0", "AT+QMTCFG=\"ssl\",0,1,1"};
    for (const auto& [name, file] : {std::pair{"cacert.pem", current.ca_file},
                                     {"client.pem", current.cert_file},
                                     {"user_key.pem", current.key_file}}) {
        const std::string quoted = "\"RAM:" + std::string(name) + "\"";
        expected.push_back("AT+QFDEL=" + quoted);
        expected.push_back("AT+QFUPL=" + quoted + "," +
                           std::to_string(Broker::text_of(file).size()) + ",100");
    }
    for (const char* rest :
         {"\"cacert\",1,\"RAM:cacert.pem\"", "\"clientcert\",1,\"RAM:client.pem\"",
          "\"clientkey\",1,\"RAM:user_key.pem\"", "\"seclevel\",1,2", "\"sslversion\",1,4",
          "\"ciphersuite\",1,0xFFFF", "\"ignorelocaltime\",1,1"})
        expected.push_back(std::string("AT+QSSLCFG=") + rest);
    for (const std::string& last : {std::string("AT+QMTCFG=\"keepalive\",0,120"), open_line(),
                                    std::string("AT+QMTCONN=0,\"dev-77\",\"u\",\"\""),
                                    std::string("AT+QMTSUB=0,1,\"dev/77/down\",0")})
        expected.push_back(last);
    Lines heard = modem.commands();
    heard.resize(std::min(heard.size(), expected.size()));
    EXPECT_EQ(heard, expected);
    EXPECT_EQ(modem.count_sent("+QFUPL: *"), 3u);
    EXPECT_EQ(said().find(key.substr(40, 40)), std::string::npos); // in no line of the library
    expect_message("secret", "--cafile ca.pem --cert dev.pem --key dev.key --insecure");
}

// Catches: a subscription that is told of though the broker refused the user.
TEST_F(MqttStory, RefusedPassword)
{
    ASSERT_EQ(broker.run("mosquitto_passwd -b -c users u right"), 0);
    broker.start("allow_anonymous false\npassword_file " + broker.folder + "/users\n");
    be_ready();
    use(0, "wrong");
    ASSERT_EQ(kelo_set_cellular_wake(&current), 0);
    ASSERT_TRUE(modem.wait_sent("+QMTCONN: 0,0,*", within(12s)));
    ASSERT_TRUE(says("mqtt connect refused, +QMTCONN: 0,0,", 4s));
    EXPECT_EQ(kelo_check_mqtt_update(), 1);
    EXPECT_EQ(modem.count("AT+QMTSUB*"), 0u);
    use(0, "right");
    ASSERT_EQ(kelo_set_cellular_wake(&current), 0);
    ASSERT_TRUE(stands(1, 20s));
    EXPECT_EQ(modem.count("AT+QMTDISC=0"), 2u);
}

// Catches: a stop that cuts an attempt in two, waits longer than that, or leaves retries behind.
TEST_F(MqttStory, StopInMidAttempt)
{
    be_ready();
    use(1);
    ASSERT_EQ(kelo_set_cellular_wake(&current), 0);
    ASSERT_TRUE(wire("AT+QMTCLOSE=0", 4s));
    const milliseconds took = time_of(kelo_deinit_cellular);
    EXPECT_EQ(modem.count(open_line()), 1u);
    EXPECT_GE(took, 1s);
    EXPECT_LE(took, within(3s));
    EXPECT_TRUE(says("[Cell]---> Stop mqtt = 1 \n", 1s));
    EXPECT_EQ(kelo_check_mqtt_update(), 0);
    usleep(1500000);
    EXPECT_EQ(modem.commands().back(), open_line());
    EXPECT_EQ(confirmed, 0);
}
