// Reports that come while no command runs.
#include "story.h"

using namespace kelo_story;

namespace
{

class Reports : public Story, public testing::WithParamInterface<int>
{
};

} // namespace

// Catches: a report that nobody reads, or one that does not reach the host's words.
TEST_F(Reports, CallsSignalContextAndMessages)
{
    start_and_come_to_rest();
    modem.clear_log();

    modem.report("RING");
    EXPECT_TRUE(eventually([] { return cellular_is_call_received() == 1; }, within(2s)));
    EXPECT_EQ(modem.count("ATH"), 0u); // not before the caller is known
    modem.report("+CLIP: \"+4915112345678\",145,,,,0");
    EXPECT_TRUE(wire("ATH", 2s));
    EXPECT_TRUE(says("callingnum='+4915112345678'", 1s));
    EXPECT_EQ(cellular_get_status(CELL_STATUS_RINGING), 0u); // hung up
    cellular_set_call_received(0);
    EXPECT_EQ(cellular_is_call_received(), 0);

    modem.report("+CSQ: 17,3");
    EXPECT_TRUE(eventually([&] { return record().rssi == 17; }, within(2s)));
    EXPECT_EQ(record().ber, 3);
    modem.report("+CSQ: 99,99");
    EXPECT_TRUE(says("GSM Event: [1/3] no signal!\n", within(2s)));

    EXPECT_EQ(get_cell_pdpdeact(), 0);
    modem.report("+QIURC: \"pdpdeact\",1");
    EXPECT_TRUE(eventually([] { return get_cell_pdpdeact() == 1; }, within(2s)));

    modem.report("+CMS ERROR: 38");
    EXPECT_TRUE(
        eventually([] { return cellular_get_status(CELL_STATUS_SMS_FAILED) != 0; }, within(2s)));
    modem.report("+CMGS: 12");
    EXPECT_TRUE(
        eventually([] { return cellular_get_status(CELL_STATUS_SMS_FAILED) == 0; }, within(2s)));

    modem.report("+QMTRECV: 0,1,\"door\",\"open\"");
    EXPECT_TRUE(eventually([] { return cellular_is_mqtt_received() == 1; }, within(2s)));
    EXPECT_EQ(modem.commands(), Lines{"ATH"});
    EXPECT_STREQ(gsm_event.callingnum, "+4915112345678"); // the task is at rest: nobody writes it
}

// Catches: a SIM that was put in again and is never walked, or a restart on the task's own thread.
TEST_F(Reports, ReadySimStartsTheTaskAnew)
{
    start_and_come_to_rest();
    modem.clear_log();
    modem.report("+CPIN: READY");
    EXPECT_TRUE(wire("AT+QSIMDET=1,0", 6s)); // the module itself is known
    EXPECT_TRUE(eventually([] { return word(cell_repower_lock) == 0; }, within(2s)));
    EXPECT_EQ(modem.count("AT+CGM*"), 0u);
    EXPECT_EQ(get_sim_status(), 1);
    EXPECT_EQ(count_said("cellular_start = 0"), 2u);
    EXPECT_TRUE(wire("AT+QMTCONN?", 4s)); // the new flow goes on
}

// Catches: a lost SIM that goes unnoticed, or that families without escalation restart for.
TEST_P(Reports, LostSim)
{
    const int family = GetParam();
    is_quectel = family;
    start_and_come_to_rest();
    const auto lose_sim = [&](unsigned times) {
        modem.report("+CPIN: NOT READY");
        return eventually([&] { return count_said("GSM Event: sim failed!") == times; },
                          within(3s));
    };
    ASSERT_TRUE(lose_sim(1));
    const bool escalates = family == 13;
    EXPECT_TRUE(eventually([] { return get_sim_status() == -1; }, within(1s)));
    EXPECT_TRUE(eventually([&] { return word(cell_reload_flag) == escalates; }, within(1s)));
    EXPECT_EQ(word(is_pin_ready), 0);
    ASSERT_TRUE(lose_sim(2));
    EXPECT_EQ(cell_start_flag_get(), 0);
    ASSERT_TRUE(lose_sim(3));
    usleep(1300000); // it holds still for a second ahead of the flag
    EXPECT_EQ(cell_start_flag_get(), escalates);
    EXPECT_EQ(word(cell_reload_flag), escalates);
}

INSTANTIATE_TEST_SUITE_P(Family, Reports, testing::Values(0, 13));
