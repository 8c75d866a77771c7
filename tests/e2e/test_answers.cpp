// Answers that do not come, come late, or are asked for again; commands that the host changes.
#include "story.h"

using namespace kelo_story;

using Answers = Story;

// Catches: a flow that stands still behind one silent command, or gives up on it at once.
TEST_F(Answers, SilentAndLateAnswers)
{
    plug("EC25");
    order("silence AT+CIMI");
    order("late 1500 AT+QCCID");
    start();
    ASSERT_TRUE(wire("AT+CGSN", 25s));
    EXPECT_GE(gap_behind("AT+CIMI"), 2900ms); // three silent seconds
    EXPECT_LE(gap_behind("AT+CIMI"), within(4500ms));
    EXPECT_STREQ(record().imsi, "");
    EXPECT_GE(gap_behind("AT+QCCID"), 1450ms);
    EXPECT_STREQ(record().iccid, "89490200001234567890");
}

// Catches: a host's changes that are ignored, doubled, in the wrong place or lost with a new start.
TEST_F(Answers, HostChangesCommands)
{
    change(8, 0, 0, "AT+CMEE=2", 20); // added, between the first rows and the module's
    change(12, 0, 1);                 // AT+CGSN is passed over
    change(34, 1);                    // AT+CIMI has one second
    change(14, 0, 0, "AT+QCFG=\"nwscanmode\"", 41); // ahead of the SIM
    change(15, 0, 0, "AT+CSQ\r\nATD1;");            // refused: the row's own text goes out
    plug("EC25");
    order("silence AT+CIMI");
    const Lines expected = {
        "AT+QSIMDET=1,0",         "AT+QMTCONN?", "AT+CMEE=2", "AT+QMBNCFG=\"Autosel\",1",
        "AT+QCFG=\"nwscanmode\"", "AT+CPIN?",    "AT+CIMI",   "AT+QCCID",
        "AT+QMBNCFG=\"List\"",    "AT+CGREG?",   "AT+COPS?"};
    start();
    ASSERT_TRUE(wire("AT+COPS?", 40s));
    Lines first = modem.commands();
    first.erase(first.begin(), first.begin() + 2); // AT+CGMM, AT+CGMR
    EXPECT_EQ(first, expected);
    EXPECT_GE(gap_behind("AT+CIMI"), 900ms);
    EXPECT_LE(gap_behind("AT+CIMI"), within(2500ms));
    EXPECT_TRUE(says("ignore command 'AT+CGSN'!\n", 0s));
    stop();
    modem.clear_log();
    start();
    ASSERT_TRUE(wire("AT+COPS?", 40s));
    EXPECT_EQ(modem.commands(), expected);
}
