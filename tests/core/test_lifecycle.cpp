#include "testing.h"
#include <kelo/settings.h>

#include <atomic>

namespace
{

using namespace kelo;
using kelo::test::captured;
using kelo::test::modem_port;
using kelo::test::wait_until;

TEST(Lifecycle, AStopAheadOfAnyStartReturnsAtOnce)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(cellular_stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_EQ(gsm_dchan_status, CELL_STATUS_NO_SIM);
}

TEST(Lifecycle, AStartWithoutADeviceRunsNoTask)
{
    EXPECT_EQ(cellular_start(0), 0);
    EXPECT_EQ(mobile_task_stopped, 1);
    EXPECT_EQ(cellular_at_is_ready(), 0);
    EXPECT_EQ(cell_start_lock, 0);
}

// A refused call changes nothing; a second set of first rows would send everything twice.
TEST(Lifecycle, RefusedCallsChangeNothing)
{
    gsm_dchan_status = CELL_STATUS_READY;
    cell_reload_flag_set();
    cell_start_lock = 1;
    EXPECT_EQ(cellular_start(0), -1);
    EXPECT_EQ(cellular_stop(), -1);
    EXPECT_EQ(cellular_reload(), -1);
    cell_start_lock = 0;
    cell_repower_lock = 1;
    EXPECT_EQ(cellular_reload(), -1);
    cell_repower_lock = 0;
    EXPECT_EQ(gsm_dchan_status, CELL_STATUS_READY);
    EXPECT_EQ(cell_reload_flag, 1);
    EXPECT_EQ(cell_start_lock, 0);

    sms_pending_count = 3;
    EXPECT_EQ(cellular_reload(), 0);
    EXPECT_EQ(gsm_dchan_status, CELL_STATUS_NO_SIM);
    EXPECT_EQ(cell_reload_flag, 0);
    EXPECT_EQ(sms_pending_count, 0);
    EXPECT_EQ(g_mobile.rsrp, -120);
    EXPECT_EQ(cur_at_list, &reload_sim1_list);
}

TEST(Lifecycle, FirstRowsAreAddedOnceAndByPowerMode)
{
    conn_mode_flag = 1;
    EXPECT_EQ(cellular_gsm_init(1), 0);
    EXPECT_EQ(conn_mode_flag, 0);
    cellular_gsm_init(0);
    std::string walk;
    while (at_info* const at = at_list_next(&start_sim1_list))
        walk += std::to_string(at->id) + " ";
    EXPECT_EQ(walk, "9 11 12 90 86 89 85 92 94 41 95 96 97 98 99 100 101 102 103 ");
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
    EXPECT_EQ(libgsm_hangup(nullptr), -1);
    EXPECT_EQ(libgsm_get_network_info(), nullptr);
    EXPECT_STREQ(libgsm_get_modem_network_type(), "LTE");
    EXPECT_EQ(libgsm_set_pincode("1234"), -1);
    EXPECT_EQ(libgsm_get_qeng_net_stem(), -1);
    EXPECT_EQ(libgsm_start(nullptr, 1), -1);
    EXPECT_EQ(cellular_start(0), 0);
    EXPECT_EQ(cellular_stop(), 0);
    EXPECT_EQ(corvel_mobile_dchannel(nullptr), nullptr);
    EXPECT_EQ(cellular_gsm_init(0), 0);
    EXPECT_EQ(kelo_copy_mobile(&copy), 1);
}

TEST(Lifecycle, ACopyHoldsNoPointersIntoTheLibrary)
{
    at_info at = {};
    g_mobile.cur_at = &at;
    g_mobile.pending_at = strdup("AT");
    text_set(g_mobile.oper, "Kelo");
    gsm_mobile copy = {};
    EXPECT_EQ(kelo_copy_mobile(&copy), 1);
    EXPECT_STREQ(copy.oper, "Kelo");
    EXPECT_EQ(copy.cur_at, nullptr);
    EXPECT_EQ(copy.pending_at, nullptr);
    std::free(g_mobile.pending_at);
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
    EXPECT_EQ(mobile_task_stopped, 1);
    EXPECT_EQ(port_descriptor(&g_mobile), -1);
    EXPECT_EQ(cellular_at_is_ready(), 1);
}

// While the task walks and its handlers write, other threads reload, send and copy: clean under a
// thread checker, and no line and no text of the record is torn.
TEST(Lifecycle, ManyThreadsOnOneRunningTask)
{
    modem_port port(false);
    cellular_gsm_init(0);
    std::atomic<bool> stop = false;
    std::string all;
    std::thread modem([&] {
        while (!stop) {
            const std::string wrote = port.heard(5);
            all += wrote;
            if (wrote.find("CGMM") != std::string::npos)
                port.say("AT+CGMM\r\r\nEC25\r\n\r\nOK\r\n");
            else if (wrote.find("CGMR") != std::string::npos)
                port.say("AT+CGMR\r\r\nEC25EFAR06A06M4G\r\n\r\nOK\r\n");
            else if (!wrote.empty())
                port.say("\r\n+COPS: 0,0,\"Kelo Mobile\",7\r\n\r\n+CREG: 2,1,\"12AB\",\"1234567\",7"
                         "\r\n\r\nOK\r\n");
        }
    });
    ASSERT_EQ(cellular_start(0), 0);
    std::vector<std::thread> others;
    for (int i = 0; i < 4; i++)
        others.emplace_back([&, i] {
            const std::string command = "AT+SENDER=" + std::string(40, static_cast<char>('a' + i));
            while (!stop) {
                libgsm_send_at(command.c_str());
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        });
    int torn = 0;
    others.emplace_back([&] {
        gsm_mobile copy = {};
        while (!stop) {
            kelo_copy_mobile(&copy);
            const std::string oper = copy.oper;
            torn += !(oper.empty() || oper == "Kelo Mobile");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    EXPECT_TRUE(wait_until([&] {
        gsm_mobile copy = {};
        return kelo_copy_mobile(&copy) == 1 && copy.custom_cfg == 1;
    }));
    for (int i = 0; i < 10; i++) {
        EXPECT_EQ(cellular_reload(), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
    }
    EXPECT_EQ(cellular_stop(), 0);
    EXPECT_EQ(libgsm_send_at("AT+TOO_LATE"), 0);
    stop = true;
    for (std::thread& other : others)
        other.join();
    modem.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(kelo::test::count_of(all, "AT+TOO_LATE"), 0);
    int sent = 0;
    std::size_t from = 0;
    for (std::size_t end = 0; (end = all.find("\r\n", from)) != std::string::npos; from = end + 2) {
        const std::string line = all.substr(from, end - from);
        if (line.find("SENDER") == std::string::npos)
            continue;
        ASSERT_EQ(line, "AT+SENDER=" + std::string(40, line.back()));
        sent++;
    }
    EXPECT_GT(sent, 100);
    EXPECT_EQ(kelo::test::count_of(all, "AT+CGMM\r\n"), 1);
}

} // namespace
