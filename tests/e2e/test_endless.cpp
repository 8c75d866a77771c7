// SPDX-License-Identifier: MIT
// A modem that never falls silent.
#include "tests/e2e/noise.h"

#include <cstdlib>

using namespace kelo_story;

// Catches: memory that an endless stream takes, and commands that wait for a silence that never
// comes.
TEST_F(Hostile, KELO_STREAM_NAME)
{
    constexpr std::chrono::seconds lasts(KELO_STREAM_SECONDS);
    if (lasts > 60s && std::getenv("KELO_LONG") == nullptr)
        GTEST_SKIP() << "runs with KELO_LONG in the environment";
    pace = 1;
    change(9, 2);
    plug("EC25");
    order("silence on");
    order("endless on $GPGSV,4,1,13,02,32,118,22*7F\\r\\n" + every_byte() + std::string(2000, 'x') +
          "\\r\\nRING\\r\\n");
    ASSERT_EQ(cellular_gsm_init(0), 0);
    usleep(200000);
    const std::size_t before = heap_bytes();
    const monotonic_clock::time_point begin = monotonic_clock::now();
    start();
    ASSERT_TRUE(wire("AT+CGMM", 3s));
    EXPECT_EQ(libgsm_send_at("AT+HELLO"), 0);
    EXPECT_TRUE(wire("AT+HELLO", 3s));
    EXPECT_TRUE(wire("AT+CGMR", 16s)); // time itself ticks
    std::size_t most = 0;
    while (since(begin) < lasts) {
        most = std::max(most, heap_bytes());
        usleep(1000);
    }
    EXPECT_LE(most, before + 512 * 1024);            // one read, at most
    EXPECT_SOON(heap_bytes() <= before + 64 * 1024); // passes hold a buffer now and then
    EXPECT_GT(modem.endless_bytes(), 100u * 1024);
    EXPECT_LE(stop(), within(3s));
}
