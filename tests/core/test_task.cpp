#include "support/sleeps.h"
#include "testing.h"
#include <kelo/sms.h>

namespace
{

using namespace kelo;
using kelo::test::add_node;
using kelo::test::captured;
using kelo::test::modem_port;

// Commands go out at most one per half second; a stepped clock must neither stop nor spin the task.
TEST(Task, Pace)
{
    constexpr std::int64_t second = 1000000;
    struct row {
        std::int64_t now;
        long sleep;
    };
    constexpr row rows[] = {
        {1000 * second, 0},
        {1000 * second, 500000},
        // The time ahead of the sleep counts: after a full sleep the next pass has none.
        {1000 * second + 500000, 0},
        {1000 * second + 600000, 400000},
        {1000 * second + 1100000, 0},
        {1000 * second + 1599999, 1},
        {900 * second, 0}, // back
        {900 * second + 1, 499999},
        {900 * second + 1 + (std::int64_t{1} << 31), 0},
        {900 * second + 1 + (std::int64_t{3} << 31) + 2000, 498000}, // 32 bits, around once
    };
    task_state state;
    for (const row& r : rows)
        EXPECT_EQ(task_pace(state, r.now), r.sleep) << r.now;
}

class TaskPass : public ::testing::Test
{
  protected:
    TaskPass()
    {
        state.last_quiet_ms = state.last_tick_ms = monotonic_ms();
        libgsm_set_init_flag(1);
    }
    // A pass whose pace is over. It waits for nothing when the modem says something.
    void pass(std::string_view modem_says = "\r\n")
    {
        port.say(modem_says);
        state.last_us = 0;
        ASSERT_TRUE(task_pass(&g_mobile, state));
    }
    modem_port port;
    task_state state;
};

TEST_F(TaskPass, EndsOnStopAndWithoutADevice)
{
    add_node(start_sim1_list, 900, 1, "AT+ONE");
    global_quagga_stop = 1;
    EXPECT_FALSE(task_pass(&g_mobile, state));
    global_quagga_stop = 0;
    is_quectel = 7; // this family's port is left alone
    EXPECT_TRUE(task_pass(&g_mobile, state));
    is_quectel = 0;
    unlink("/dev/ttyUSB2");
    captured out;
    EXPECT_FALSE(task_pass(&g_mobile, state));
    EXPECT_TRUE(out.has("/dev/ttyUSB: No such file or directory\n"));
    EXPECT_EQ(port.heard(), "");
}

// In low power mode a modem gets its first command once it has started, or has had its time.
TEST_F(TaskPass, LowPowerWaitsForTheModem)
{
    struct row {
        const char* what;
        int passes;
        std::string_view says;
    };
    for (const row& r : {row{"silent polls", 3, ""}, row{"busy polls", 30, "\r\n"},
                         row{"it is done", 1, "\r\n+QIND: PB DONE\r\n"}}) {
        SCOPED_TRACE(r.what);
        at_info* const at = add_node(start_sim1_list, 900, 1, "AT+ONE");
        libgsm_set_low_power(1);
        libgsm_set_init_flag(0);
        state.low_power_credit = 0;
        state.running = nullptr;
        for (int i = 0; i < r.passes; i++) {
            EXPECT_EQ(gsm_init_flag, 0) << i;
            pass(r.says);
        }
        EXPECT_EQ(gsm_init_flag, 1);
        EXPECT_EQ(port.heard(), "");
        pass();
        EXPECT_EQ(port.heard(), "AT+ONE\r\n");
        EXPECT_EQ(at->countdown, at->timeout);
    }
}

TEST_F(TaskPass, TheNextCommandWaitsForTheEndOfTheRunningOne)
{
    add_node(start_sim1_list, 900, 1, "AT+ONE");
    add_node(start_sim1_list, 901, 2, "AT+TWO");
    g_mobile.reg_seen = 1;
    pass();
    EXPECT_EQ(g_mobile.reg_seen, 0);
    pass();
    EXPECT_EQ(port.heard(), "AT+ONE\r\n");
    pass("\r\nOK\r\n");
    pass();
    EXPECT_EQ(port.heard(), "AT+TWO\r\n");
}

// A message taken while the modem is not registered would fail; one taken while a flow is in its
// middle would break that flow.
TEST_F(TaskPass, MessagesGoOutWhenRegisteredAndTheListHasEnded)
{
    for (int reg_status = 0; reg_status < 6; reg_status++) {
        ASSERT_EQ(sms_outbox_enq(0, "tag", "+49123", 20, "0011"), 0);
        g_mobile.reg_status = reg_status;
        text_clear(g_mobile.sms_dest);
        pass();
        const bool taken = g_mobile.sms_dest[0] != '\0';
        EXPECT_EQ(taken, reg_status == 1 || reg_status == 5) << reg_status;
        if (!taken) {
            sms_outbox_item* const item = sms_outbox_deq();
            EXPECT_NE(item, nullptr);
            sms_outbox_free(item);
        }
    }
    cur_at_list = &start_sim1_list;
    add_node(start_sim1_list, 900, 1, "AT+ONE")->flags = AT_FLAG_IGNORE;
    add_node(start_sim1_list, 901, 2, "AT+TWO")->flags = AT_FLAG_IGNORE;
    at_flow_done = at_seq_cursor = 0;
    text_clear(g_mobile.sms_dest);
    ASSERT_EQ(sms_outbox_enq(0, "tag", "+49123", 20, "0011"), 0);
    for (int i = 0; i < 2; i++) {
        pass();
        EXPECT_STREQ(g_mobile.sms_dest, "") << "taken at a command that was passed over";
    }
    pass();
    EXPECT_STREQ(g_mobile.sms_dest, "+49123");
}

TEST_F(TaskPass, TheModeOfAMessageSelectsItsFlow)
{
    at_list* const lists[] = {&sms_pdu_list, &sms_text_list, &start_sim1_list};
    for (int mode = 0; mode < 3; mode++) {
        cur_at_list = &start_sim1_list;
        g_mobile.reg_status = 1;
        const std::string number(80, '1');
        const std::string body(1500, 'A');
        ASSERT_EQ(sms_outbox_enq(mode, "tag", number.c_str(), 140 + mode, body.c_str()), 0);
        pass();
        EXPECT_EQ(cur_at_list, lists[mode]);
        EXPECT_EQ(g_mobile.sms_len, 140 + mode);
        EXPECT_STREQ(g_mobile.sms_tag, "tag");
        EXPECT_EQ(std::string(g_mobile.sms_dest), number.substr(0, 63));
        EXPECT_EQ(std::string(g_mobile.sms_text), body.substr(0, 1023));
    }
}

// A modem that talks without a pause must not keep a command waiting for ever.
TEST_F(TaskPass, TimeTicksUnderEndlessOutput)
{
    add_node(start_sim1_list, 900, 1, "AT+ONE", 1);
    pass();
    ASSERT_EQ(g_mobile.at_done, 0);
    state.last_quiet_ms -= 10000;
    state.last_tick_ms -= 1000;
    pass();
    EXPECT_EQ(g_mobile.at_done, 1);
}

// A port that has hung up is ready at every poll: the task must keep its pace, and say so once.
TEST_F(TaskPass, AHungUpPortDoesNotSpinTheTask)
{
    const int fd = open("/dev/null", O_RDWR | O_CLOEXEC); // stands in: ready, never anything there
    libgsm_mobile_close_usb(&g_mobile);
    g_mobile.fd = fd;
    task_pass(&g_mobile, state);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 2; i++)
        task_pass(&g_mobile, state);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450));
}

} // namespace
