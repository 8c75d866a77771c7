// Start, stop and reload, in and out of their order, and ports that are not what they should be.
#include "tests/e2e/story.h"

using namespace kelo_story;

using Lifecycle = Story;

// Catches: a task that outlives a stop which came before its first pass.
TEST_F(Lifecycle, StopRightBehindStart)
{
    plug("EC25");
    for (int round = 0; round < 3; round++) {
        start();
        EXPECT_LE(stop(), within(3s));
        EXPECT_EQ(record().fd, -1);
        modem.clear_log();
        quiet(700ms);
        EXPECT_EQ(modem.commands(), line_list{});
        EXPECT_EQ(thread_cpu_us("MobileTask"), -1);
    }
}

namespace
{

std::atomic<int> refused = 1;

void stop_from_callback(const char* text)
{
    if (std::string(text).find("+QMTSTAT: 0,1") == std::string::npos)
        return;
    refused = cellular_stop();
    libgsm_send_at("AT+CSQ"); // other calls are welcome there
}

} // namespace

// Catches: a task that waits for its own end, for ever.
TEST_F(Lifecycle, StopOnTheTaskItself)
{
    kelo_set_urc_callback(stop_from_callback);
    start_and_come_to_rest();
    modem.clear_log();
    modem.report("+QMTSTAT: 0,1");
    EXPECT_TRUE(wire("AT+CSQ", 3s));
    EXPECT_EQ(refused, -1);
    EXPECT_TRUE(says("the mobile task can't wait for its own end!", within(1s)));
    EXPECT_TRUE(eventually([&] { return record().rssi == 24; }, within(2s))); // it still works
    EXPECT_LE(stop(), within(3s));
}

// Catches: a reload that walks the wrong list, or leaves old figures and status bits behind.
TEST_F(Lifecycle, Reload)
{
    plug("EC25");
    start();
    ASSERT_TRUE(wire("AT+COPS?", 40s));
    ASSERT_TRUE(eventually([&] { return record().oper[0] != '\0'; }, within(3s)));
    quiet(500ms); // the event of that answer is over
    modem.clear_log();
    cell_reload_flag_set();
    ASSERT_EQ(cellular_reload(), 0);
    EXPECT_EQ(word(cell_reload_flag), 0);
    EXPECT_EQ(cellular_get_cur_status(), CELL_STATUS_NO_SIM);
    EXPECT_STREQ(record().imsi, "");
    const line_list expected = {"AT+CFUN=0",
                                "AT+CFUN=1",
                                "AT+CPIN?",
                                "AT+CIMI",
                                "AT+QCCID",
                                "AT+QMBNCFG=\"List\"",
                                "AT+QCFG=\"nwscanmode\""};
    wire(expected.back(), 40s);
    quiet(2500ms); // nothing comes behind the last, but for one that is passed over
    EXPECT_EQ(modem.commands(), expected);
    EXPECT_STREQ(record().imsi, "262011234567890");
}

// Catches: a task that stays on a modem that is gone, and a new start that can't have it back.
TEST_F(Lifecycle, PortVanishesAndComesBack)
{
    plug("EC25");
    start();
    ASSERT_TRUE(wire("AT+CGMR", 3s));
    order("node off");
    EXPECT_TRUE(says("/dev/ttyUSB: No such file or directory\n", within(3s)));
    EXPECT_TRUE(eventually([] { return thread_cpu_us("MobileTask") == -1; }, within(1s)));
    libgsm_send_at("AT"); // into the dead port: no crash, no signal
    order("node on");
    modem.clear_log();
    EXPECT_LE(stop(), within(1s));
    start();
    EXPECT_TRUE(wire("AT+QMTCONN?", 5s));
}
