// SPDX-License-Identifier: MIT
#include "tests/testing.h"

// A broken line leaves the record as it was from the first column that fails.
TEST(Scan, StopsAtTheFirstPartThatFails)
{
    constexpr std::tuple<const char*, bool, int, int, const char*> rows[] = {
        {"1,2,\"x\"", true, 1, 2, "x"},        {"1,2,\"\"", false, 1, 2, "old"},
        {"1,,\"x\"", false, 1, -5, "old"},     {"", false, -5, -5, "old"},
        {"-,2,\"x\"", false, -5, -5, "old"},   {" \t1 ,2,\"x", false, 1, -5, "old"},
        {"+-1,2,\"x\"", false, -5, -5, "old"}, {"1,2,\"x", false, 1, 2, "x"},
    };
    for (const auto& [text, all, first_then, second_then, third_then] : rows) {
        SCOPED_TRACE(text);
        int first = -5, second = -5;
        char third[8] = "old";
        EXPECT_EQ(scan(text, dec(first), ",", dec(second), ",", quoted(third)), all);
        EXPECT_EQ(first, first_then);
        EXPECT_EQ(second, second_then);
        EXPECT_STREQ(third, third_then);
    }
}

// A number beyond its field has one reading, whatever the word size.
TEST(Scan, NumbersBeyondTheirFieldHaveOneReading)
{
    constexpr std::tuple<int, const char*, int> rows[] = {{10, "2147483648", INT_MAX},
                                                          {10, "-99999999999999999999999", INT_MIN},
                                                          {10, "18446744073709551617", INT_MAX},
                                                          {10, " +7", 7},
                                                          {16, "FFFFFFFF", -1},
                                                          {16, "712345678", 0x12345678},
                                                          {16, "-0x10", -16},
                                                          {16, "0xg", 0},
                                                          {16, "00000000000000000000a", 10}};
    for (const auto& [base, text, want] : rows) {
        int value = 42;
        EXPECT_TRUE(scan(text, base == 10 ? dec(value) : hex(value))) << text;
        EXPECT_EQ(value, want) << text;
    }
    std::uint64_t cell = 0;
    EXPECT_TRUE(scan("F1F23456789ABCDEF", hex(cell)));
    EXPECT_EQ(cell, 0x1F23456789ABCDEFull);
}
