#include "task/task.h"
#include "tests/testing.h"
#include <kelo/settings.h>

namespace
{

using namespace kelo;
using kelo::test::modem_port;

// A refused call changes nothing; a second set of first rows would send everything twice.
TEST(Lifecycle, RefusedCallsChangeNothing)
{
    gsm_dchan_status = CELL_STATUS_READY;
    cell_reload_flag_set();
    life.cell_start_lock = true;
    EXPECT_EQ(cellular_start(0), -1);
    EXPECT_EQ(cellular_stop(), -1);
    EXPECT_EQ(cellular_reload(), -1);
    life.cell_start_lock = false;
    cell_repower_lock = 1;
    EXPECT_EQ(cellular_reload(), -1);
    cell_repower_lock = 0;
    EXPECT_EQ(gsm_dchan_status, CELL_STATUS_READY);
    EXPECT_EQ(cell_reload_flag, 1);
    EXPECT_FALSE(life.cell_start_lock);
}

TEST(Lifecycle, AStopAheadOfAnyStartAndAStartWithoutADevice)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(cellular_stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_EQ(cellular_start(0), 0);
    EXPECT_TRUE(life.mobile_task_stopped);
    EXPECT_EQ(cellular_at_is_ready(), 0);
    EXPECT_EQ(cellular_stop(), 0);
}

// After the record is forgotten, every call that needs one refuses instead of reading a null.
TEST(Lifecycle, WithoutARecordCallsRefuse)
{
    gsm_mobile* place = &g_mobile;
    gsm_mobile copy = {};
    EXPECT_EQ(kelo_copy_mobile(&copy), 1);
    EXPECT_EQ(kelo_copy_mobile(nullptr), 0);
    libgsm_mobile_free(nullptr);
    libgsm_mobile_free(&place);
    EXPECT_EQ(place, nullptr);
    EXPECT_EQ(kelo_copy_mobile(&copy), 0);
    EXPECT_EQ(cellular_reload(), -1);
    EXPECT_EQ(libgsm_send_at("AT"), -1);
    EXPECT_EQ(libgsm_get_network_info(), nullptr);
    EXPECT_EQ(libgsm_set_pincode("1234"), -1);
    EXPECT_EQ(libgsm_get_qeng_net_stem(), -1);
    EXPECT_EQ(cellular_start(0), 0);
    EXPECT_EQ(cellular_stop(), 0);
    EXPECT_EQ(corvel_mobile_dchannel(nullptr), nullptr);
    EXPECT_EQ(cellular_gsm_init(0), 0);
    EXPECT_EQ(kelo_copy_mobile(&copy), 1);
}

// Two tasks on one port would each read half of every answer.
TEST(Lifecycle, OfTwoStartsAtOnceOneIsRefused)
{
    modem_port port(false);
    cellular_gsm_init(0);
    int results[2] = {};
    std::thread one([&] { results[0] = cellular_start(0); });
    std::thread two([&] { results[1] = cellular_start(0); });
    one.join();
    two.join();
    EXPECT_EQ(results[0] + results[1], -1);
    EXPECT_EQ(cellular_start(0), -1); // over a running task
    EXPECT_EQ(cellular_at_is_ready(), 1);
    EXPECT_EQ(cellular_stop(), 0);
    EXPECT_TRUE(life.mobile_task_stopped);
    EXPECT_EQ(port_descriptor(&g_mobile), -1);
    EXPECT_EQ(cellular_at_is_ready(), 1);
}

} // namespace
