// Start, stop and reload, in and out of their order, and ports that are not what they should be.
#include "story.h"

#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

using namespace kelo_story;

using Lifecycle = Story;

// Catches: a stop that waits for a task that never was.
TEST_F(Lifecycle, StopAheadOfAnyStart)
{
    EXPECT_LE(stop(), within(100ms));
    EXPECT_EQ(cellular_gsm_init(0), 0);
    EXPECT_LE(stop(), within(100ms));
    EXPECT_EQ(cellular_at_is_ready(), 0);
    EXPECT_EQ(cellular_get_cur_status(), CELL_STATUS_NO_SIM);
    EXPECT_EQ(libgsm_send_at("AT"), 0); // no port: nothing happens
}

// Catches: a task that outlives a stop which came before its first pass.
TEST_F(Lifecycle, StopRightBehindStart)
{
    plug("EC25");
    for (int round = 0; round < 3; round++) {
        start();
        EXPECT_LE(stop(), within(3s));
        EXPECT_EQ(record().fd, -1);
        modem.clear_log();
        usleep(700000);
        EXPECT_EQ(modem.commands(), Lines{});
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
    gsm_mobile copy;
    kelo_copy_mobile(&copy);
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

// Catches: two tasks on one port, and calls that change something although they are refused.
TEST_F(Lifecycle, CallsThatCollide)
{
    plug("EC25");
    cellular_gsm_init(0);
    std::atomic<int> ready = 0, done = 0, locked = 0;
    const auto race = [&] {
        ready++;
        while (ready < 2) {
        }
        (cellular_start(0) == 0 ? done : locked)++;
    };
    std::thread other(race);
    race();
    other.join();
    EXPECT_EQ(done, 1);
    EXPECT_EQ(locked, 1);
    EXPECT_EQ(cellular_start(0), -1);
    EXPECT_TRUE(says("the mobile task runs already!", 0s));
    ASSERT_TRUE(wire("AT+QSIMDET=1,0", 5s));
    EXPECT_EQ(modem.count("AT+CGMM"), 1u);

    cellular_set_status(CELL_STATUS_READY);
    std::thread stopper([] { EXPECT_EQ(cellular_stop(), 0); });
    EXPECT_TRUE(eventually([] { return cellular_get_cur_status() == CELL_STATUS_NO_SIM; }, 2s));
    // The stop holds on while the task ends.
    const int flow = record().flow;
    EXPECT_EQ(cellular_reload(), -1);
    EXPECT_EQ(cellular_start(0), -1);
    EXPECT_EQ(cellular_stop(), -1);
    stopper.join();
    EXPECT_EQ(record().flow, flow);
    EXPECT_TRUE(says("cellular reload thread has been locked!", 0s));
    EXPECT_TRUE(says("cellular start thread has been locked!", 0s));
    EXPECT_TRUE(says("cellular stop thread has been locked!", 0s));
}

// Catches: a reload that walks the wrong list, or leaves old figures and status bits behind.
TEST_F(Lifecycle, Reload)
{
    plug("EC25");
    start();
    ASSERT_TRUE(wire("AT+COPS?", 40s));
    ASSERT_TRUE(eventually([] { return mobile_is_ready() != 0; }, within(2s)));
    usleep(1200000); // at rest, where reports are read
    modem.report("+QENG: \"servingcell\",\"NOCONN\",\"LTE\",\"FDD\",262,01,1A2F403,214,1300,3,5,5,"
                 "5A1C,-97,-11,-66,14,31");
    ASSERT_TRUE(eventually([&] { return record().rsrp == -97; }, within(2s)));
    modem.clear_log();
    cell_reload_flag_set();
    ASSERT_EQ(cellular_reload(), 0);
    EXPECT_EQ(word(cell_reload_flag), 0);
    EXPECT_EQ(cellular_get_cur_status(), CELL_STATUS_NO_SIM);
    EXPECT_EQ(record().rsrp, -120);
    EXPECT_STREQ(record().imsi, "");
    const Lines expected = {"AT+CFUN=0",
                            "AT+CFUN=1",
                            "AT+CPIN?",
                            "AT+CIMI",
                            "AT+QCCID",
                            "AT+QMBNCFG=\"List\"",
                            "AT+QCFG=\"nwscanmode\""};
    wire(expected.back(), 40s);
    usleep(2500000); // nothing comes behind the last, but for one that is passed over
    EXPECT_EQ(modem.commands(), expected);
    EXPECT_STREQ(record().imsi, "262011234567890");
}

// Catches: a start that hangs, crashes or stays silent without a port that it can use.
TEST_F(Lifecycle, PortsThatAreNone)
{
    struct {
        const char* name;
        int (*make)();
        const char* message;
    } const cases[] = {
        {"nothing there", [] { return 0; }, "': no such file or directory!\n"},
        {"a folder", [] { return mkdir(port, 0755); }, "failed to open dev '/dev/ttyUSB2'!\n"},
        {"a link to nowhere", [] { return symlink("/dev/pts/4711", port); },
         "': no such file or directory!\n"},
    };
    for (const auto& port_case : cases) {
        SCOPED_TRACE(port_case.name);
        ASSERT_EQ(port_case.make(), 0);
        const std::size_t before = count_said(port_case.message);
        start();
        EXPECT_EQ(count_said(port_case.message), before + 1);
        EXPECT_EQ(thread_cpu_us("MobileTask"), -1);
        EXPECT_LT(record().fd, 0);
        EXPECT_EQ(cellular_at_is_ready(), 0);
        EXPECT_LE(stop(), within(100ms));
        rmdir(port);
        unlink(port);
    }
    plug("EC25"); // nothing of it stands in the way of a good one
    start();
    EXPECT_TRUE(wire("AT+CGMM", 2s));
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

// Catches: a task that spins on a port which is always ready and never has anything.
TEST_F(Lifecycle, HungUpPortDoesNotSpin)
{
    constexpr const char* node = "/dev/ttyUSB0"; // some device stays
    std::ofstream(node).put('\n');
    {
        BarePort bare(port);
        start();
        ASSERT_TRUE(bare.hears("AT+CGMM\r\n", within(3s)));
        bare.hang_up();
        ASSERT_TRUE(says("the AT port has hung up\n", within(3s)));
        const std::int64_t before = process_cpu_us();
        usleep(3000000);
        EXPECT_LT(process_cpu_us() - before, sanitized ? 150000 : 10000);
        EXPECT_EQ(count_said("the AT port has hung up\n"), 1u);
        EXPECT_LE(stop(), within(3s));
    }
    unlink(node);
}
