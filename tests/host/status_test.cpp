#include "status.h"

#include <gtest/gtest.h>

namespace kelo_host
{

namespace
{

// Operator names come from the air, and must not drive the terminal.
TEST(Status, PrintsNothingThatActsOnATerminal)
{
    constexpr std::pair<const char*, const char*> rows[] = {
        {"Télékom \xe4\xb8\xad", "Télékom \xe4\xb8\xad"},
        {"a\x1b[2Jb\r\n\x7f", "a?[2Jb???"},
        {"\xc2\x9b"
         "2J",
         "?2J"},                           // one C1 control
        {"\xe4\xb8", "??"},                // cut off
        {"\xc0\xaf\xed\xa0\x80", "?????"}, // overlong, surrogate
    };
    for (const auto& [text, shown] : rows)
        EXPECT_EQ(printable(text), shown);
}

TEST(Status, ReadsBothSignalRanges)
{
    const std::pair<int, Json> rows[] = {{0, nullptr},  {1, -111},   {31, -51},  {32, nullptr},
                                         {99, nullptr}, {100, -116}, {191, -25}, {199, nullptr}};
    for (const auto& [rssi, dbm] : rows)
        EXPECT_EQ(signal_dbm(rssi), dbm) << rssi;
}

} // namespace

} // namespace kelo_host
