// SPDX-License-Identifier: MIT
// What comes while no command runs: reports, and positions that the host asks for.
#include "tests/e2e/story.h"

using namespace kelo_story;

namespace
{

std::atomic<int> refused = 1;

void stop_from_callback(const char* text)
{
    if (std::string(text).find("+QMTSTAT: 0,1") == std::string::npos)
        return;
    refused = cellular_stop();
    libgsm_send_at("AT+CSQ"); // other calls are welcome there
}

std::string fetched()
{
    char buffer[KELO_GPS_LOCATION_SIZE] = "";
    return kelo_get_gps_location(buffer) == 1 ? buffer : "";
}

using Reports = Story;

} // namespace

// Catches: a report that nobody reads, or one that does not reach the host's words; a task that
// waits for its own end, for ever.
TEST_F(Reports, ReachTheHost)
{
    kelo_set_urc_callback(stop_from_callback);
    start_and_come_to_rest();
    modem.clear_log();

    modem.report("RING");
    EXPECT_SOON(cellular_is_call_received() == 1);
    EXPECT_EQ(modem.count("ATH"), 0u); // not before the caller is known
    modem.report("+CLIP: \"+4915112345678\",145,,,,0");
    EXPECT_TRUE(wire("ATH", 2s));
    EXPECT_EQ(cellular_get_status(CELL_STATUS_RINGING), 0u); // hung up

    modem.report("+CSQ: 17,3");
    EXPECT_SOON(record().rssi == 17);
    EXPECT_EQ(modem.commands(), line_list{"ATH"});

    modem.report("+QMTSTAT: 0,1");
    EXPECT_TRUE(wire("AT+CSQ", 3s));
    EXPECT_EQ(refused, -1);
    EXPECT_TRUE(says("the mobile task can't wait for its own end!", within(1s)));
    EXPECT_SOON(record().rssi == 24); // it still works
    EXPECT_LE(stop(), within(3s));
}

// Catches: a text that acts as a word of the modem when its report is cut in two, and one that is
// lost by that.
TEST_F(Reports, TextOfAMessageDoesNotAct)
{
    start_and_come_to_rest();
    modem.clear_log();
    modem.raw("\r\n+CM");
    quiet(300ms);
    modem.raw("T: \"+49151\",,\"24/05/17,09:30:12+08\"\r\n");
    EXPECT_SOON(cellular_is_sms_received() == 1);
    quiet(300ms);
    const std::size_t before = count_of(said(), "READY !!!!");
    modem.raw("+CPIN: READY\r\n");
    kelo_sms sms;
    ASSERT_TRUE(eventually([&] { return kelo_take_sms(&sms) == 1; }, within(5s)));
    EXPECT_STREQ(sms.text, "+CPIN: READY");
    EXPECT_EQ(modem.commands(), line_list{});
    EXPECT_EQ(count_of(said(), "READY !!!!"), before);
    modem.report("+CSQ: 17,3");
    EXPECT_SOON(record().rssi == 17);
}

TEST_F(Reports, GpsFromNoFixToAFixFetchedOnce)
{
    const std::string fix = "061951.0,31.22415,121.35479,0.7,62.2,2,0.00,0.0,0.0,110524,09";
    start_and_come_to_rest();
    modem.clear_log();
    order("gps nofix");
    EXPECT_EQ(kelo_start_gps_location(), 0);
    // The engine is off: the queries go on, with an error each, until the host switches it on.
    ASSERT_TRUE(modem.wait_sent("+CME ERROR: 505", within(12s)));
    EXPECT_EQ(kelo_set_gps_on(), 0);
    ASSERT_TRUE(modem.wait_sent("+CME ERROR: 516", within(6s), 2));
    EXPECT_EQ(fetched(), "");
    order("gps fix");
    EXPECT_SOON(fetched() == fix);
    EXPECT_EQ(fetched(), "");

    modem.clear_log();
    quiet(2500ms);
    EXPECT_EQ(modem.commands(), line_list{}); // one answer ends the queries

    EXPECT_EQ(kelo_stop_gps_location(), 0);
    EXPECT_TRUE(wire("AT+QGPSEND", 2s));

    gps_set_flag_file();
    EXPECT_EQ(access("/etc/gpsflag.txt", F_OK), 0);
    gps_clear_flag_file();
    EXPECT_NE(access("/etc/gpsflag.txt", F_OK), 0);
    gps_clear_flag_file();
    EXPECT_EQ(count_of(said(), "delete file gpsflag error\n"), 1u);
}
