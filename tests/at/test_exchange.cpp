// SPDX-License-Identifier: MIT
#include "tests/testing.h"

static at_info a_command(int timeout = 3, int retries = 0)
{
    at_info at = {};
    at.timeout = at.countdown = timeout;
    at.retries_left = retries;
    at.handler = note_line;
    return at;
}

// What of the bytes on the wire a handler sees; of the events of a batch the last one wins.
TEST(Receive, CutsLinesAndKeepsTheLastEvent)
{
    const std::tuple<std::string, std::vector<std::string>, int> rows[] = {
        {"\r\n\r\n\n", {}, 0},
        {"AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n", {"AT+CSQ\r", "+CSQ: 20,99", "OK"}, 0},
        {"> ", {"> "}, 0},
        {"a\rb\ntwo", {"a\rb", "two"}, 0},
        {std::string(3000, 'x') + "\r\nOK\r\n", {std::string(3000, 'x'), "OK"}, 0},
        {"event 8\r\nevent 7\r\nOK\r\n", {"event 8", "event 7", "OK"}, 7}};
    modem_port port;
    at_info at = a_command();
    for (const auto& [bytes, expected, code] : rows) {
        lines.clear();
        const read_outcome outcome = hear(port, &at, bytes);
        EXPECT_EQ(lines, expected) << bytes.substr(0, 40);
        EXPECT_EQ(outcome.raised == nullptr ? 0 : outcome.raised->code, code);
        EXPECT_EQ(g_mobile.last_event, code);
    }
    libgsm_check_event(&g_mobile, &at); // ready, and nothing there
    EXPECT_EQ(reads_heard, static_cast<int>(std::size(rows)));
}

// Some reports count whatever command runs. That of a message takes its whole batch, and two
// families want it acknowledged.
TEST(Receive, ReportsThatAreSeenUnderEveryHandler)
{
    constexpr std::tuple<int, const char*, const char*, const char*, std::size_t> rows[] = {
        {0, "+CPIN: READY\r\n", "SIM", "", 1},
        // Whoever may publish or send a notice does not speak for the modem.
        {0, "+QMTRECV: 0,1,\"a\",\"+CPIN: READY +CMT: +QIND: SMS DONE\"\r\n", "MQTT", "", 0},
        {0, "+CUSD: 0,\"+CPIN: READY +CMTI: \"SM\",3\"\r\n", "USSD", "", 0},
        {0, "+QMTRECV: 0,1,\"a\",\"+CMT: \"\r\n+CMTI: \"SM\",3\r\n", "SMS", "", 0},
        {0, "+X: 1\r\n+QMTRECV: 0,1,\"a\",\"+QIND: SMS DONE\"\r\n", "MQTT", "", 1},
        {0, "+COPS: 0,0,\"+CMT: ,1\"\r\n", "", "", 1},
        {0, "OK\r\n\r\n+CM", "", "", 1}, // goes on in the next read
        {0, "TI: \"SM\",3\r\n", "SMS", "", 0},
        {0, "+QIND: SMS DONE\r\n", "init", "", 1},
        {0, "+QIND: PB DONE\r\n", "init", "", 1},
        {0, "+QIND: x\r\n", "", "", 1},
        {0, "+CMT: \"+49\",,\"x\"\r\nhi\r\nOK\r\n", "SMS", "", 0},
        {13, "+CMT: ,24\r\n0791\r\nOK\r\n", "SMS", "AT+CNMA\r\n", 0},
        {15, "OK\r\n+CMTI: \"SM\",3\r\n", "SMS", "AT+CNMA\r\n", 0},
        {14, "+CMTI: \"SM\",3\r\n", "SMS", "", 0}};
    modem_port port;
    at_info at = a_command();
    for (const auto& [family, bytes, change, answer, line_count] : rows) {
        is_quectel = family;
        is_pin_ready = gsm_init_flag = 0;
        cellular_set_mqtt_received(0);
        cellular_set_sms_received(0);
        lines.clear();
        const event* const raised = hear(port, &at, bytes).raised;
        const bool notice = raised != nullptr && raised->code == GSM_EVENT_USSD_RECEIVED;
        const std::string changed =
            std::string(is_pin_ready ? "SIM" : "") + (notice ? "USSD" : "") +
            (cellular_is_mqtt_received() ? "MQTT" : "") + (gsm_init_flag ? "init" : "") +
            (cellular_is_sms_received() ? "SMS" : "");
        EXPECT_EQ(changed, change) << bytes;
        EXPECT_EQ(port.heard(), answer) << bytes;
        EXPECT_EQ(lines.size(), line_count) << bytes;
    }
}

// How often a command goes out, and when the flow goes on without an answer. The one-shot command
// waits for an idle tick, and goes once.
TEST(Timer, TriesAndTheirEnd)
{
    constexpr std::array<int, 4> rows[] = {{2, 0, 0, 2}, {2, 1, 0, 2}, {2, 3, 2, 6}, {0, 3, 0, 0}};
    modem_port port;
    g_mobile.pending_at = strdup("AT+ONCE");
    for (const auto& [timeout, retries, repeats, tick_of_end] : rows) {
        at_info at = a_command(timeout, retries);
        at.custom_cmd = const_cast<char*>("AT+AGAIN");
        g_mobile.at_done = 0;
        g_mobile.reg_seen = 1;
        int done_at = 0;
        for (int tick = 1; tick <= 8; tick++) {
            libgsm_schedule_run(&g_mobile, &at);
            if (g_mobile.at_done == 1 && done_at == 0)
                done_at = tick;
        }
        EXPECT_EQ(done_at, tick_of_end) << timeout << " s, " << retries << " retries";
        EXPECT_EQ(count_of(port.heard(), "AT+AGAIN\r\n"), repeats);
        EXPECT_EQ(g_mobile.reg_seen, 1); // a repeat starts nothing anew
    }
    for (int i = 0; i < 2; i++)
        libgsm_schedule_run(&g_mobile, nullptr);
    EXPECT_EQ(port.heard(), "AT+ONCE\r\n");
}

// Catches: what is done at idle ticks alone, done while a command runs.
TEST(Timer, ATickSaysWhetherACommandRuns)
{
    static std::string ticks;
    exchange_hooks own = task_hooks;
    own.tick = [](bool idle) { ticks += idle ? "idle " : "busy "; };
    exchange_use(own);
    at_info at = a_command();
    libgsm_schedule_run(&g_mobile, &at);
    libgsm_schedule_run(&g_mobile, nullptr);
    EXPECT_EQ(ticks, "busy idle ");
    exchange_use(task_hooks);
}

TEST(Send, WithoutAPortNothingIsSent)
{
    EXPECT_EQ(exec_at_command(&g_mobile, "AT"), -1);
    const modem_port port;
    EXPECT_EQ(exec_at_command(nullptr, "AT"), -1);
    EXPECT_EQ(exec_at_command(&g_mobile, nullptr), -1);
    EXPECT_EQ(libgsm_send_at("AT"), 0);
    mobile = nullptr;
    EXPECT_EQ(libgsm_send_at("AT"), -1);
}

// Catches: a command in the middle of a message. A thread waits for the message's end; what the
// mobile task writes, which has to read the prompt, is put off, in order, as far as there is room.
TEST(Send, BehindABodyThatIsDue)
{
    modem_port port;
    word_set(body_due, 1);
    std::thread host([] { EXPECT_EQ(exec_at_command(&g_mobile, "AT+HOST"), 0); });
    EXPECT_EQ(port.heard(200), "");
    mobile_task_begins();
    for (int i = 1; i <= 9; i++)
        EXPECT_EQ(exec_at_command(&g_mobile, ("AT+" + std::to_string(i)).c_str()), i < 9 ? 0 : -1);
    EXPECT_EQ(port.heard(), "");
    word_set(body_due, 0);
    host.join();
    EXPECT_EQ(port.heard(), "AT+HOST\r\n");
    for (const char* const wire :
         {"AT+1\r\nAT+2\r\nAT+3\r\nAT+4\r\nAT+5\r\nAT+6\r\nAT+7\r\nAT+8\r\n", ""}) {
        exchange_write_deferred(&g_mobile);
        EXPECT_EQ(port.heard(), wire);
    }
    mobile_task_ends();
}

TEST(Send, ThreeAttempts)
{
    g_mobile.fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    captured out;
    EXPECT_EQ(exec_at_command(&g_mobile, "AT+X"), 0);
    EXPECT_EQ(count_of(out.text(), "failed to write command('AT+X'), ret=-1!\n"), 2);
}

// A row that is passed over is not the end of the list: what comes of taking the one for the other
// is a message in the middle of a flow. One that its pre-treatment does not want stays unsent with
// no mark, too, which a reload may have taken off.
TEST(Send, WhatGoesOutAndWhatIsPassedOver)
{
    // Id, 50 sets the APN; flags and what the pre-treatment says, which sets AT_FLAG_SKIP; custom
    // command, need of an APN; what is sent and logged.
    using text = const char*;
    constexpr std::tuple<int, unsigned, int, text, int, text, text> rows[] = {
        {900, 0, 0, nullptr, 0, "AT+ONE\r\n", "treated\n"},
        {900, AT_FLAG_IGNORE, 0, nullptr, 0, "", "ignore command 'AT+ONE'!\n"},
        {900, AT_FLAG_SKIP, 0, nullptr, 0, "", "treated\n"},
        {900, 0, at_not_wanted, nullptr, 0, "", "treated\n"},
        {900, AT_FLAG_IGNORE | AT_FLAG_SKIP, 0, "AT+MINE", 0, "AT+MINE\r\n", ""},
        {50, 0, 0, nullptr, 0, "", "[4G] skip set apn command\n"},
        {50, 0, 0, nullptr, 1, "AT+ONE\r\n", "[4G] set apn, needSetApn=1, isLowPower=0\n"},
        {50, 0, 0, "AT+MINE", 0, "AT+MINE\r\n", ""}};
    static unsigned marks;
    static int verdict;
    const at_pre_treat treat = [](gsm_mobile*, at_info* at) {
        diag_plain("treated");
        at_set_flags(at, marks);
        return verdict;
    };
    modem_port port;
    for (const auto& [id, flags, says, custom_cmd, need_apn, wire, log] : rows) {
        SCOPED_TRACE(in_words(id, " ", flags, " ", says, " ", log));
        at_list list = LIST_HEAD_INIT(list);
        cur_at_list = &list;
        flow_walked = at_seq_cursor = 0;
        needSetApn = need_apn;
        marks = flags;
        verdict = says;
        at_info* const at = add_node(list, id, 5, "AT+ONE", 3, 0, treat);
        at->flags = flags & AT_FLAG_IGNORE;
        at->custom_cmd = text_duplicate(custom_cmd).release();
        g_mobile.at_done = 0;
        bool ended = true;
        captured out;
        const bool goes_out = wire[0] != '\0';
        EXPECT_EQ(libgsm_send_atcommand(&g_mobile, ended), goes_out ? at : nullptr);
        EXPECT_EQ(g_mobile.cur_at, at);
        EXPECT_EQ(in_words(ended, word_get(flow_walked), g_mobile.at_done),
                  goes_out ? "000" : "001");
        EXPECT_EQ(port.heard(), wire);
        EXPECT_EQ(out.has("treated\n"), custom_cmd == nullptr);
        EXPECT_TRUE(out.text().ends_with(log)) << out.text();
        EXPECT_EQ(libgsm_send_atcommand(&g_mobile, ended), nullptr);
        EXPECT_EQ(in_words(ended, word_get(flow_walked)), "11");
        g_mobile.cur_at = nullptr;
        at_list_free(&list);
    }
    cur_at_list = nullptr;
}
