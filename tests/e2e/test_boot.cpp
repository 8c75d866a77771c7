// The pace of a start, and the start of a modem in low power mode.
#include "story.h"

using namespace kelo_story;

using Pace = Story;

// Catches: commands without the pace that slow modules need, or one that waits a full second each.
TEST_F(Pace, Commands)
{
    plug("EC25");
    const Clock::time_point begin = Clock::now();
    start();
    ASSERT_TRUE(wire("AT+CGMM", 1200ms));
    EXPECT_LE(since(begin), within(1200ms)); // the shell lines of the start included
    ASSERT_TRUE(wire("AT+QCCID", 20s));
    const auto times = command_times();
    ASSERT_GE(times.size(), 8u);
    const auto gap = [&](std::size_t from, std::size_t to) {
        return std::chrono::duration_cast<milliseconds>(times[to].first - times[from].first);
    };
    const milliseconds slack = sanitized ? 250ms : 100ms;
    EXPECT_GE(gap(0, 1), 500ms - slack);
    EXPECT_LE(gap(0, 1), within(700ms));
    EXPECT_LE(gap(1, 2), within(300ms)); // the pair of the second
    for (std::size_t i = 0; i + 2 < times.size(); i++)
        EXPECT_GE(gap(i, i + 2), 500ms - slack) << times[i].second;
    // Three seconds of silence end the query, which this modem answers with an OK alone.
    EXPECT_GE(gap(3, 4), 3000ms - slack);
    EXPECT_LE(gap(3, 4), within(4500ms));
}

namespace
{

// clang-format off
const Lines low_power_rows = {
    "AT+CGMM", "AT+CGMR", "AT+CGSN", "ATI", "AT+QSCLK=1", "AT+QCFG=\"risignaltype\",\"physical\"",
    "AT+QSIMDET=1,0", "AT+QMBNCFG=\"AutoSel\",1", "at+qcfg=\"ims\",1", "AT+CREG=1",
    "AT+QINDCFG=\"act\",1,1 ", "at+qcfg=\"urc/ri/smsincoming\",\"pulse\",20,1",
    "at+qcfg=\"urc/ri/other\",\"pulse\",20,1",
    "at+qcfg=\"urc/ri/ring\",\"always\",120,1,4000,\"on\",1", "AT+QSSLCFG=\"seclevel\",1,0",
    "AT+QSSLCFG=\"ignorelocaltime\",1,1", "AT+QSSLCFG=\"ignoreinvalidcertsign\",1,1",
    "AT+QSSLCFG=\"ignoremulticertchainverify\",1,1", "AT+QSSLCFG=\"sni\",1,1",
};
// clang-format on

using LowPower = Story;

} // namespace
