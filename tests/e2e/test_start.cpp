// SPDX-License-Identifier: MIT
// Start, stop and reload: their times, calls out of order, a modem that goes.
#include "tests/e2e/story.h"

using namespace kelo_story;

using Start = Story;

// Catches: commands without the pace that slow modules need, or one that waits a full second each;
// a flow that stands still behind one silent command, or gives up on it at once; anything slow
// between the registration answer and the word that a host waits for.
TEST_F(Start, PaceOfCommandsSilencesAndTheReadyWord)
{
    pace = 1;
    set_5g_debug(1); // each line is written down as it is read
    plug("EC25");
    order("silence AT+CIMI");
    order("late 1500 AT+QCCID");
    const monotonic_clock::time_point begin = monotonic_clock::now();
    start();
    ASSERT_TRUE(wire("AT+CGMM", 1200ms));
    EXPECT_LE(since(begin), within(1200ms)); // the shell lines of the start included
    ASSERT_TRUE(wire("AT+CGSN", 25s));
    const auto times = command_times();
    ASSERT_GE(times.size(), 9u);
    const auto gap = [&](std::size_t from, std::size_t to) {
        return times[to].first - times[from].first;
    };
    const milliseconds slack = sanitized ? 250ms : 100ms;
    EXPECT_GE(gap(0, 1), 500ms - slack);
    EXPECT_LE(gap(0, 1), within(700ms));
    EXPECT_LE(gap(1, 2), within(300ms)); // the pair of the second
    for (std::size_t i = 0; i + 2 < times.size(); i++)
        EXPECT_GE(gap(i, i + 2), 500ms - slack) << times[i].second;
    // Three silent seconds: behind the query that this modem answers with an OK alone, and behind
    // the one that it does not answer.
    for (const char* silent : {"AT+QMTCONN?", "AT+CIMI"}) {
        EXPECT_GE(gap_behind(silent), 3000ms - slack);
        EXPECT_LE(gap_behind(silent), within(4500ms));
    }
    EXPECT_STREQ(record().imsi, "");
    EXPECT_GE(gap_behind("AT+QCCID"), 1500ms - slack);
    EXPECT_STREQ(record().iccid, "89490200001234567890");

    order("late 500 AT+CGREG?");
    ASSERT_TRUE(wire("AT+CGREG?", 25s));
    ASSERT_EQ(mobile_is_ready(), 0u);
    ASSERT_TRUE(says(" +CGREG: 0,1\n", within(3s)));
    const monotonic_clock::time_point read_at = monotonic_clock::now();
    while (mobile_is_ready() == 0 && since(read_at) < 1s)
        usleep(100);
    EXPECT_LE(since(read_at), sanitized ? 100ms : 10ms);
}

// Catches: a task that outlives a stop which came before its first pass; a reload that walks the
// wrong list, or leaves old figures and status bits behind.
TEST_F(Start, StopRightBehindItThenReload)
{
    plug("EC25");
    start();
    EXPECT_LE(stop(), within(3s));
    EXPECT_EQ(thread_cpu_us("MobileTask"), -1);
    start();
    ASSERT_TRUE(wire("AT+COPS?", 40s));
    EXPECT_SOON(record().oper[0] != '\0');
    quiet(500ms); // the event of that answer is over
    modem.clear_log();
    cell_reload_flag_set();
    ASSERT_EQ(cellular_reload(), 0);
    EXPECT_EQ(word(cell_reload_flag), 0);
    EXPECT_EQ(cellular_get_cur_status(), CELL_STATUS_NO_SIM);
    EXPECT_STREQ(record().imsi, "");
    const line_list expected = words(R"(AT+CFUN=0 AT+CFUN=1 AT+CPIN? AT+CIMI AT+QCCID
        AT+QMBNCFG="List" AT+QCFG="nwscanmode";+CMGF=0;+CNMI=2,2,0,0,0)");
    wire(expected.back(), 40s);
    quiet(2500ms); // nothing comes behind the last, but for one that is passed over
    EXPECT_EQ(modem.commands(), expected);
    EXPECT_STREQ(record().imsi, "262011234567890");
}
