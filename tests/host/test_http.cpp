// SPDX-License-Identifier: MIT
// The pages of the host over real sockets: what is answered to whom, and what nobody may take.
#include "host/loop.h"
#include "host/serve/http.h"
#include "host/serve/metrics_file.h"
#include "host/state/history.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace kelo_host;
using namespace std::chrono_literals;

namespace
{

using clock_now = std::chrono::steady_clock;

const std::string get = "GET /healthz HTTP/1.1\r\n", own = "Host: localhost\r\n\r\n";

// NOLINTNEXTLINE(readability-identifier-naming): the name of the suite
struct Http : testing::Test {
    void SetUp() override
    {
        std::signal(SIGPIPE, SIG_IGN); // as in the host
        ASSERT_EQ(parse_http_address("0", address), "");
        ASSERT_EQ(server.open(address), "");
        const std::string url = server.url();
        port = static_cast<uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
    }
    void TearDown() override
    {
        for (const int fd : clients)
            close(fd);
    }
    int connect_one(const std::string& text)
    {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        auto& four = reinterpret_cast<sockaddr_in&>(address.socket);
        four.sin_port = htons(port);
        connect(fd, reinterpret_cast<sockaddr*>(&address.socket), address.length);
        send(fd, text.data(), text.size(), MSG_NOSIGNAL);
        clients.push_back(fd);
        return fd;
    }
    void run(std::chrono::milliseconds time)
    {
        for (const auto end = clock_now::now() + time; clock_now::now() < end;)
            waits.wait(5ms);
    }
    // What has come by now; `ended` says whether that is all.
    static std::string taken(int fd, bool& ended)
    {
        std::string text;
        char bytes[65536];
        ssize_t count = 0;
        while ((count = recv(fd, bytes, sizeof bytes, 0)) > 0)
            text.append(bytes, static_cast<size_t>(count));
        ended = count == 0 || (count < 0 && errno != EAGAIN);
        return text;
    }
    std::string answer(int fd, std::chrono::milliseconds within = 3s)
    {
        std::string text;
        bool ended = false;
        for (const auto end = clock_now::now() + within; !ended && clock_now::now() < end;) {
            run(5ms);
            text += taken(fd, ended);
        }
        return ended ? text : text + "(not ended)";
    }
    // How many of the clients were closed by now, without an answer.
    long ended()
    {
        return std::count_if(clients.begin(), clients.end(), [](int fd) {
            bool is_over = false;
            return taken(fd, is_over).empty() && is_over;
        });
    }

    json_value status = {{"reason", "online"}};
    loop waits;
    http_server server{waits.base(),
                       {.status = [this] { return status; },
                        .figures =
                            [] {
                                return json_value{{"type", "figures"}};
                            },
                        .history = [] { return "{\"type\":\"history\"}"; },
                        .metrics =
                            [](metrics_format format) {
                                return format == metrics_format::text ? "text\n" : "# EOF\n";
                            }}};
    http_address address;
    uint16_t port = 0;
    std::vector<int> clients;
};

} // namespace

TEST(HttpAddresses, AreTakenInTheFormsThatPeopleWrite)
{
    for (const char* good :
         {"8080", ":8080", "0.0.0.0:80", "[::1]:8080", "[::]:0", "localhost:1"}) {
        http_address address;
        EXPECT_EQ(parse_http_address(good, address), "") << good;
        EXPECT_EQ(address.socket.ss_family, *good == '[' ? AF_INET6 : AF_INET) << good;
    }
    for (const char* bad : {"", ":", "host:80", "1.2.3.4", "1.2.3.4:", "::1:80", "[::1]", "[::1]80",
                            "[::1", "65536", "-1", "80 ", "1.2.3.4:8o", "[1.2.3.4]:80"}) {
        http_address address;
        EXPECT_NE(parse_http_address(bad, address), "") << bad;
    }
}

// A name that another site has made to lead here is none of this host's.
TEST(HttpAddresses, AreTheOnlyNamesThatAHostAnswersTo)
{
    http_address here, six;
    parse_http_address("192.0.2.7:80", here);
    parse_http_address("[2001:db8::7]:80", six);
    for (const char* good :
         {"192.0.2.7", "192.0.2.7:8080", "localhost:1", "LOCALHOST", "127.0.0.1", "[::1]:80"})
        EXPECT_TRUE(names_host(good, here.socket)) << good;
    EXPECT_TRUE(names_host("[2001:DB8:0::7]", six.socket));
    EXPECT_TRUE(names_host("[::ffff:192.0.2.7]", here.socket));
    for (const char* bad :
         {"", "evil.example", "evil.example:80", "192.0.2.8", "192.0.2.7.evil.example", "[::7]",
          "192.0.2.7:evil", "localhost.evil.example", "[::1", "[::1]x", "2001:db8::7", "127.1"})
        EXPECT_FALSE(names_host(bad, here.socket)) << bad;
}

TEST_F(Http, AnswersOneRequestEachAndRefusesWhatIsNone)
{
    const std::string x5000(5000, 'x'), x9000(9000, 'x');
    // clang-format off
    const std::string rows[][2] = { // the request, as two pieces where there is a |; what the answer holds
        {get + own, "200 OK|\r\n\r\nok\nreason: online\n"}, {"GE|T / HTTP/1.0\r\n" + own, "200 OK|<!doctype html>"},
        {"GET /status HTTP/1.1\r\n" + own, "application/json|{\"reason\":\"online\"}"},
        {"GET /status?a=b HTTP/1.1\r\n" + own, "200 OK|frame-ancestors 'none'"},
        {"GET /page.js HTTP/1.1\r\nHost: [::1]:9\r\n\r\n", "text/javascript|nosniff"},
        {"GET /metrics HTTP/1.1\r\n" + own, "version=0.0.4|text\n"},
        {"GET /metrics HTTP/1.1\r\nAccept: application/openmetrics-text;version=1.0.0,*/*;q=0.1\r\n" + own, "version=1.0.0|# EOF\n"},
        {"HEAD / HTTP/1.1\r\n" + own, "200 OK|Content-Length: "}, {"HEAD /events HTTP/1.1\r\n" + own, "200 OK|event-stream"},
        {"POST /status HTTP/1.1\r\nContent-Length: 3\r\n" + own + "|a=b", "405 |Allow: GET, HEAD"},
        {"PUT /status HTTP/1.1\r\nContent-Length: 999999999\r\n" + own, "413 |close"},
        {"POST /status HTTP/1.1\r\nTransfer-Encoding: chunked\r\n" + own + "fffffffff\r\n|" + x5000, "4|close"},
        {"OPTIONS * HTTP/1.1\r\n" + own, "405 |Allow"}, {"BREW / HTTP/1.1\r\n" + own, "405 |Allow"},
        {"GET /nothing HTTP/1.1\r\n" + own, "404 |there are"}, {"GET /../etc/passwd HTTP/1.1\r\n" + own, "404 |there are"},
        {"GET http://evil.example/status HTTP/1.1\r\n" + own, "404 |there are"},
        {get + "\r\n", "421 |address"}, {get + "Host: evil.example\r\n\r\n", "421 |address"},
        {get + "Sec-Fetch-Site: cross-site\r\n" + own, "403 |other sites"},
        {"GET /events HTTP/1.1\r\nOrigin: http://evil.example\r\n" + own, "403 |other sites"},
        {get + "Sec-Fetch-Site: cross-site\r\nSec-Fetch-Mode: navigate\r\n" + own, "200 OK|ok"},
        {get + "Origin: http://localhost\r\n" + own, "200 OK|ok"},
        {"GET /" + x5000 + " HTTP/1.1\r\n" + own, "414 |as long"}, {"GET /" + x9000, "4|close"},
        {get + "X: " + x9000 + "\r\n" + own, "4|close"}, {"nonsense\r\n\r\n", "400 |close"}, {"\x16\x03\x01\x02|\r\n\r\n", "400 |close"},
        {get + own + get + own, "200 OK|ok"}}; // the second one is not heard
    // clang-format on
    for (const auto& [request, holds] : rows) {
        const size_t cut = request.find('|'), bar = holds.find('|');
        const int fd = connect_one(request.substr(0, cut));
        if (cut != request.npos) {
            run(20ms);
            send(fd, request.data() + cut + 1, request.size() - cut - 1, MSG_NOSIGNAL);
        }
        const std::string text = answer(fd);
        const std::string name = request.substr(0, 60);
        EXPECT_TRUE(text.starts_with("HTTP/1.")) << name << ": " << text;
        EXPECT_NE(text.find(" " + holds.substr(0, bar)), text.npos) << name << ": " << text;
        EXPECT_NE(text.find(holds.substr(bar + 1)), text.npos) << name << ": " << text;
        EXPECT_EQ(text.find("(not ended)"), text.npos) << name;
        EXPECT_EQ(text.find("HTTP/1.1 ", 9), text.npos) << name << ": " << text;
        EXPECT_EQ(request.starts_with("HEAD"), text.ends_with("\r\n\r\n")) << name;
    }
    status["reason"] = "stopped";
    EXPECT_NE(answer(connect_one(get + own)).find("503 "), std::string::npos);
}

// Neither who says nothing, nor who says it by the letter, keeps others out.
TEST_F(Http, ClientsAreBoundedInNumberAndTime)
{
    const auto dribble = [&](std::chrono::milliseconds time) {
        for (const auto end = clock_now::now() + time; clock_now::now() < end; run(200ms))
            for (const int fd : clients)
                send(fd, "x", 1, MSG_NOSIGNAL);
    };
    for (int i = 0; i < 100; i++)
        connect_one(i % 2 ? "GET /" : ""), run(2ms);
    dribble(400ms);
    EXPECT_EQ(ended(), 69); // the last of 32 places is for who comes next:
    for (int i = 0; i < 5; i++)
        EXPECT_NE(answer(connect_one(get + own), 100ms).find("200 OK"), std::string::npos);
    dribble(8s);
    EXPECT_LT(ended(), 100);
    dribble(4s);
    EXPECT_EQ(ended(), 105);
}

TEST_F(Http, FollowersGetWhatHappensAndNoneIsWaitedFor)
{
    const std::string events = "GET /events HTTP/1.1\r\n" + own;
    for (int i = 0; i < 8; i++)
        connect_one(events);
    run(100ms);
    const std::string ninth = answer(connect_one(events));
    EXPECT_NE(ninth.find("503 "), std::string::npos) << ninth;
    bool is_over = false;
    const std::string first = taken(clients[0], is_over);
    const std::string begin =
        "retry: 2000\ndata: {\"reason\":\"online\"}\n\ndata: {\"type\":\"history\"}\n\n";
    EXPECT_NE(first.find(begin), first.npos) << first;

    // All but the first stop reading, the second talks instead.
    const std::string talk(65536, 'x');
    size_t most = 0;
    for (int i = 0; i < 2000; i++) {
        server.tell({{"n", i}, {"text", std::string(2000, 'y')}});
        if (i % 10 != 0)
            continue;
        run(1ms);
        send(clients[1], talk.data(), talk.size(), MSG_NOSIGNAL);
        most = std::max(most, taken(clients[0], is_over).size());
    }
    EXPECT_FALSE(is_over);
    EXPECT_GT(most, 2000u);
    run(100ms);
    EXPECT_TRUE(server.has_followers());
    for (size_t i = 1; i < 8; i++) {
        while (!taken(clients[i], is_over).empty()) {
        }
        EXPECT_TRUE(is_over) << i;
    }
    connect_one(events); // their places are free
    run(100ms);
    EXPECT_NE(taken(clients.back(), is_over).find("200 OK"), std::string::npos);
}

TEST(History, HasTheLastTenMinutesASampleASecond)
{
    history all;
    const auto begun = history::clock::time_point{};
    EXPECT_EQ(all.text(begun), "[]");
    json_value now = {
        {"reason", "online"}, {"rsrq_db", -12}, {"sinr", nullptr}, {"signal_dbm", -70000}};
    for (int i = 0; i < 2800; i++) { // four a second
        now["rsrp_dbm"] = -i / 4;
        now["reason"] = i < 2796 ? "online" : "no ping";
        all.add(now, begun + i * 250ms);
    }
    const json_value rows = json_value::parse(all.text(begun + 699s));
    ASSERT_EQ(rows.size(), 600u);
    EXPECT_EQ(rows.front(), json_value({599, -100, -12, nullptr, -9999, 1}));
    EXPECT_EQ(rows.back(), json_value({0, -699, -12, nullptr, -9999, 0}));
}

// An operator is whatever the air says, and what is not known is not zero.
TEST(Metrics, TakeHostileTextsAndLeaveOutWhatIsNotKnown)
{
    json_value all = {{"reason", "no ping"},
                      {"operator", "a\"b\\c\nkelo_online 1"},
                      {"rsrp_dbm", -99},
                      {"link", "up"},
                      {"registration", "Registered (Roaming)"}};
    for (const char* name :
         {"rsrq_db", "sinr", "signal_dbm", "sim_card", "calls_received", "mqtt_received"})
        all[name] = nullptr;
    kelo_figures figures{};
    figures.pin_tries = -1;
    figures.dials = 4000000000;
    const metrics_source source{all, figures, {}, {.rss_bytes = 0, .started_at = 5}};
    const std::string text = metrics_text(source, metrics_format::text);
    const std::string open = metrics_text(source, metrics_format::openmetrics);
    for (const char* line :
         {"kelo_network_info{operator=\"a\\\"b\\\\c\\nkelo_online 1\"} 1\n", "\nkelo_online 0\n",
          "\nkelo_rsrp_dbm -99\n", "kelo_reason{reason=\"no ping\"} 1\n", "\nkelo_registered 1\n",
          "\nkelo_dials_total 4000000000\n"}) {
        EXPECT_NE(text.find(line), text.npos) << line;
        EXPECT_NE(open.find(line), open.npos) << line;
    }
    for (const char* word :
         {"kelo_rsrq_db", "kelo_pin_tries", "null", "memory", "kelo_next_action"})
        EXPECT_EQ(open.find(word), open.npos) << word;
    EXPECT_TRUE(open.ends_with("\n# EOF\n"));
    EXPECT_NE(open.find("# TYPE kelo_dials counter\n"), open.npos);
    EXPECT_NE(text.find("# TYPE kelo_dials_total counter\n"), text.npos);
    EXPECT_EQ(text.find("# EOF"), text.npos);
}

TEST(Metrics, AreAFileThatIsWholeAtAnyTime)
{
    std::string said;
    const std::string path = "/tmp/kelo.prom", elsewhere = "/tmp/none/kelo.prom";
    const speaker say = [&](const std::string& line) { said += line + ";"; };
    metrics_file file(path, say), lost(elsewhere, say);
    umask(0077);
    metrics_file::clock::time_point now{};
    for (int i = 0; i < 20; i++, now += 1s) {
        file.pass(now, [&] { return "n " + std::to_string(i) + "\n"; });
        lost.pass(now, [] { return ""; });
        if (i == 12)
            mkdir("/tmp/none", 0755);
    }
    struct stat facts = {};
    ASSERT_EQ(stat(path.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0644u);
    EXPECT_EQ(facts.st_size, 5); // "n 15", once every five seconds
    EXPECT_EQ(said, elsewhere + ": not written: No such file or directory;" + elsewhere +
                        ": written again;");
    file.remove();
    EXPECT_NE(stat(path.c_str(), &facts), 0);
}
