// SPDX-License-Identifier: MIT
// What of the library's lines gets into a log.
#include "host/log/log.h"
#include "host/log/private.h"
#include <gtest/gtest.h>
#include <kelo/gsm.h>
#include <kelo/sms.h>
#include <unistd.h>

using namespace kelo_host;

// Catches: a log that tells who the subscriber is, whom he writes to and what, or lets others
// unlock the SIM; and one that hides what a fault is found by.
TEST(Log, HidesWhatIsPrivate)
{
    // clang-format off
    const std::string_view rows[] = { // in the order of one thread: what is shown|what is hidden|what is shown behind
        "[SEQ3,ID4]>>> AT+CPIN=|\"1234\"", "write_line:90 [1/3] failed to write command('at+cpin=|1234'), ret=-1!",
        "[Cellular]---> {cpin_pre_treat} pin = |1234 ", "[SEQ3,ID4]<<<(12) +CPIN: READY", "a_b:1 number=''",
        "[SEQ1,ID1]>>> AT+CMGF=0;+CPWD=|\"SC\",\"1\"", "[SEQ1,ID1]>>> AT+QICSGP=1,1,|\"apn\",\"u\",\"p\",1",
        "[SEQ1,ID1]>>> AT$QCPDPP=1,2,|\"p\",\"u\"", "[SEQ1,ID1]>>> AT+QMTCONN=0,|\"c\",\"u\",\"p\"",
        "[4G]---> dialer = quectel-CM -|s apn u p 1", "[SEQ1,ID1]<<<(15) |2620112345678|90", "a_b:1 iccid='|894901234567890123|45",
        "[SEQ1,ID1]<<<(9) +CREG: 2,1,\"1A2B\",\"0123ABCD\",7", "[SEQ1,ID1]<<<(9) +CLIP: \"|0171\",129", "keeper: |+4915112345678| rang",
        // a message goes out: its body is what is written next, whatever it looks like, and is echoed
        "[SEQ1,ID9]>>> AT+CMGS=\"|0171\"", "[SEQ1,ID9]<<<(2) > ", "[SEQ1,ID9]>>> |AT 5", "|and more", "[SEQ1,ID9]<<<(4) |AT 5",
        "[SEQ1,ID9]<<<(8) +CMGS: 7", "[SEQ1,ID9]>>> AT+CSQ",
        // one comes in
        "[SEQ0,ID0]---><<< +CMT: \"|0171\",,\"t\"", "|at noon", "keeper: up", "[SMS]<<<(5) |at ten", "[SEQ0,ID0]>>> AT", "-START-",
        "Mode    : TEXT", "|Sender  : 0171", "|Text    : a", "|-END-", "|b", "|PDU     : ", "|+CMT: 1", "-END-", "as ever",
        "Sender Number = |0171", "User data 8bit = |a", "|b", "GSM Event: x"};
    // clang-format on
    line_mask mask(false), open(true);
    for (const std::string_view row : rows) {
        std::string line(row), shown(row);
        std::erase(line, '|');
        if (const size_t at = row.find('|'); at != row.npos) {
            const size_t behind = row.find('|', at + 1);
            shown.replace(at, std::min(behind, row.size() - 1) - at + 1, "***");
        }
        EXPECT_EQ(mask.apply(line), shown);
        EXPECT_EQ(open.apply(line).ends_with("***"), open.apply(line) != line) << line;
    }
    EXPECT_EQ(open.apply("AT+CMGS=\"0171\";+CPIN=1"), "AT+CMGS=\"0171\";+CPIN=***");
    EXPECT_EQ(mask_own_line("message 3 (a) to 0171: sent"), "message 3 (a) to ***: sent");
    EXPECT_EQ(mask_own_line("imsi: - -> 262011234567890"), "imsi: - -> ***90");
}

// Catches: the same from objects, however deep it stands, and a count that is taken for a number.
TEST(Log, HidesWhatIsPrivateInObjects)
{
    const json_value object = json_value::parse(
        R"({"time":"2026-11-25T18:40:01.123+01:00","number":7,"pin":"1234","imsi":"262011234567890","iccid":null,)"
        R"("status":{"number":"0171","serial":"490154203237518","text":"call 0171","revision":"EC25EFAR06A08M4G"},)"
        R"("topic":"a/490154203237518","list":[{"sender":"Ann","data":["00","01"],"password":"x"}],)"
        R"("line":"message from Ann:","latitude":31.8,"longitude":null})");
    EXPECT_EQ(
        masked(object).dump(),
        R"({"time":"2026-11-25T18:40:01.123+01:00","number":7,"imsi":"***90","iccid":null,)"
        R"("status":{"number":"***","serial":"***18","text":"***","revision":"EC25EFAR06A08M4G"},)"
        R"("topic":"a/***18","list":[{"sender":"***","data":["***","***"]}],)"
        R"("line":"message from ***","latitude":null,"longitude":null})");
}

// Catches: a line whose text drives the terminal that it is shown on.
TEST(Log, LinesAreWholeAndClean)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    start_log({.fd = ends[1], .most = KELO_LOG_NOTICE, .show_private = true});
    libgsm_pdu_decode(nullptr, &gsm_event, "\x1b[2J\x9b \xc3\xa4");
    kelo_set_log(nullptr, nullptr);
    std::string text(200, ' ');
    text.resize(static_cast<size_t>(read(ends[0], text.data(), text.size())));
    EXPECT_EQ(text.substr(23), " notice PDU too short:?[2J? \xc3\xa4\n");
}
