// SPDX-License-Identifier: MIT
// Months at rest, in small: reports come, nothing grows, next to nothing is used.
#include "tests/e2e/story.h"

#include <cstdlib>

using namespace kelo_story;

using Life = Story;

// Catches: memory that a report or an idle second leaves behind, and a task that is busy at rest.
TEST_F(Life, KELO_LIFE_NAME)
{
    constexpr int seconds = KELO_LIFE_SECONDS;
    if (seconds > 60 && std::getenv("KELO_LONG") == nullptr)
        GTEST_SKIP() << "runs with KELO_LONG in the environment";
    constexpr const char* reports[] = {
        "RING",
        "+CLIP: \"+4915112345678\",145,,,,0",
        "+CSQ: 17,99",
        "+QENG: \"servingcell\",\"NOCONN\",\"LTE\",\"FDD\",262,01,1A2F403,214,1300,3,5,5,5A1C,-97,"
        "-11,-66,14,31",
        "+CUSD: 0,\"Guthaben 4,20 EUR\",15",
        "+QIURC: \"pdpdeact\",1",
        "+QMTRECV: 0,1,\"door\",\"open\"",
    };
    pace = 1;
    start_and_come_to_rest();
    const auto live = [&](std::size_t reports_to_send) {
        for (std::size_t i = 0; i < reports_to_send; i++) {
            modem.report(reports[i % std::size(reports)]);
            usleep(500000);
            modem.clear_log();
        }
    };
    live(std::size(reports)); // once each, so that what is made once is made
    const std::size_t heap = heap_bytes();
    const std::int64_t cpu = thread_cpu_us("MobileTask");
    ASSERT_GE(cpu, 0);
    const monotonic_clock::time_point begin = monotonic_clock::now();
    live(2 * seconds);
    const std::int64_t lived_us = since(begin).count() * 1000;
    EXPECT_LE(heap_bytes(), heap + 16 * 1024);
    // 0.2 % of a core.
    EXPECT_LE(thread_cpu_us("MobileTask") - cpu, lived_us / 500 * (sanitized ? 20 : 1));
    EXPECT_EQ(record().rsrp, -97);
    EXPECT_EQ(cellular_is_mqtt_received(), 1);
}
