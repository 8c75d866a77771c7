#include "host/status.h"

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

} // namespace

} // namespace kelo_host
