// SPDX-License-Identifier: MIT
// The probes: what the tools print decides, and nothing that reaches them makes them run anything
// else.
#include "tests/testing.h"

struct Probes : testing::Test {
    static void prints(const char* program, const std::string& text)
    {
        std::ofstream("/tmp/text", std::ios::binary) << text;
        stand_in(program, "echo \"$*\" >>/tmp/called; cat /tmp/text");
    }
    const scratch called{"/tmp/called"}, text{"/tmp/text"};
};

TEST_F(Probes, PingSummaries)
{
    get_start_cellular_status()->ping_enable = 1;
    set_5g_debug(1);
    const std::tuple<std::string, int, const char*> rows[] = {
        {"PING\n\n1 packets transmitted, 1 received, 0% packet loss, time 0ms\n", 1, ""},
        {"1 packets transmitted, 1 packets received, 0% packet loss", 1, "1 received, 0%"},
        {"1 packets transmitted, 0 packets received\n1 packets transmitted, 1 received", 0, ""},
        {"", 0, "[wwan0] 1 packets transmitted, 0 received, 100% packet loss\n"},
        {"0 packets transmitted, 0 received\n", 0, "0 packets transmitted, 0 received, 100%"},
        {"1 packets transmitted, 1", 0, ""},
        {"1 packets transmitted,  -9 received", 0, ""},
        {"99999999999 packets transmitted, 99999999999 received", 1, "2147483647 received, 0%"},
        {std::string(600, '\0') + "1 packets transmitted, 1 received\n", 1, ""},
        {std::string(200000, '\n') + "1 packets transmitted, 1 received\n", 0, ""}};
    for (const auto& [says, up, figures] : rows) {
        prints("ping", says);
        captured out;
        EXPECT_EQ(link_ping("wwan0", "there", 5), up) << says;
        EXPECT_TRUE(out.has(figures)) << out.text();
    }
}

TEST_F(Probes, NoTextTurnsAPingIntoSomethingElse)
{
    const scratch made("/tmp/x");
    prints("ping", "1 packets transmitted, 1 received\n");
    EXPECT_EQ(link_ping("none", "there", 1), 1) << "pings are off";
    get_start_cellular_status()->ping_enable = 1;
    captured out;
    for (const char* const target : {"-f 8.8.8.8", "8.8.8.8\nreboot"})
        EXPECT_EQ(link_ping("wwan0", target, 1), 0);
    for (const char* const name : {"", "-f", "wwan0;>/tmp/x", "wwan0123456789abc"})
        EXPECT_EQ(link_ping(name, "there", 1) + interface_present(name) + ipv6_is_up(name), 0);
    EXPECT_EQ(count_of(out.text(), "refused to ping"), 1) << "not five times a second";
    EXPECT_NE(access("/tmp/called", F_OK), 0);

    for (const char* const target : {"8.8.8.8 -f", "$(>/tmp/x)", "a;>/tmp/x", ""})
        link_ping("wwan0", target, 1);
    EXPECT_NE(access("/tmp/x", F_OK), 0);
    const std::string begin = "-c 1 -I wwan0 -s 56 -W 1";
    EXPECT_EQ(content_of("/tmp/called"), begin + " 8.8.8.8 -f\n" + begin + " $(>/tmp/x)\n" + begin +
                                             " a;>/tmp/x\n" + begin + "\n");
}

TEST_F(Probes, IfconfigOfBothForms)
{
    constexpr std::tuple<const char*, int, int, int> rows[] = {
        {"wwan0     Link encap:Ethernet\n          inet addr:10.38.223.119  Bcast:1\n", 1, 1, 0},
        {"wwan0     Link encap:Ethernet\n          inet6 addr: fe80::1/64 Scope:Link\n", 1, 0, 1},
        {"wwan0: flags=4305<UP>  mtu 1500\n        inet 10.38.223.119  netmask 2\n", 1, 1, 0},
        {"eth0: inet_addr inet6:\n", 0, 0, 0}};
    for (const auto& [says, present, ipv4, ipv6] : rows) {
        prints("ifconfig", says);
        EXPECT_EQ(interface_present("wwan0"), present) << says;
        EXPECT_EQ(ip_net_is_up("wwan0"), ipv4) << says;
        EXPECT_EQ(ipv6_is_up("wwan0"), ipv6) << says;
    }
}
