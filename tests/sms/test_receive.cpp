// SPDX-License-Identifier: MIT
// Reports of received messages: gsm_event and its block, the queue, and reports in pieces.
#include "tests/sms/messages.h"

static const std::string door = std::string("+CMT: ,30\r\n") + pdu_door + "\r\n";
static const std::string part = std::string("\r\n+CMT: ,40\r\n") + pdu_part + "\r\n";
static const std::string header = "+CMT: \"+1\",,\"24/05/17,09:30:12+08\"";

static void check(const std::string& report)
{
    const captured quiet;
    EXPECT_EQ(libgsm_check_sms(&g_mobile, report.c_str()), &gsm_event);
    EXPECT_EQ(gsm_event.code, GSM_EVENT_SMS_RECEIVED);
}

static std::string last_centre;

// The queue, emptied.
static std::vector<std::string> taken()
{
    std::vector<std::string> all;
    kelo_sms m;
    while (kelo_take_sms(&m) == 1) {
        EXPECT_EQ(m.length, static_cast<int>(std::strlen(m.text)));
        last_centre = m.smsc;
        all.push_back(
            joined(m.sender, m.time, m.zone, m.text, m.reference, m.number, m.total, m.pdu));
    }
    return all;
}

using queue = std::vector<std::string>;

static const std::string sent = "+4915112345678|2024-05-17 09:3";
static const std::string read_door = sent + "0:12|GMT+2|Door 3 open|0|0|0|" + pdu_door;
static const std::string read_part = sent + "2:00|GMT+2|part two of two|90|2|2|" + pdu_part;

static std::string read_text(const std::string& text)
{
    return "+1|2024-05-17 09:30:12|GMT+2|" + text + "|0|0|0|";
}

TEST(Receive, TextReports)
{
    const std::string door_line = "\r\nDoor 3 open\r\n";
    const std::array<std::string, 3> rows[] = {
        {header + door_line, "1|+1|24/05/17,09:30:12|GMT+2|old|Door 3 open",
         read_text("Door 3 open")},
        {"+CMT: \"+49\",,\"24/05/17,09:30:12-32\",145,4,0,0,\"+491710760000\",145,11" + door_line,
         "1|+49|24/05/17,09:30:12-32|unknow|+491710760000|Door 3 open",
         "+49|2024-05-17 09:30:12|GMT-8|Door 3 open|0|0|0|"},
        {"+CMT: \"+49\",\"\",\"24/05/17,09:30:12+22\"\r\n\"q\" +1\r\n",
         "1|+49||unknow|24/05/17,09:30:12+22|\"q\" +1",
         "+49|2024-05-17 09:30:12|GMT+5|\"q\" +1|0|0|0|"},
        {"+CMT: \"+49\",,\"now\"\r\n\"last\"\r\n\r\n", "1|+49|now|unknow||\"last\"\r\n",
         "+49|now|unknow|\"last\"\r\n|0|0|0|"},
    };
    const event& e = gsm_event;
    for (const auto& [report, seen, queued] : rows) {
        text_set(gsm_event.smsc, "old");
        check(report);
        EXPECT_EQ(joined(e.mode, e.sender, e.sms_time, e.time_zone, e.smsc, e.text), seen);
        EXPECT_EQ(e.length, static_cast<int>(std::strlen(e.text)));
        EXPECT_EQ(taken(), queue{queued});
        EXPECT_EQ(last_centre, report.find("4917") != std::string::npos ? "+491710760000" : "");
    }
    check(door);
    taken();
    EXPECT_EQ(last_centre, "+491710760000");
}

// Catches: a text that ends at a line in it which another module has for a full memory.
TEST(Receive, ATextMayHoldWhatAFullMemoryIsReportedBy)
{
    const std::string text =
        "a\r\n#SMOV: 1\r\n^SMMEMFULL: x\r\n+SMS FULL\r\n+CIEV: \"SMSFULL\",1\r\n"
        "+QIND: \"smsfull\",\"ME\"";
    check(header + "\r\n" + text + "\r\n" + part);
    EXPECT_EQ(taken(), (queue{read_text(text), read_part}));
}

// Every report of a read is queued with nothing of the next one. The text of a PDU ends where that
// says: eight septets in seven octets make no "@". No line of a text whose length the header tells
// passes for a report, and what can't be read comes with its PDU.
TEST(Queue, ReportsOfOneRead)
{
    const std::string seven = "0004039121F30000425071900321800731D98C56B3DD00";
    const std::string short_one = "0044039121F300084250719003218008FF0003";
    const std::string body = "x\r\n+CMT: ,30\r\n00";
    check("+CMT: ,26\r\n" + seven + "\r\n" + part + "\r\n" + header + "\r\ntwo\r\nlines\r\n" +
          "\r\n+CMTI: \"SM\",1\r\n" + part + "\r\n> ");
    EXPECT_NE(std::string(gsm_event.pdu).find("+CMT: ,40"), std::string::npos);
    EXPECT_EQ(taken(), (queue{"+123|2024-05-17 09:30:12|GMT+2|1234567|0|0|0|" + seven, read_part,
                              read_text("two\r\nlines"), read_part}));
    check(header + ",145,4,0,0,\"+2\",145," + std::to_string(body.size()) + "\r\n" + body + "\r\n" +
          "\r\n+CMT: ,30\r\n0791zz\r\n\r\n+CMT: ,30\r\n" + short_one + "\r\n");
    EXPECT_EQ(taken(), (queue{read_text(body), "||||0|0|0|0791zz",
                              "+123|2024-05-17 09:30:12|GMT+2||0|0|0|" + short_one}));
}

// The same as whole messages: what a text is written in shows by its bytes, and what can't be read
// comes as it is.
TEST(Queue, WholeMessages)
{
    kelo_message m;
    char text[200];
    ASSERT_EQ(kelo_take_message(&m, sizeof m, text, sizeof text), 0); // one asks for them
    const std::string named = "+CMT: \"B\xFCro\",,\"24/05/17,09:30:12-32\"\r\n";
    const std::pair<std::string, const char*> rows[] = {
        {door, "+4915112345678|2024-05-17 09:30:12|8|0|Door 3 open"},
        {named + "Tür 😀\r\n", "Büro|2024-05-17 09:30:12|-32|-1|Tür 😀"},
        {named + "T\xFCr\r\n", "Büro|2024-05-17 09:30:12|-32|-1|Tür"},
        {"+CMT: ,3\r\n0791zz\r\n", "||0|-1|[can't be read: 0791zz]"}};
    for (const auto& [report, expected] : rows) {
        check(report);
        ASSERT_EQ(kelo_take_message(&m, sizeof m, text, sizeof text), 1) << expected;
        EXPECT_EQ(joined(m.sender, m.time, m.zone, m.coding, text), expected);
    }
}

// A modem that waits for an answer to a report of delivery gets one, where a host asked for those.
TEST(Queue, DeliveryIsAcknowledged)
{
    const captured quiet;
    modem_port port;
    for (const auto& [family, asked] : {std::pair(13, 0), {13, 1}, {14, 1}}) {
        is_quectel = family;
        sms_reports_wanted = asked;
        hear(port, nullptr, "\r\n+CDS: 25\r\n0791");
        EXPECT_EQ(port.heard(), "");
        hear(port, nullptr, "00\r\n");
        EXPECT_EQ(port.heard(), family == 13 && asked ? "AT+CNMA\r\n" : "");
    }
}

// A reader on another thread takes every message whole and in order, but for the oldest ones of a
// full queue.
TEST(Queue, OverflowsAndIsTakenWhileItFills)
{
    constexpr int count = 2000;
    const auto fill = [](int from, int to) {
        for (kelo_sms message = {}; from < to; from++) {
            message.reference = message.number = from;
            sms_queue_add(message);
        }
    };
    fill(0, KELO_SMS_QUEUE + 3);
    EXPECT_EQ(kelo_sms_lost(), 3);
    std::thread writer(fill, KELO_SMS_QUEUE + 3, count);
    int last = -1;
    int seen = 0;
    kelo_sms message;
    while (last < count - 1) {
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

// Through the port: a read can end between any two bytes, in the mark itself as well. The rest of
// one that never comes does not hold up the next, and is waited for three silent seconds.
TEST(Queue, ReportInTwoReads)
{
    const captured quiet;
    modem_port port;
    const std::string text = "\r\n" + header + "\r\na" + std::string(1, '\0') + "b\r\n";
    for (const std::string& report : {"\r\n" + door, text})
        for (std::size_t cut = 1; cut <= report.size(); cut++) {
            hear(port, nullptr, std::string_view(report).substr(0, cut));
            if (cut < report.size())
                hear(port, nullptr, std::string_view(report).substr(cut));
            sms_quiet_second();
            ASSERT_EQ(taken(), queue{report == text ? read_text("a@b") : read_door}) << cut;
        }
    const std::string broken = text.substr(0, text.size() - 3);
    hear(port, nullptr, broken);
    hear(port, nullptr, "\r\n" + door);
    EXPECT_EQ(taken(), (queue{read_text("a@"), read_door}));
    hear(port, nullptr, broken);
    sms_quiet_second();
    sms_quiet_second();
    EXPECT_EQ(taken(), queue{});
    sms_quiet_second();
    EXPECT_EQ(taken(), queue{read_text("a@")});
}

// Catches: a status report of a modem in text mode that lacks its status, taken for one.
TEST(Receive, StatusReportsInTextMode)
{
    const std::string whole =
        "+CDS: 6,42,\"+7\",145,\"26/04/17,12:00:01+12\",\"26/04/17,12:00:05+12\"";
    kelo_sms_report report{};
    check(whole + "\r\n");
    EXPECT_EQ(kelo_take_sms_report(&report, sizeof report), 0);
    check(whole + ",48\r\n");
    EXPECT_EQ(kelo_take_sms_report(&report, sizeof report), 1);
    EXPECT_EQ(joined(report.reference, report.status), "42|48");
}
