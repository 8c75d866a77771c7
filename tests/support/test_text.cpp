#include "support/text.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace
{

using namespace kelo;

// A modem's column wider than the record's field must not lose the columns behind it.
TEST(TextScan, CutsALongTextAndReadsWhatStandsBehind)
{
    char oper[4] = "???";
    char word[4] = "???";
    int tech = 0;
    EXPECT_EQ(text_scan("+COPS: 0,\"Kelo Mobile\" longer 7", "+COPS: 0,\"%[^\"]\" %s %d", oper,
                        sizeof oper, word, sizeof word, &tech),
              3);
    EXPECT_STREQ(oper, "Kel");
    EXPECT_STREQ(word, "lon");
    EXPECT_EQ(tech, 7);
}

// A broken line leaves the record as it was from the first column that fails.
TEST(TextScan, StopsAtTheFirstConversionThatFails)
{
    struct row {
        const char* text;
        int values, first, second;
        const char* third;
    };
    constexpr row rows[] = {
        {"1,2,\"x\"", 3, 1, 2, "x"},     {"1,2,\"\"", 2, 1, 2, "old"},
        {"1,,\"x\"", 1, 1, -5, "old"},   {"", 0, -5, -5, "old"},
        {"-,2,\"x\"", 0, -5, -5, "old"}, {" \t1 ,2,\"x", 1, 1, -5, "old"},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.text);
        int first = -5, second = -5;
        char third[8] = "old";
        EXPECT_EQ(text_scan(r.text, "%d,%d,\"%[^\"]\"", &first, &second, third, sizeof third),
                  r.values);
        EXPECT_EQ(first, r.first);
        EXPECT_EQ(second, r.second);
        EXPECT_STREQ(third, r.third);
    }
}

// A number beyond its field has one reading, whatever the word size.
TEST(TextScan, NumbersBeyondTheirFieldHaveOneReading)
{
    struct row {
        const char *format, *text;
        int want;
    };
    constexpr row rows[] = {{"%d", "2147483648", INT_MAX},
                            {"%d", "-99999999999999999999999", INT_MIN},
                            {"%d", "18446744073709551617", INT_MAX},
                            {"%x", "FFFFFFFF", -1},
                            {"%x", "712345678", 0x12345678},
                            {"%x", "0x10", 16},
                            {"%x", "-1", -1}};
    for (const row& r : rows) {
        int value = 42;
        EXPECT_EQ(text_scan(r.text, r.format, &value), 1) << r.text;
        EXPECT_EQ(value, r.want) << r.text;
    }
    std::uint64_t cell = 0;
    EXPECT_EQ(text_scan("F0123456789ABCDEF", "%lx", &cell), 1);
    EXPECT_EQ(cell, 0x0123456789ABCDEFull);
}

} // namespace
