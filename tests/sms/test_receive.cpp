// Reports of received messages: gsm_event and its block, the queue, and reports in pieces.
#include "messages.h"

using namespace kelo;
using namespace kelo::test;

namespace
{

const std::string door = std::string("+CMT: ,30\r\n") + pdu_door + "\r\n";
const std::string part = std::string("\r\n+CMT: ,40\r\n") + pdu_part + "\r\n";

event* check(const std::string& report)
{
    const captured quiet;
    return libgsm_check_sms(&g_mobile, report.c_str());
}

} // namespace

TEST(Receive, TextReports)
{
    struct {
        const char *report, *sender, *time, *zone, *smsc, *text,
            *queued_time; // and what the queue says otherwise
        const char* queued_zone;
    } const cases[] = {
        {"+CMT: \"+4915112345678\",,\"24/05/17,09:30:12+08\"\r\nDoor 3 open\r\n", "+4915112345678",
         "24/05/17,09:30:12", "GMT+2", "old", "Door 3 open", "2024-05-17 09:30:12", "GMT+2"},
        {"+CMT: \"+49\",,\"24/05/17,09:30:12-32\",145,4,0,0,\"+491710760000\",145,11\r\nDoor 3 "
         "open\r\n",
         "+49", "24/05/17,09:30:12-32", "unknow", "+491710760000", "Door 3 open",
         "2024-05-17 09:30:12", "GMT-8"},
        {"+CMT: \"+49\",\"\",\"24/05/17,09:30:12+22\"\r\n\"q\" +1\r\n", "+49", "", "unknow",
         "24/05/17,09:30:12+22", "\"q\" +1", "2024-05-17 09:30:12", "GMT+5"},
        {"+CMT: \"+49\",,\"now\"\r\n\"last\"\r\n\r\n", "+49", "now", "unknow", "", "\"last\"\r\n",
         "now", "unknow"}};
    for (const auto& c : cases) {
        text_set(gsm_event.smsc, "old");
        ASSERT_EQ(check(c.report), &gsm_event);
        EXPECT_EQ(gsm_event.code, GSM_EVENT_SMS_RECEIVED);
        EXPECT_EQ(gsm_event.mode, 1);
        EXPECT_STREQ(gsm_event.sender, c.sender);
        EXPECT_STREQ(gsm_event.sms_time, c.time);
        EXPECT_STREQ(gsm_event.time_zone, c.zone);
        EXPECT_STREQ(gsm_event.text, c.text);
        EXPECT_EQ(gsm_event.length, static_cast<int>(std::strlen(c.text)));
        const std::vector<kelo_sms> messages = taken();
        ASSERT_EQ(messages.size(), 1u) << c.report;
        EXPECT_STREQ(messages[0].sender, c.sender);
        EXPECT_STREQ(messages[0].text, c.text);
        EXPECT_STREQ(messages[0].time, c.queued_time);
        EXPECT_STREQ(messages[0].zone, c.queued_zone);
        EXPECT_EQ(messages[0].coding, -1);
        EXPECT_STREQ(gsm_event.smsc, c.smsc);
    }
}

TEST(Receive, Limits)
{
    check("+CMT: \"" + std::string(100, '1') + "\",,\"" + std::string(50, '2') + "\"\r\n" +
          std::string(1100, 'x') + "\r\n");
    EXPECT_EQ(std::string(gsm_event.sender), std::string(63, '1'));
    EXPECT_EQ(std::string(gsm_event.sms_time), std::string(31, '2'));
    EXPECT_EQ(std::string(gsm_event.text), std::string(1023, 'x'));
    check("+CMT: ,30\r\n" + std::string(600, '0'));
    EXPECT_EQ(std::string(gsm_event.pdu), std::string(511, '0'));
    check("+CMT:");
    EXPECT_EQ(gsm_event.mode, 2);
    for (const char* report :
         {"+CMT: ,", "+CMT: ,,\"", "+CMT: \",\"\"", "+CMT: ,30\r\n\n", "+CMT: \"\n"})
        EXPECT_EQ(check(report), &gsm_event);
    taken();
}

TEST(Receive, BlockOfANoticeShowsTheMessageBefore)
{
    check(door);
    check("+CMTI: \"ME\",23\r\n");
    EXPECT_EQ(gsm_event.code, GSM_EVENT_SMS_RECEIVED);
    EXPECT_EQ(taken().size(), 1u); // a notice brings no message
    const captured output;
    EXPECT_EQ(mobile_handle_event(&g_mobile, &gsm_event), 0);
    const std::string said = output.text();
    EXPECT_NE(said.find("sms received!\n-START-\nTime    : 20"), std::string::npos) << said;
    EXPECT_NE(
        said.find("\nMode    : PDU\nSender  : +4915112345678\nSMSC    : +491710760000\nLength "
                  " : 11\nSMS Time: 2024-05-17 09:30:12\nText    : Door 3 open\nPDU     : "
                  "\n-END-\n\n"),
        std::string::npos)
        << said;
}

// Every report of a read is queued with nothing of the next one, and its text ends where the PDU
// says: eight septets in seven octets make no "@".
TEST(Queue, SeveralReportsInOneRead)
{
    const std::string seven = "+CMT: ,26\r\n0004039121F300004250719003218007"
                              "31D98C56B3DD00\r\n";
    const std::string text = "\r\n+CMT: \"+1\",,\"24/05/17,09:30:12+08\"\r\ntwo\r\nlines\r\n";
    check(seven + part + text + "\r\n+CMTI: \"SM\",1\r\n" + part + "\r\n> ");
    EXPECT_NE(std::string(gsm_event.pdu).find("+CMT: ,40"), std::string::npos);
    const std::vector<kelo_sms> messages = taken();
    ASSERT_EQ(messages.size(), 4u);
    EXPECT_STREQ(messages[0].text, "1234567");
    EXPECT_EQ(messages[0].total, 0);
    EXPECT_EQ(messages[1].reference, 0x5A);
    EXPECT_EQ(messages[1].total, 2);
    EXPECT_EQ(messages[1].number, 2);
    EXPECT_EQ(messages[1].length, 15);
    EXPECT_EQ(messages[1].text, std::string("part two of two").substr(0, 15)) << messages[1].text;
    EXPECT_STREQ(messages[1].pdu, pdu_part);
    EXPECT_STREQ(messages[2].text, "two\r\nlines");
    EXPECT_EQ(messages[2].mode, 1);
    EXPECT_STREQ(messages[3].text, messages[1].text);
}

TEST(Queue, LengthInTheHeaderKeepsATextFromPassingForAReport)
{
    const std::string body = "x\r\n+CMT: ,30\r\n00";
    check("+CMT: \"+1\",,\"24/05/17,09:30:12+08\",145,4,0,0,\"+2\",145," +
          std::to_string(body.size()) + "\r\n" + body + "\r\n" + part);
    const std::vector<kelo_sms> messages = taken();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].text, body);
}

TEST(Queue, WhatCanNotBeReadComesWithItsPdu)
{
    check("+CMT: ,30\r\n0791zz\r\n");
    check(std::string("+CMT: ,30\r\n") + "0044039121F300084250719003218008FF0003"
                                         "\r\n");
    const std::vector<kelo_sms> messages = taken();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_STREQ(messages[0].pdu, "0791zz");
    EXPECT_STREQ(messages[0].text, "");
    EXPECT_STREQ(messages[1].sender, "+123"); // a header longer than its message
    EXPECT_STREQ(messages[1].time, "2024-05-17 09:30:12");
    EXPECT_STREQ(messages[1].text, "");
}

TEST(Queue, OldestGoesWhenItIsFull)
{
    EXPECT_EQ(kelo_sms_lost(), 0);
    for (int i = 0; i < KELO_SMS_QUEUE + 3; i++)
        check("+CMT: \"" + std::to_string(i) + "\",,\"\"\r\nx\r\n");
    EXPECT_EQ(kelo_sms_lost(), 3);
    const std::vector<kelo_sms> messages = taken();
    ASSERT_EQ(messages.size(), 64u);
    EXPECT_STREQ(messages.front().sender, "3");
    EXPECT_STREQ(messages.back().sender, "66");
    EXPECT_EQ(kelo_take_sms(nullptr), 0);
}

// A reader on another thread takes every message whole and in order.
TEST(Queue, TakenWhileItFills)
{
    constexpr int count = 2000;
    std::thread writer([] {
        for (int i = 0; i < count; i++) {
            kelo_sms message = {};
            message.reference = message.number = i;
            sms_queue_add(message);
        }
    });
    int last = -1;
    int seen = 0;
    while (last < count - 1) {
        kelo_sms message;
        if (kelo_take_sms(&message) == 0)
            continue;
        EXPECT_EQ(message.reference, message.number);
        EXPECT_GT(message.number, last);
        last = message.number;
        seen++;
    }
    writer.join();
    EXPECT_EQ(seen + kelo_sms_lost(), count);
}

// A modem writes a report in pieces, and a read can end between any two bytes of it.
TEST(Queue, ReportInTwoReads)
{
    modem_port port;
    const std::string text =
        "+CMT: \"+1\",,\"24/05/17,09:30:12+08\"\r\na" + std::string(1, '\0') + "b\r\n";
    for (const std::string& report : {door, text})
        for (std::size_t cut = 5; cut <= report.size(); cut++) {
            hear(port, std::string_view(report).substr(0, cut), nullptr);
            if (cut < report.size())
                hear(port, std::string_view(report).substr(cut), nullptr);
            const std::vector<kelo_sms> messages = taken();
            ASSERT_EQ(messages.size(), 1u) << cut;
            EXPECT_STREQ(messages[0].text, report == door ? "Door 3 open" : "a@b") << cut;
        }
    // The rest never comes: what there was is queued with the next report.
    hear(port, text.substr(0, text.size() - 3), nullptr);
    hear(port, door, nullptr);
    const std::vector<kelo_sms> messages = taken();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_STREQ(messages[0].text, "a@");
}
