// Reports that come while no command runs.
#include "tests/e2e/story.h"

using namespace kelo_story;

using Reports = Story;

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
    EXPECT_EQ(cellular_get_status(CELL_STATUS_RINGING), 0u); // hung up
    cellular_set_call_received(0);

    modem.report("+CSQ: 17,3");
    EXPECT_TRUE(eventually([&] { return record().rssi == 17; }, within(2s)));
    modem.report("+CSQ: 99,99");
    EXPECT_TRUE(says("GSM Event: [1/3] no signal!\n", within(2s)));

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
    EXPECT_EQ(modem.commands(), line_list{"ATH"});
}
