#include "status.h"

#include <gtest/gtest.h>

namespace kelo_host
{

namespace
{

// Operator names come from the air, and must not drive the terminal.
TEST(Status, PrintsNothingThatActsOnATerminal)
{
    const struct {
        const char* text;
        const char* shown;
    } rows[] = {
        {"Telekom.de", "Telekom.de"},
        {"Télékom \xe4\xb8\xad", "Télékom \xe4\xb8\xad"},
        {"a\x1b[2Jb\r\n\x7f", "a?[2Jb???"},
        {"\xc2\x9b"
         "2J", // one C1 control
         "?2J"},
        {"\xe4\xb8", "??"},                // cut off
        {"\xc0\xaf\xed\xa0\x80", "?????"}, // overlong, surrogate
    };
    for (const auto& row : rows)
        EXPECT_EQ(printable(row.text), row.shown);
}

TEST(Status, ReadsBothSignalRanges)
{
    const struct {
        int rssi;
        Json dbm;
    } rows[] = {{0, nullptr},  {1, -111},   {31, -51},  {32, nullptr},
                {99, nullptr}, {100, -116}, {191, -25}, {199, nullptr}};
    for (const auto& row : rows)
        EXPECT_EQ(signal_dbm(row.rssi), row.dbm) << row.rssi;
}

TEST(Status, TellsWhatChanged)
{
    const Json before = {{"operator", nullptr}, {"sms", 1}};
    const Json now = {{"operator", "Tele\"kom"}, {"sms", 1}};
    EXPECT_EQ(changes(before, now), std::vector<std::string>{"operator: - -> Tele\"kom"});
    EXPECT_EQ(changes(now, now), std::vector<std::string>());
}

} // namespace

} // namespace kelo_host
