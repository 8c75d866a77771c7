// SPDX-License-Identifier: MIT
// A modem that says anything.
#include "tests/e2e/story.h"

#include <numeric>

using namespace kelo_story;

namespace
{

std::string every_byte()
{
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    return bytes;
}

using Hostile = Story;

} // namespace

// Catches: bytes that break the cutting into lines, or the lines behind them; control characters
// that stop our own commands or throw lines away on a port as a fresh serial device is set.
TEST_F(Hostile, NoiseBetweenReports)
{
    plug_unknown();
    ASSERT_EQ(std::system("stty -F /dev/ttyUSB2 sane ixon"), 0);
    start_and_come_to_rest();
    const std::string nul(3, '\0');
    const std::string noises[] = {
        every_byte() + every_byte() + "\r\n",
        "\x03\x1a\x1c\x13\r\nOK\r\n\x13", // the last is XOFF
        nul + "\r\n" + nul,
        std::string(100000, 'x') + "\r\n",
        std::string(100000, '\n'),
        "+CSQ: 1",                                     // half a report, and no more of it
        "+CLIP: \"" + std::string(5000, '9') + "\r\n", // no closing quote
        "+QGPSLOC: " + std::string(2000, ',') + "\r\nservice cell:\r\n+CMT: ,\r\n+CMTI:\r\n",
    };
    int rssi = 0;
    for (const std::string& noise : noises) {
        modem.raw(noise);
        quiet(300ms); // what came before was read by itself
        modem.report("+CSQ: " + std::to_string(++rssi) + ",99");
        EXPECT_SOON(record().rssi == rssi) << rssi;
    }
    // A report survives NUL bytes around and inside it.
    modem.raw(nul + "\r\n+CS" + nul + "Q: 30,99\r\n" + nul);
    EXPECT_SOON(record().rssi == 30);
    // Commands of the host reach the wire, at rest and behind all that.
    EXPECT_EQ(libgsm_send_at("AT+CSQ"), 0);
    EXPECT_TRUE(wire("AT+CSQ", 2s));
    EXPECT_EQ(modem.count("*reboot*"), 0u);
}

// Catches: memory that an endless stream takes, and commands that wait for a silence that never
// comes.
TEST_F(Hostile, EndlessStream)
{
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
    while (since(begin) < 14s) {
        most = std::max(most, heap_bytes());
        usleep(1000);
    }
    EXPECT_LE(most, before + 512 * 1024);            // one read, at most
    EXPECT_SOON(heap_bytes() <= before + 64 * 1024); // passes hold a buffer now and then
    EXPECT_GT(modem.endless_bytes(), 100u * 1024);
    EXPECT_LE(stop(), within(3s));
}
