// The dialer thread with everything real but the modem: wwan0, ifconfig, ping, killall, and a
// stand-in for the dialer program.
#include "api/api.h"
#include "link/link.h"
#include "tests/link/stand_ins.h"
#include <kelo/settings.h>

using namespace kelo;

TEST(LinkNet, UpLostRedialedAndUpAgain)
{
    const auto far_end = [](const std::string& state) {
        const std::string command = "nsenter --net=/run/netns/modem ip link set modem0 " + state;
        EXPECT_EQ(std::system(command.c_str()), 0);
    };
    const auto comes_to = [](int up, int dials) {
        return test::wait_until([=] {
            const std::string log = test::content_of("/tmp/quectel-CM.log");
            return get_cell_network_up() == up &&
                   test::count_of(log, "started apn=[an apn] user=[]") == dials;
        });
    };
    // Supervision waits 5, 10 and 20 seconds: one each is enough for a far end that is cut.
    test::stand_in("ping", "exec busybox ping $(echo \"$*\" | sed 's/-W [0-9]*/-W 1/')");
    text_set(get_start_cellular_status()->apn, "an apn");
    text_set(get_start_cellular_status()->ping_target, "10.64.0.1");
    get_start_cellular_status()->ping_enable = 1;
    g_netWorkCardFlag = is_pin_ready = 1;
    cellular_set_status(CELL_STATUS_READY);

    dialer_state state = {.tools = &real_dialer_tools};
    state.ping_ticks = 290; // the supervision comes two seconds behind the link
    std::thread dialer([&state] { dialer_run(state); });
    EXPECT_TRUE(comes_to(1, 1));
    far_end("down");
    EXPECT_TRUE(comes_to(0, 2));
    far_end("up");
    EXPECT_TRUE(comes_to(1, 2));
    word_set(global_quagga_stop, 1);
    dialer.join();
}
