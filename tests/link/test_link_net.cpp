// The dialer thread with everything real but the modem: wwan0, ifconfig, ping, killall, and a
// stand-in for the dialer program.
#include "link/init.h"
#include "stand_ins.h"
#include "testing.h"
#include <kelo/settings.h>

using namespace kelo;

namespace
{

int far_end(const std::string& state)
{
    return std::system(("nsenter --net=/run/netns/modem ip link set modem0 " + state).c_str());
}

bool comes_to(int up)
{
    return test::wait_until([up] { return get_cell_network_up() == up; }, 10000);
}

int dials()
{
    return test::count_of(test::content_of("/tmp/quectel-CM.log"), "started apn=[an apn] user=[]");
}

} // namespace

TEST(LinkNet, UpLostRedialedAndUpAgain)
{
    // Supervision waits 5, 10 and 20 seconds: one each is enough for a far end that is cut.
    test::stand_in("ping", "exec busybox ping $(echo \"$*\" | sed 's/-W [0-9]*/-W 1/')");
    text_set(get_start_cellular_status()->apn, "an apn");
    text_set(get_start_cellular_status()->ping_target, "10.64.0.1");
    get_start_cellular_status()->ping_enable = 1;
    g_netWorkCardFlag = is_pin_ready = 1;
    cellular_set_status(CELL_STATUS_READY);
    EXPECT_EQ(ip_net_is_up("wwan0"), 0);

    dialer_state state;
    state.ping_ticks = 290; // the supervision comes two seconds behind the link
    std::thread dialer([&state] { dialer_run(state); });
    EXPECT_TRUE(comes_to(1));
    EXPECT_EQ(dials(), 1);
    EXPECT_EQ(ip_net_is_up("wwan0"), 1);

    EXPECT_EQ(far_end("down"), 0);
    EXPECT_TRUE(comes_to(0));
    EXPECT_TRUE(test::wait_until([] { return dials() == 2; }));
    EXPECT_EQ(get_cell_network_up(), 0);
    EXPECT_EQ(far_end("up"), 0);
    EXPECT_TRUE(comes_to(1));

    word_set(global_quagga_stop, 1);
    dialer.join();
    EXPECT_EQ(get_cell_network_up(), 1);
}
