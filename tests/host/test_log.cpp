// What of the library's lines gets into a log.
#include "host/log.h"
#include "host/private.h"
#include <fcntl.h>
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
    const char* rows[][2] = { // in the order of one thread; what is said, what is shown
        {"[SEQ3,ID4]>>> AT+CPIN=\"1234\"", "[SEQ3,ID4]>>> AT+CPIN=***"},
        {"exec_at_command:90 [1/3] failed to write command('at+cpin=1234'), ret=-1!", "exec_at_command:90 [1/3] failed to write command('at+cpin=***"},
        {"[Cellular]---> {cpin_pre_treat} pin = 1234 ", "[Cellular]---> {cpin_pre_treat} pin = ***"},
        {"[SEQ3,ID4]<<<(12) +CPIN: READY", "[SEQ3,ID4]<<<(12) +CPIN: READY"},
        {"[SEQ1,ID1]>>> AT+CMGF=0;+CPWD=\"SC\",\"1\"", "[SEQ1,ID1]>>> AT+CMGF=0;+CPWD=***"},
        {"[SEQ1,ID1]>>> AT+QICSGP=1,1,\"apn\",\"u\",\"p\",1", "[SEQ1,ID1]>>> AT+QICSGP=1,1,***"},
        {"[SEQ1,ID1]>>> AT$QCPDPP=1,2,\"p\",\"u\"", "[SEQ1,ID1]>>> AT$QCPDPP=1,2,***"},
        {"[SEQ1,ID1]>>> AT+QMTCONN=0,\"c\",\"u\",\"p\"", "[SEQ1,ID1]>>> AT+QMTCONN=0,***"},
        {"[4G]---> dialer = quectel-CM -s apn u p 1", "[4G]---> dialer = quectel-CM -***"},
        {"[SEQ1,ID1]<<<(15) 262011234567890", "[SEQ1,ID1]<<<(15) ***90"},
        {"[SEQ1,ID1]<<<(28) +QCCID: 8949012345678901234F", "[SEQ1,ID1]<<<(28) +QCCID: ***"},
        {"ccid_handler:81 iccid='89490123456789012345'", "ccid_handler:81 iccid='***45"},
        {"cnum_handler:99 number=''", "cnum_handler:99 number=''"},
        {"[SEQ1,ID1]<<<(9) +CREG: 2,1,\"1A2B\",\"0123ABCD\",7", "[SEQ1,ID1]<<<(9) +CREG: 2,1,\"1A2B\",\"0123ABCD\",7"},
        {"[SEQ1,ID1]<<<(9) +CLIP: \"0171\",129", "[SEQ1,ID1]<<<(9) +CLIP: \"***"},
        {"keeper: +4915112345678 rang", "keeper: *** rang"},
        // a message goes out: its body is what is written next, whatever it looks like, and is echoed
        {"[SEQ1,ID9]>>> AT+CMGS=\"0171\"", "[SEQ1,ID9]>>> AT+CMGS=\"***"}, {"[SEQ1,ID9]<<<(2) > ", "[SEQ1,ID9]<<<(2) > "},
        {"[SEQ1,ID9]>>> AT 5", "[SEQ1,ID9]>>> ***"}, {"and more", "***"}, {"[SEQ1,ID9]<<<(4) AT 5", "[SEQ1,ID9]<<<(4) ***"},
        {"[SEQ1,ID9]<<<(8) +CMGS: 7", "[SEQ1,ID9]<<<(8) +CMGS: 7"}, {"[SEQ1,ID9]>>> AT+CSQ", "[SEQ1,ID9]>>> AT+CSQ"},
        // one comes in
        {"[SEQ0,ID0]---><<< +CMT: \"0171\",,\"t\"", "[SEQ0,ID0]---><<< +CMT: \"***"}, {"at noon", "***"}, {"keeper: up", "keeper: up"},
        {"[SMS]<<<(5) at ten", "[SMS]<<<(5) ***"}, {"[SEQ0,ID0]>>> AT", "[SEQ0,ID0]>>> AT"}, {"-START-", "-START-"},
        {"Mode    : TEXT", "Mode    : TEXT"}, {"Sender  : 0171", "***"}, {"Text    : a", "***"}, {"-END-", "***"}, {"b", "***"},
        {"PDU     : ", "***"}, {"+CMT: 1", "***"}, {"-END-", "-END-"}, {"as ever", "as ever"},
        {"Sender Number = 0171", "Sender Number = ***"}, {"User data 8bit = a", "User data 8bit = ***"}, {"b", "***"}, {"GSM Event: x", "GSM Event: x"}};
    // clang-format on
    line_mask mask(false), open(true);
    for (const auto& [line, shown] : rows) {
        EXPECT_EQ(mask.apply(line), shown) << line;
        const bool secret = std::string_view(shown).find("***") != std::string::npos;
        EXPECT_TRUE(secret || open.apply(line) == line) << line;
    }
    EXPECT_EQ(open.apply("[SEQ0,ID0]>>> AT+CPIN=1"), "[SEQ0,ID0]>>> AT+CPIN=***");
    EXPECT_EQ(open.apply("[SEQ0,ID0]>>> AT+CMGS=\"0171\""), "[SEQ0,ID0]>>> AT+CMGS=\"0171\"");
    EXPECT_EQ(mask_own_line("message 3 (a) to 0171: sent"), "message 3 (a) to ***: sent");
    EXPECT_EQ(mask_own_line("imsi: - -> 262011234567890"), "imsi: - -> ***90");
}

// Catches: a line whose text drives the terminal that it is shown on.
TEST(Log, LinesAreWholeAndClean)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    start_log({.fd = ends[1], .most = KELO_LOG_NOTICE, .show_private = true});
    struct gsm_event unused {
    };
    libgsm_pdu_decode(nullptr, &unused, "\x1b[2J\x9b \xc3\xa4");
    kelo_set_log(nullptr, nullptr);
    std::string text(200, ' ');
    text.resize(static_cast<size_t>(read(ends[0], text.data(), text.size())));
    EXPECT_EQ(text.substr(4, 1) + text.substr(19, 1) + text.substr(23),
              "-. notice PDU too short:?[2J? \xc3\xa4\n");
    EXPECT_EQ(log_prefix(KELO_LOG_ERROR, true), "<3>");
}
