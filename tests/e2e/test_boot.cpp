// The times of a start.
#include "tests/e2e/story.h"

using namespace kelo_story;

using Pace = Story;

// Catches: commands without the pace that slow modules need, or one that waits a full second each;
// a flow that stands still behind one silent command, or gives up on it at once; anything slow
// between the registration answer and the word that a host waits for.
TEST_F(Pace, OfCommandsSilencesAndTheReadyWord)
{
    set_pace(1);
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
        return std::chrono::duration_cast<milliseconds>(times[to].first - times[from].first);
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
