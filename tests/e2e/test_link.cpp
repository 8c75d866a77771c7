// SPDX-License-Identifier: MIT
// The data link through the calls of a host: a real wwan0 with a far end that answers, and a
// stand-in for the dialer program.
#include "tests/e2e/story.h"

#include <cstring>
#include <filesystem>
#include <fstream>

using namespace kelo_story;

namespace
{

class Link : public Story
{
  protected:
    Link()
    {
        // The library gives a ping 5, 10 and 20 seconds; one that is answered takes none.
        const std::filesystem::path bin = "/tmp/link-bin";
        std::filesystem::create_directory(bin);
        std::ofstream(bin / "ping") << "#!/bin/sh\nexec timeout 0.5 busybox ping \"$@\"\n";
        std::filesystem::permissions(bin / "ping", std::filesystem::perms{0755});
        setenv("PATH", (bin.string() + ":" + std::getenv("PATH")).c_str(), 1);
    }
    ~Link() override { std::filesystem::remove_all("/tmp/link-bin"); }

    static void far_end(const std::string& state)
    {
        const std::string line = "nsenter --net=/run/netns/modem ip link set modem0 " + state;
        EXPECT_EQ(std::system(line.c_str()), 0);
    }
    // The link is up, or down; the dialer was started so often, for the last time with this APN.
    static void expect_link(int up, std::size_t dials, const std::string& apn)
    {
        std::string log;
        const auto has_come = [&] {
            log = text_of("/tmp/quectel-CM.log");
            const std::size_t last = log.rfind("started ");
            return kelo_get_connect_status() == up && count_of(log, "started ") == dials &&
                   log.find("started apn=[" + apn + "]", last) == last;
        };
        EXPECT_TRUE(eventually(has_come, within(30s)))
            << "connected: " << kelo_get_connect_status() << ", dialer:\n"
            << log;
    }
    void end_of_the_library()
    {
        kelo_deinit_cellular();
        for (const char* thread : {"MobileTask", "DialerThread", "CellularStart"})
            EXPECT_SOON(thread_cpu_us(thread) == -1) << thread;
    }

    cellular_setting settings = {1, "first", "", "", "", 0, 3, 50, 1, "10.64.0.1"};
};

} // namespace

// Catches: an init that never wants the link, or says that it is up when it is not; a link that is
// lost and stays so; settings that reach the dialer or the modem too late or not at all; a thread
// that outlives the stop; a second init that finds the first one's leavings.
TEST_F(Link, FromInitToOnlineCutChangedStoppedAndInitAgain)
{
    plug("EC25");
    kelo_init_cellular(&settings, 0);
    ASSERT_TRUE(wire("AT+CPIN?", 20s));
    EXPECT_EQ(kelo_get_connect_status(), 0);
    expect_link(1, 1, "first");
    EXPECT_EQ(modem.count("AT+QICSGP=*"), 0u); // the dialer brings the APN

    far_end("down");
    expect_link(0, 2, "first");
    far_end("up");
    expect_link(1, 2, "first");

    // Off and on: the dialer that runs is not started again.
    settings.enable = 0;
    EXPECT_EQ(kelo_set_cellular(&settings), 1);
    expect_link(0, 2, "first");
    EXPECT_NE(std::system("ifconfig | grep wwan0"), 0);
    settings.enable = 1;
    std::strcpy(settings.apn, "second");
    EXPECT_EQ(kelo_set_cellular(&settings), 1);
    EXPECT_TRUE(wire("AT+QNWPREFCFG= \"mode_pref\",AUTO", 5s));
    expect_link(1, 3, "second"); // wwan0 was taken down: dialed anew

    std::strcpy(settings.apn, "third");
    kelo_cellular_restart(&settings);
    EXPECT_TRUE(wire("AT+QICSGP=1,3,\"third\",\"\",\"\",0", 40s));
    expect_link(1, 4, "third");

    end_of_the_library();
    modem.clear_log();
    std::atomic_ref(global_quagga_stop).store(0);
    std::strcpy(settings.apn, "fourth");
    kelo_init_cellular(&settings, 0);
    expect_link(1, 5, "fourth");
    EXPECT_EQ(modem.count("AT+CGMM"), 0u); // the module is known
    end_of_the_library();
}
