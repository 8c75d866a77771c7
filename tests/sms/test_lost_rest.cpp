// The rest of a report that never comes.
#include "tests/sms/messages.h"

using namespace kelo;

// What there was of it must reach the host after three seconds, and no earlier: a modem may be
// slow.
TEST(Queue, WhatThereIsOfABrokenReportIsTakenAfterThreeSeconds)
{
    const test::captured quiet;
    sms_check_read(&g_mobile, "+CMT: \"+1\",,\"24/05/17,09:30:12+08\"\r\nDoor 3");
    kelo_sms message;
    sms_continue_report("");
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    sms_continue_report("");
    EXPECT_EQ(kelo_take_sms(&message), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    sms_continue_report("");
    EXPECT_EQ(kelo_take_sms(&message), 1);
    EXPECT_STREQ(message.text, "Door 3");
}
