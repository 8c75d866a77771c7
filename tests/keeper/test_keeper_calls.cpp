// SPDX-License-Identifier: MIT
// The keeper's calls, and what a start, the port and the task make of it.
#include "keeper/keeper.h"
#include "tests/testing.h"

#include <sys/file.h>

TEST(KeeperCalls, RefuseWhatIsOutOfRange)
{
    kelo_keeper keeper{};
    EXPECT_EQ(kelo_keeper_defaults(nullptr), -1);
    EXPECT_EQ(kelo_keeper_defaults(&keeper), -1);
    keeper.size = offsetof(kelo_keeper, dial_s); // a host of before
    EXPECT_EQ(kelo_keeper_defaults(&keeper), 0);
    EXPECT_EQ(std::tuple(keeper.search_s, keeper.ask_s, keeper.dial_s), std::tuple(360, 15, 0));

    const auto refused = [](auto change) {
        kelo_keeper wrong{};
        wrong.size = sizeof wrong;
        kelo_keeper_defaults(&wrong);
        change(wrong);
        return kelo_keep(&wrong) == -1 && word_get(keeper_on) == 0;
    };
    EXPECT_TRUE(refused([](kelo_keeper& k) { k.size = 0; }));
    EXPECT_TRUE(refused([](kelo_keeper& k) { k.search_s = 0; }));
    EXPECT_TRUE(refused([](kelo_keeper& k) { k.spread_percent = 51; }));
    EXPECT_TRUE(refused([](kelo_keeper& k) { k.pin_tries_least = 4; }));
    EXPECT_TRUE(refused([](kelo_keeper& k) { k.dial_spread_s = 3601; }));
    EXPECT_TRUE(refused([](kelo_keeper& k) { std::memset(k.second_ping_target, 'a', 64); }));
    EXPECT_TRUE(refused([](kelo_keeper& k) { k.second_ping_target[0] = '-'; }));
    EXPECT_STREQ(kelo_reason_name(static_cast<kelo_reason>(31)), "unknown");
    EXPECT_EQ(kelo_set_port("ttyUSB2"), -1);
    EXPECT_EQ(kelo_set_port(("/" + std::string(31, 'a')).c_str()), -1);
}

// On, off and on again, ahead of any init: it stands by, and one thread is all there ever is.
TEST(KeeperCalls, OnAndOff)
{
    const auto threads = [] {
        int count = 0;
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
            count += content_of(task.path() / "comm") == "Keeper\n";
        return count;
    };
    for (int i = 0; i < 20; i++) {
        EXPECT_EQ(kelo_keep(nullptr), 0);
        EXPECT_EQ(kelo_keep_stop(), 0);
    }
    EXPECT_EQ(kelo_keep(nullptr), 0);
    EXPECT_TRUE(wait_until([&] { return threads() == 1; }));
    kelo_figures figures{};
    EXPECT_EQ(kelo_get_figures(nullptr, 0), -1);
    figures.pin_tries = 77;
    EXPECT_EQ(kelo_get_figures(&figures, sizeof figures.size), 0);
    EXPECT_EQ(std::pair(figures.size, figures.pin_tries), std::pair(sizeof figures, 77))
        << "beyond the size given";
    EXPECT_EQ(kelo_get_figures(&figures, sizeof figures), 0);
    EXPECT_EQ(figures.pin_tries, -1);
    EXPECT_EQ(kelo_get_reason(), KELO_REASON_STOPPED);
    kelo_keep_stop();
    EXPECT_TRUE(wait_until([&] { return threads() == 0; }));
}

// Without a node a start runs no shell line: it would end programs of others.
TEST(KeeperCalls, NoStartWithoutANode)
{
    const scratch called("/tmp/called");
    stand_in("killall", "echo $* >>/tmp/called");
    cellular_gsm_init(0);
    word_set(keeper_on, 1);
    EXPECT_EQ(cellular_start(0), 0);
    EXPECT_FALSE(std::filesystem::exists(called.path));
    word_set(keeper_on, 0);
    cellular_start(0);
    EXPECT_TRUE(std::filesystem::exists(called.path));
}

// The port is the named one, is taken for one program alone, and is lost with its device.
TEST(KeeperCalls, Port)
{
    modem_port modem(false);
    const std::string pty = std::filesystem::read_symlink(modem.node);
    EXPECT_EQ(symlink(pty.c_str(), "/dev/ttyS9modem"), 0);
    EXPECT_EQ(kelo_set_port("/dev/ttyS9modem"), 0);
    EXPECT_TRUE(port_there());
    libgsm_search_usb_port(&g_mobile);
    EXPECT_EQ(std::pair(std::string(g_mobile.at_dev), g_mobile.at_port),
              std::pair(std::string("/dev/ttyS9modem"), 9));
    word_set(keeper_on, 1);

    const int other = open(pty.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(libgsm_mobile_open_usb(&g_mobile), -1);
    EXPECT_EQ(word_get(port_error), EBUSY);
    close(other);
    EXPECT_EQ(libgsm_mobile_open_usb(&g_mobile), 0);
    EXPECT_EQ(word_get(port_error), 0);
    EXPECT_FALSE(port_lost(&g_mobile));
    EXPECT_EQ(libgsm_mobile_open_usb(&g_mobile), 0) << "its own lock keeps it out";

    modem_port anew(false); // the same name, another device
    EXPECT_FALSE(port_lost(&g_mobile));
    unlink("/dev/ttyS9modem");
    EXPECT_TRUE(port_lost(&g_mobile));
    EXPECT_FALSE(port_there());
    EXPECT_EQ(symlink(ptsname(anew.master), "/dev/ttyS9modem"), 0);
    EXPECT_TRUE(port_lost(&g_mobile));
    unlink("/dev/ttyS9modem");
}

// With a keeper a port that has hung up ends the task; without, the task stays as it ever did.
TEST(KeeperCalls, HungUpPortEndsTheTask)
{
    for (const int on : {0, 1}) {
        word_set(keeper_on, on);
        auto modem = std::make_unique<modem_port>();
        task_state state;
        const int keeper = open("/dev/null", O_RDONLY);
        close(modem->master);
        unlink(modem->node);
        EXPECT_EQ(symlink("/dev/null", modem->node), 0);
        EXPECT_EQ(task_pass(&g_mobile, state), on == 0);
        dup2(keeper, modem->master); // for its own close
        close(keeper);
    }
}
