// Commands that the host changes.
#include "tests/e2e/story.h"

using namespace kelo_story;

using Answers = Story;

// Catches: a host's changes that are ignored, doubled, in the wrong place or lost with a new start.
TEST_F(Answers, HostChangesCommands)
{
    change(8, 0, 0, "AT+CMEE=2", 20); // added, between the first rows and the module's
    change(12, 0, 1);                 // AT+CGSN is passed over
    change(34, 9);                    // AT+CIMI has nine seconds
    change(14, 0, 0, "AT+QCFG=\"nwscanmode\"", 41); // ahead of the SIM
    change(15, 0, 0, "AT+CSQ\r\nATD1;");            // refused: the row's own text goes out
    plug("EC25");
    order("silence AT+CIMI");
    const line_list expected = {
        "AT+QSIMDET=1,0",         "AT+QMTCONN?", "AT+CMEE=2", "AT+QMBNCFG=\"Autosel\",1",
        "AT+QCFG=\"nwscanmode\"", "AT+CPIN?",    "AT+CIMI",   "AT+QCCID",
        "AT+QMBNCFG=\"List\"",    "AT+CGREG?",   "AT+COPS?"};
    start();
    ASSERT_TRUE(wire("AT+COPS?", 40s));
    line_list first = modem.commands();
    first.erase(first.begin(), first.begin() + 2); // AT+CGMM, AT+CGMR
    EXPECT_EQ(first, expected);
    EXPECT_GE(gap_behind("AT+CIMI"), real(8500ms));
    EXPECT_TRUE(says("ignore command 'AT+CGSN'!\n", 0s));
    stop();
    modem.clear_log();
    start();
    ASSERT_TRUE(wire("AT+COPS?", 40s));
    EXPECT_EQ(modem.commands(), expected);
}
