#include "tests/testing.h"

#include <sys/ioctl.h>

namespace
{

using namespace kelo;
using kelo::test::add_node;
using kelo::test::captured;
using kelo::test::lines;
using kelo::test::modem_port;
using kelo::test::note_line;
using std::string_literals::operator""s;

at_info a_command(const char* cmd = nullptr, int timeout = 3, int retries = 0)
{
    at_info at = {};
    at.id = 900;
    at.seq = 5;
    at.cmd = const_cast<char*>(cmd);
    at.timeout = at.countdown = timeout;
    at.retries = at.retries_left = retries;
    at.handler = note_line;
    return at;
}

read_outcome hear(modem_port& port, at_info* at, const std::string& bytes)
{
    port.say(bytes);
    const auto all_there = [&] {
        int count = 0;
        ioctl(g_mobile.fd, FIONREAD, &count);
        return count >= static_cast<int>(bytes.size());
    };
    EXPECT_TRUE(kelo::test::wait_until(all_there)) << "the pseudo-terminal keeps bytes back";
    return libgsm_check_event(&g_mobile, at);
}

// What of the bytes on the wire a handler sees.
TEST(Receive, CutsLines)
{
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {"\r\n\r\n\n", {}},
        {"AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n", {"AT+CSQ\r", "+CSQ: 20,99", "OK"}},
        {"> ", {"> "}},
        {"a\rb\ntwo", {"a\rb", "two"}},
        {"\0O\0\0K\0\r\n\0"s, {"OK"}},
        {"\xff\x80\x01 noise\r\nOK\r\n", {"\xff\x80\x01 noise", "OK"}},
        {std::string(3000, 'x') + "\r\nOK\r\n", {std::string(3000, 'x'), "OK"}}};
    modem_port port;
    at_info at = a_command();
    for (const auto& [bytes, want] : rows) {
        lines.clear();
        EXPECT_TRUE(hear(port, &at, bytes).heard);
        EXPECT_EQ(lines, want) << bytes.substr(0, 40);
    }
    EXPECT_FALSE(libgsm_check_event(&g_mobile, &at).heard); // ready, and nothing there
}

TEST(Receive, TheLastEventOfABatchWins)
{
    struct row {
        const char* bytes;
        int code, last_event; // 0: none
    };
    modem_port port;
    at_info at = a_command();
    for (const row& r : {row{"event 8\r\nevent 33\r\n", 33, 33}, row{"event 7\r\nOK\r\n", 7, 7},
                         row{"OK\r\n", 0, 7}}) {
        const event* const raised = hear(port, &at, r.bytes).raised;
        EXPECT_EQ(raised == nullptr ? 0 : raised->code, r.code) << r.bytes;
        EXPECT_EQ(g_mobile.last_event, r.last_event) << r.bytes;
    }
}

// Some reports count whatever command runs.
TEST(Receive, ReportsThatAreSeenUnderEveryHandler)
{
    modem_port port;
    at_info at = a_command();
    hear(port, &at, "+CPIN: READY\r\n");
    EXPECT_EQ(is_pin_ready, 1);
    hear(port, &at, "+QMTRECV: 0,1,\"a\",\"+CPIN: READ\"\r\n");
    EXPECT_EQ(cellular_is_mqtt_received(), 1);
    for (const char* text : {"+QIND: SMS DONE\r\n", "+QIND: PB DONE\r\n", "+QIND: x\r\n"}) {
        libgsm_set_init_flag(0);
        hear(port, &at, text);
        EXPECT_EQ(gsm_init_flag, text_has(text, "DONE")) << text;
    }
}

// A report of a message takes its whole batch, and two families want it acknowledged.
TEST(Receive, AMessageReportTakesItsWholeBatch)
{
    struct row {
        int family;
        const char *bytes, *answer;
    };
    constexpr row rows[] = {{0, "+CMT: \"+49\",,\"x\"\r\nhi\r\nOK\r\n", ""},
                            {13, "+CMT: ,24\r\n0791\r\nOK\r\n", "AT+CNMA\r\n"},
                            {15, "OK\r\n+CMTI: \"SM\",3\r\n", "AT+CNMA\r\n"},
                            {14, "+CMTI: \"SM\",3\r\n", ""}};
    modem_port port;
    at_info at = a_command();
    lines.clear();
    for (const row& r : rows) {
        is_quectel = r.family;
        g_mobile.at_done = 0;
        cellular_set_sms_received(0);
        hear(port, &at, r.bytes);
        EXPECT_EQ(cellular_is_sms_received(), 1) << r.bytes;
        EXPECT_EQ(g_mobile.at_done, 0) << r.bytes;
        EXPECT_EQ(port.heard(), r.answer) << r.bytes;
    }
    EXPECT_TRUE(lines.empty());
}

// How often a command goes out, and when the flow goes on without an answer.
TEST(Timer, TriesAndTheirEnd)
{
    struct row {
        int timeout, retries, repeats, done_at; // in ticks
    };
    constexpr row rows[] = {{2, 0, 0, 2}, {2, 1, 0, 2}, {2, 3, 2, 6}, {1, 2, 1, 2}, {0, 3, 0, 0}};
    modem_port port;
    for (const row& r : rows) {
        SCOPED_TRACE(::testing::Message() << r.timeout << " s, " << r.retries << " retries");
        at_info at = a_command("AT+ONCE", r.timeout, r.retries);
        at.custom_cmd = const_cast<char*>("AT+AGAIN");
        g_mobile.at_done = 0;
        g_mobile.reg_seen = 1;
        int done_at = 0;
        for (int tick = 1; tick <= 8; tick++) {
            libgsm_schedule_run(&g_mobile, &at);
            if (g_mobile.at_done == 1 && done_at == 0)
                done_at = tick;
        }
        EXPECT_EQ(done_at, r.done_at);
        EXPECT_EQ(kelo::test::count_of(port.heard(), "AT+AGAIN\r\n"), r.repeats);
        EXPECT_EQ(g_mobile.reg_seen, 1); // a repeat starts nothing anew
    }
}

TEST(Timer, TheOneShotCommandWaitsForAnIdleTickAndGoesOnce)
{
    modem_port port;
    at_info at = a_command("AT", 30);
    g_mobile.pending_at = strdup("AT+ONCE");
    libgsm_schedule_run(&g_mobile, &at);
    EXPECT_EQ(port.heard(), "");
    libgsm_schedule_run(&g_mobile, nullptr);
    libgsm_schedule_run(&g_mobile, nullptr);
    EXPECT_EQ(port.heard(), "AT+ONCE\r\n");
}

TEST(Send, RefusalsAndThreeAttempts)
{
    g_mobile.fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    captured out;
    EXPECT_EQ(exec_at_command(&g_mobile, "AT+X"), 0);
    EXPECT_EQ(kelo::test::count_of(out.text(), "failed to write command('AT+X'), ret=-1!\n"), 2);
}

int pre_treated = 0;

// A row that is passed over is not the end of the list: what comes of taking the one for the other
// is a message in the middle of a flow.
TEST(Send, WhatGoesOutAndWhatIsPassedOver)
{
    struct row {
        const char* what;
        int id;
        unsigned flags;
        at_pre_treat pre_treat;
        const char* custom_cmd;
        int need_apn;
        const char *wire, *log;
        int pre_treated;
    };
    const at_pre_treat count = [](gsm_mobile*, at_info*) { return ++pre_treated; };
    const at_pre_treat skip = [](gsm_mobile*, at_info* at) {
        at_set_flags(at, AT_FLAG_SKIP);
        return 0;
    };
    const row rows[] = {
        {"plain", 900, 0, count, nullptr, 0, "AT+ONE\r\n", "", 1},
        {"ignored", 900, AT_FLAG_IGNORE, count, nullptr, 0, "", "ignore command 'AT+ONE'!\n", 1},
        {"skipped", 900, 0, skip, nullptr, 0, "", "", 0},
        {"custom", 900, AT_FLAG_IGNORE | AT_FLAG_SKIP, count, "AT+MINE", 0, "AT+MINE\r\n", "", 0},
        {"apn", 50, 0, count, nullptr, 0, "", "[4G] skip set apn command\n", 1},
        {"apn needed", 50, 0, nullptr, nullptr, 1, "AT+ONE\r\n",
         "[4G] set apn, needSetApn=1, isLowPower=0\n", 0},
        {"apn, custom", 50, 0, nullptr, "AT+MINE", 0, "AT+MINE\r\n", "", 0}};
    modem_port port;
    for (const row& r : rows) {
        SCOPED_TRACE(r.what);
        at_list list = LIST_HEAD_INIT(list);
        cur_at_list = &list;
        flow_walked = at_seq_cursor = pre_treated = 0;
        needSetApn = r.need_apn;
        at_info* const at = add_node(list, r.id, 5, "AT+ONE", 3, 0, r.pre_treat);
        at->flags = r.flags;
        at->custom_cmd = text_duplicate(r.custom_cmd).release();
        g_mobile.at_done = 0;
        bool ended = true;
        captured out;
        const at_info* const sent = libgsm_send_atcommand(&g_mobile, ended);
        const bool goes_out = r.wire[0] != '\0';
        EXPECT_EQ(sent, goes_out ? at : nullptr);
        EXPECT_FALSE(ended);
        EXPECT_EQ(g_mobile.cur_at, at);
        EXPECT_EQ(g_mobile.at_done, goes_out ? 0 : 1);
        EXPECT_EQ(port.heard(), r.wire);
        EXPECT_TRUE(out.text().ends_with(r.log)) << out.text();
        EXPECT_EQ(out.text().empty(), r.log[0] == '\0');
        EXPECT_EQ(pre_treated, r.pre_treated);
        EXPECT_EQ(word_get(flow_walked), 0);
        EXPECT_EQ(libgsm_send_atcommand(&g_mobile, ended), nullptr);
        EXPECT_TRUE(ended);
        EXPECT_EQ(word_get(flow_walked), 1);
        g_mobile.cur_at = nullptr;
        at_list_free(&list);
    }
    cur_at_list = nullptr;
}

} // namespace
