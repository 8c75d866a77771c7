// SPDX-License-Identifier: MIT
// The control socket: what clients ask, and what they do to it.
#include "host/serve/control.h"
#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace kelo_host;
using namespace std::chrono_literals;

namespace
{

struct Control : testing::Test {
    static constexpr const char* path = "/tmp/control-test.sock";
    loop waits;
    feed happenings;
    std::string log; // what was done
    int sending = 0;
    control served{[](const std::string&) {},
                   {[this](const user_command& command) { return act(command); },
                    [this](int number) { return number == sending; }, [] { return false; },
                    [] { return std::string(); }}};

    Control() { unlink(path); }
    reply act(const user_command& command)
    {
        log += verb_name(command.verb);
        for (const auto& [name, value] : command.settings)
            log += " " + name + "=" + value;
        log += ";";
        if (command.verb == command_verb::sms)
            return {true, "", sending = 7};
        return {true, "", 0, {{"status", {{"imsi", "262011234567890"}}}}};
    }
    void open() { ASSERT_EQ(served.open(waits, happenings, path, ""), ""); }
    static int connected()
    {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_un address = {AF_UNIX, ""};
        std::strcpy(address.sun_path, path);
        connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        return fd;
    }
    void turn(int times = 8)
    {
        for (int i = 0; i < times; i++) {
            waits.wait(2ms);
            served.pass();
        }
    }
    // All that can be read now; "|" behind it when the other end has closed.
    static std::string heard(int fd)
    {
        std::string all;
        char bytes[65536];
        ssize_t count = 0;
        while ((count = read(fd, bytes, sizeof bytes)) > 0)
            all.append(bytes, static_cast<size_t>(count));
        return count == 0 || errno == ECONNRESET ? all + "|" : all;
    }
    // Up to a moment behind the first answer.
    std::string ask(int fd, std::string bytes)
    {
        std::string all;
        for (int left = 300; left > 0; left--) {
            const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            bytes.erase(0, sent > 0 ? static_cast<size_t>(sent) : 0);
            turn(1);
            all += heard(fd);
            if (all.find('\n') != all.npos && left > 4)
                left = 4;
        }
        return all;
    }
};

// Catches: a bad request that is carried out, that costs the connection or the request behind it,
// or that is not answered at all.
TEST_F(Control, ABadRequestIsAnsweredAndCostsNothingElse)
{
    open();
    const std::string settings = R"({"do":"set","settings":)";
    const std::pair<std::string, std::string> rows[] = {
        {R"({"do":"status"})", R"("ok":true,"do":"status","status":{"imsi":"***)"},
        {R"({"do":"status","private":true,"id":"a"})", R"("id":"a","status":{"imsi":"2620112345)"},
        {R"({"do":"statue"})", "no request 'statue'"},
        {R"({"do":"quit"})", "no request 'quit'"},
        {R"({"do":7,"id":8})", R"("id":8,"error":"no request)"},
        {R"({"do":"status","x":1})", "no field 'x'"},
        {R"({"do":"sms","number":5,"text":"a"})", "number takes text"},
        {R"({"do":"sms","number":"1"})", "lacks 'text'"},
        {R"({"do":"sms","number":"1;2","text":"a"})", "goes to a number"},
        {R"({"do":"sms","number":"1","text":"a\u0000"})", "holds a NUL"},
        {R"({"do":"sms","number":"1","text":"a"})", R"("number":7)"},
        {R"({"do":"sim","sim":1e99})", "takes number"},
        {R"({"do":"sim","sim":99999999999999999999})", "takes"},
        {R"({"do":"sim","sim":3})", "takes 1 or 2"},
        {R"({"do":"at","command":"AT","timeout":601})", "timeout is from"},
        {settings + R"({}})", "set takes fields"},
        {settings + R"({"apn":true}})", "takes text or number"},
        {settings + R"({"apn":"a","auth":1}})", R"("ok":true)"},
        {settings + R"({"apn":{"a":1}}})", "nests no deeper"},
        {std::string(100000, '['), "nests no deeper"},
        {R"({"do":"status"} {"do":"status"})", "no JSON object"},
        {R"(["do","status"])", "no JSON object"},
        {"\xff\xfe", "UTF-8"},
        {std::string("{\"do\":\"status\0\"}", 16), "without NUL"},
        {std::string(300000, 'x'), "longer than 131072"},
        {R"({"do":"help"})", R"("requests":{"sim")"}};
    const int fd = connected();
    for (const auto& [request, part] : rows) {
        const std::string answer = ask(fd, request + "\n");
        EXPECT_NE(answer.find(part), answer.npos) << request.substr(0, 60) << ": " << answer;
        EXPECT_EQ(std::ranges::count(answer, '\n'), 1) << request.substr(0, 60) << ": " << answer;
    }
    EXPECT_EQ(log, "status;status;sms;set apn=a auth=1;");
    const std::string all = ask(fd, "\n{\"do\":\"status\"}\nrubbish\n{\"do\":\"re");
    EXPECT_EQ(ask(fd, "load\"}\n").find("\"do\":\"reload\""), 11u) << "in pieces";
    EXPECT_EQ(std::ranges::count(all, '\n'), 2) << all;
    close(fd);
}

TEST_F(Control, ClientsAreBoundedAndTheirEndsHarmNobody)
{
    open();
    std::vector<int> idle;
    for (int i = 0; i < 16; i++)
        idle.push_back(connected());
    turn();
    const int one_more = connected();
    turn();
    EXPECT_NE(heard(one_more).find("too many clients\"}\n|"), std::string::npos);
    // One that is gone in the middle of a line has asked for nothing.
    ASSERT_EQ(write(idle[3], "{\"do\":\"restart\"}", 16), 16);
    close(idle[3]);
    turn();
    // One that only ends its own way has asked, and waits.
    const int half = connected();
    ASSERT_EQ(write(half, "{\"do\":\"sms\",\"number\":\"1\",\"text\":\"a\",\"wait\":true}", 48),
              48);
    shutdown(half, SHUT_WR);
    turn();
    EXPECT_EQ(heard(half), "");
    happenings.tell("result", {{"number", 6}, {"state", "sent"}});
    happenings.tell("result", {{"number", 7}, {"state", "failed"}});
    turn();
    const std::string answer = heard(half);
    EXPECT_TRUE(answer.starts_with("{\"ok\":false,\"do\":\"sms\",\"error\":\"it was not sent\""))
        << answer;
    EXPECT_TRUE(answer.ends_with("|")) << answer;
    EXPECT_EQ(log, "sms;");
    EXPECT_NE(ask(idle[0], "{\"do\":\"results\"}\n").find("\"number\":6"), std::string::npos);
    ask(idle[1], "{\"do\":\"sms\",\"number\":\"1\",\"text\":\"a\",\"wait\":true,\"id\":1}\n");
    served.close("the host ends");
    const std::string last = heard(idle[1]);
    EXPECT_NE(last.find("\"id\":1,\"error\":\"the host ends\"}\n|"), last.npos) << last;
    EXPECT_NE(access(path, F_OK), 0);
}

// Catches: memory that grows with a client that stopped reading, and objects that vanish unsaid.
TEST_F(Control, OneThatReadsTooSlowlyIsToldWhatItMissed)
{
    open();
    const int slow = connected(), quick = connected(), flood = connected();
    ask(slow, "{\"do\":\"watch\"}\n");
    ask(quick, "{\"do\":\"watch\",\"private\":true}\n");
    const std::string imsi(200, '1');
    const int told = 5000;
    size_t quickly = 0, slowly = 0, answered = 0;
    for (int i = 0; i < told; i++) {
        happenings.tell("status", {{"imsi", imsi}, {"number", i}});
        waits.wait(0ms);
        const std::string got = heard(quick);
        EXPECT_EQ(got.find("***"), got.npos);
        quickly += static_cast<size_t>(std::ranges::count(got, '\n'));
    }
    happenings.tell("message", {{"text", std::string(20000, 'm')}}); // what answers are made of
    std::string requests;
    for (int i = 0; i < 200; i++)
        requests += "{\"do\":\"messages\"}\n";
    ASSERT_EQ(send(flood, requests.data(), requests.size(), 0),
              static_cast<ssize_t>(requests.size()));
    for (int i = 0; i < 3000 && (answered < 200 || quickly <= told); i++) {
        answered += static_cast<size_t>(std::ranges::count(heard(flood), '\n'));
        quickly += static_cast<size_t>(std::ranges::count(heard(quick), '\n'));
        turn(1);
    }
    EXPECT_EQ(quickly, told + 1u);
    EXPECT_EQ(answered, 200u);
    std::string all;
    for (int i = 0; i < 100; i++, turn(1))
        all += heard(slow);
    happenings.tell("status", {{"imsi", imsi}});
    turn();
    all += heard(slow);
    EXPECT_EQ(all.find(imsi), all.npos);
    const size_t at = all.find("\"objects\":");
    ASSERT_NE(at, all.npos);
    slowly = static_cast<size_t>(std::ranges::count(all, '\n')) - 1;
    EXPECT_EQ(slowly + std::stoul(all.substr(at + 10)), told + 2u);
    EXPECT_LT(all.size(), 1200000u);
}

TEST_F(Control, ADeadHostsSocketIsReplacedAndNothingElse)
{
    std::ofstream(path) << "mine";
    EXPECT_NE(served.open(waits, happenings, path, "").find("no socket"), std::string::npos);
    unlink(path);
    const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {AF_UNIX, ""};
    std::strcpy(address.sun_path, path);
    ASSERT_EQ(bind(dead, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(dead, 1), 0);
    EXPECT_NE(served.open(waits, happenings, path, "").find("listens there"), std::string::npos);
    close(dead);
    EXPECT_NE(served.open(waits, happenings, path, "no-such-group").find("no group"),
              std::string::npos);
    umask(0);
    open();
    struct stat there = {};
    ASSERT_EQ(stat(path, &there), 0);
    EXPECT_EQ(there.st_mode & 0777, 0660u);
    control second{[](const std::string&) {}, {}};
    EXPECT_NE(second.open(waits, happenings, path, "").find("another host has it"),
              std::string::npos);
    EXPECT_NE(ask(connected(), "{\"do\":\"status\"}\n"), "");
}

} // namespace
