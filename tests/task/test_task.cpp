// SPDX-License-Identifier: MIT
#include "tests/testing.h"

#include <kelo/event.h>
#include <sys/eventfd.h>

// Commands go out at most one per half second; a stepped clock must neither stop nor spin the task.
TEST(Task, Pace)
{
    constexpr std::int64_t second = 1000000, back = 900 * second;
    constexpr std::pair<std::int64_t, long> rows[] = {
        {1000 * second, 0},
        {1000 * second, 500000},
        // The time ahead of the sleep counts: after a full sleep the next pass has none.
        {1000 * second + 500000, 0},
        {1000 * second + 600000, 400000},
        {1000 * second + 1599999, 0},
        {back, 0},
        {back + 1, 499999},
        {back + 1 + (std::int64_t{1} << 32) + 2000, 498000}}; // 32 bits, around once
    task_state state;
    for (const auto& [now, sleep] : rows)
        EXPECT_EQ(task_pace(state, now), sleep) << now;
}

struct TaskPass : testing::Test {
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

TEST_F(TaskPass, LeavesThePortOfOneFamilyAlone)
{
    add_node(start_sim1_list, 900, 1, "AT+ONE");
    is_quectel = 7;
    EXPECT_TRUE(task_pass(&g_mobile, state));
    EXPECT_EQ(port.heard(), "");
}

// Catches: a host that sleeps while the record has changed, or that a silent modem wakes.
TEST_F(TaskPass, WakesTheHostBehindWhatTheModemSays)
{
    const auto woken = [fd = kelo_event_fd()] {
        eventfd_t times = 0;
        return eventfd_read(fd, &times) == 0;
    };
    EXPECT_TRUE(woken());
    pass("\r\n+CSQ: 17,99\r\n");
    EXPECT_TRUE(woken());
    EXPECT_EQ(g_mobile.rssi, 17);
    pass("");
    EXPECT_FALSE(woken());
}

// In low power mode a modem gets its first command once it has started, or has had its time.
TEST_F(TaskPass, LowPowerWaitsForTheModem)
{
    constexpr std::pair<int, std::string_view> rows[] = {
        {3, ""}, {30, "\r\n"}, {1, "\r\n+QIND: PB DONE\r\n"}};
    for (const auto& [passes, says] : rows) {
        add_node(start_sim1_list, 900, 1, "AT+ONE");
        libgsm_set_low_power(1);
        libgsm_set_init_flag(0);
        state.low_power_credit = 0;
        state.running = nullptr;
        for (int i = 0; i < passes; i++) {
            EXPECT_EQ(gsm_init_flag, 0) << says << i;
            pass(says);
        }
        EXPECT_EQ(gsm_init_flag, 1);
        EXPECT_EQ(port.heard(), "");
        pass();
        EXPECT_EQ(port.heard(), "AT+ONE\r\n");
    }
}

// A message taken while the modem is not registered would fail; one taken while a flow is in its
// middle would break that flow.
TEST_F(TaskPass, MessagesGoOutWhenRegisteredAndTheListHasEnded)
{
    std::string taken;
    for (g_mobile.reg_status = 0; g_mobile.reg_status < 6; g_mobile.reg_status++) {
        sms_outbox_free(sms_outbox_deq());
        ASSERT_EQ(sms_outbox_enq(0, "tag", "+49123", 20, "0011"), 0);
        text_clear(g_mobile.sms_dest);
        pass();
        taken += g_mobile.sms_dest[0] != '\0' ? "1" : "0";
    }
    EXPECT_EQ(taken, "010001");
    g_mobile.reg_status = 5;
    cur_at_list = &start_sim1_list;
    add_node(start_sim1_list, 900, 1, "AT+ONE")->flags = AT_FLAG_IGNORE;
    flow_walked = at_seq_cursor = 0;
    text_clear(g_mobile.sms_dest);
    ASSERT_EQ(sms_outbox_enq(0, "tag", "+49123", 20, "0011"), 0);
    pass();
    EXPECT_STREQ(g_mobile.sms_dest, "") << "taken at a command that was passed over";
    pass();
    EXPECT_STREQ(g_mobile.sms_dest, "+49123");
}

// A modem that talks without a pause must not keep a command waiting for ever. Catches: a command
// that ends on its own echo, so that from then on each answer is taken for the next one's.
TEST_F(TaskPass, ACommandHasItsTimeUnderEndlessOutput)
{
    struct moment {
        const char* says;
        std::int64_t passed_ms;
        int done;
    };
    constexpr moment moments[] = {
        {"AT+ONE=1\r\n", 1000, 0},           // its echo
        {"+ONE: 1\r\n+TWO: 2\r\n", 1000, 0}, // its answer comes, and is not through yet
        {"+ONE: 2", 1000, 0},
        {"+TWO: 3\r\n", 500, 0}, // far enough from its end for a busy machine
        {"+TWO: 4\r\n", 500, 1},
        {"", 0, 0}, // once more
        {"+ONE: 1\r\n", 1000, 0},
        {"+ONE: 1\r\n", 30000, 1}, // an answer that never ends
    };
    at_info* const at = add_node(start_sim1_list, 900, 1, "AT+ONE=1", 1);
    for (const auto& [says, passed_ms, done] : moments) {
        if (state.running == nullptr || g_mobile.at_done != 0) {
            at->flags = 0;
            at_seq_cursor = 0;
        }
        state.last_quiet_ms -= 10000;
        state.last_tick_ms -= passed_ms;
        state.armed_ms -= passed_ms;
        pass(std::string(says) + "\r\n");
        EXPECT_EQ(g_mobile.at_done, done) << says << passed_ms;
    }
}

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

// A port that has hung up is ready at every poll: the task must keep its pace, and say so once. A
// pipe whose writer is gone hangs up as a port does, behind what it holds.
TEST_F(TaskPass, AHungUpPortDoesNotSpinTheTask)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], "x\nx\n", 4), 4);
    close(ends[1]);
    libgsm_mobile_close_usb(&g_mobile);
    g_mobile.fd = ends[0];
    const captured out;
    task_pass(&g_mobile, state);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 2; i++)
        task_pass(&g_mobile, state);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450));
    EXPECT_EQ(count_of(out.text(), "the AT port has hung up\n"), 1);
}

// Catches: the late end of a command of before taken for that of the host's, another's text taken
// for an end, a message's body or a flow that the command falls into, an error that raises a
// message's event, a modem that is left in its prompt.
TEST_F(TaskPass, ACommandOfTheHostHasItsOwnAnswer)
{
    // clang-format off
    constexpr struct {
        const char* says[3];
        const char* last;
        int end, number;
        const char* lines;
        const char* written; // besides
    } rows[] = {
        {{"AT+A\r\r\n+A: 1\r\n\r\nOK\r\n"}, "OK", KELO_ASK_OK, -1, "+A: 1", ""},
        {{"\r\nOK\r\n", "AT+A\r\r\n+A", ": OK\r\n+CSQ: 7,99\r\n\r\nERROR\r\n"}, "ERROR", KELO_ASK_ERROR, -1, "+A: OK\n+CSQ: 7,99", ""},
        {{"AT+A\r\r\n", "+CMS ER", "ROR: 321\r\n"}, "+CMS ERROR: 321", KELO_ASK_CMS_ERROR, 321, "", ""},
        {{"+CREG: 1\r\nAT+A\r\r\n", "+CUSD: 0,\"OK\r\n+QMTRECV: 0,0,\"t\",\"\r\n", "+CME ERROR: SIM busy\r\n"}, "+CME ERROR: SIM busy", KELO_ASK_CME_ERROR, -1, "", ""},
        {{"AT+A\r\r\n> ", "\r\nOK\r\n"}, "OK", KELO_ASK_DATA, -1, ">", "\x1b"},
        {{"AT+A\r\r\nCONNECT\r\n", nullptr, "\r\nOK\r\n"}, "OK", KELO_ASK_DATA, -1, "CONNECT", "+++"},
        {{"AT+A\r\r\n+A: 1\r\n", nullptr, nullptr}, "", KELO_ASK_TIMED_OUT, -1, "+A: 1", ""},
    };
    // clang-format on
    ask_task_begins();
    pass("AT+OTHER\r\r\n");
    for (const auto& row : rows) {
        const int number = kelo_ask("AT+A", row.end == KELO_ASK_TIMED_OUT ? 2 : 9);
        ASSERT_GT(number, 0) << row.last;
        sms_send_begins(&g_mobile);
        pass();
        body_due = 0;
        gsm_event.code = 0;
        EXPECT_EQ(port.heard(), "") << "into a message's body";
        std::string written;
        for (const char* const says : row.says) {
            pass(says == nullptr ? "" : says);
            written += port.heard();
        }
        pass();
        EXPECT_EQ(written, std::string("AT+A\r\n") + row.written) << row.last;
        kelo_answer answer{};
        char lines[64] = "";
        EXPECT_EQ(kelo_take_answer(&answer, sizeof answer, lines, 0), -1);
        EXPECT_EQ(kelo_take_answer(&answer, sizeof answer, lines, sizeof lines), 1);
        EXPECT_EQ(answer.number, number);
        EXPECT_EQ(answer.end, row.end) << kelo_ask_end_name(answer.end) << " " << row.last;
        EXPECT_EQ(answer.error_number, row.number);
        EXPECT_STREQ(answer.last, row.last);
        EXPECT_STREQ(lines, row.lines);
        EXPECT_NE(gsm_event.code, GSM_EVENT_SMS_SEND_FAILED) << row.last;
        EXPECT_EQ(modem_at_work, 0);
    }
    EXPECT_EQ(g_mobile.rssi, 7) << "what it tells of the modem is heard";
}

TEST_F(TaskPass, CommandsOfTheHostAreCheckedAndNeverMoreThanTheirPlaces)
{
    EXPECT_EQ(kelo_ask("AT", 1), KELO_ASK_STOPPED);
    ask_task_begins();
    const std::string longest = "AT+A=\"" + std::string(KELO_COMMAND_LONGEST - 7, 'x') + "\"";
    const std::pair<std::string, int> rows[] = {{"", KELO_ASK_NO_COMMAND},
                                                {"CSQ", KELO_ASK_NO_COMMAND},
                                                {"AT+A\rAT", KELO_ASK_NO_COMMAND},
                                                {"AT+A\x1a", KELO_ASK_NO_COMMAND},
                                                {"AT+A\x1b", KELO_ASK_NO_COMMAND},
                                                {"AT+A=\"\xc3\xa4\"", KELO_ASK_NO_COMMAND},
                                                {"AT+A=\"", KELO_ASK_NO_COMMAND},
                                                {longest + "x", KELO_ASK_NO_COMMAND},
                                                {"at + cmgs =1", KELO_ASK_UNFIT},
                                                {"AT+CSQ;+QISEND=0", KELO_ASK_UNFIT},
                                                {"AT+CMGL", KELO_ASK_UNFIT},
                                                {"ATD123", KELO_ASK_UNFIT},
                                                {"ATE0", KELO_ASK_UNFIT},
                                                {"ATI;V0", KELO_ASK_UNFIT},
                                                {"AT", 1},
                                                {"ATI9", 2},
                                                {"AT+CMGS=?;+CSQ", 3},
                                                {"at+a=\";+CMGS=1\"", 4},
                                                {longest, 5},
                                                {"AT", 6},
                                                {"AT", 7},
                                                {"AT", 8},
                                                {"AT", KELO_ASK_FULL}};
    for (const auto& [command, result] : rows)
        EXPECT_EQ(kelo_ask(command.c_str(), 1), result) << command;
    ask_look_at_clock(monotonic_ms() + 121000);
    ask_task_ends();
    kelo_answer answer{};
    char lines[8];
    for (int i = 1; i <= KELO_ASKS; i++)
        EXPECT_EQ(kelo_take_answer(&answer, sizeof answer, lines, sizeof lines), 1);
    EXPECT_STREQ(kelo_ask_end_name(answer.end), "not sent");
    EXPECT_EQ(kelo_take_answer(&answer, sizeof answer, lines, sizeof lines), 0);
}
