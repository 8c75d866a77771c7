// SPDX-License-Identifier: MIT
// A modem that says anything.
#include "tests/e2e/noise.h"

using namespace kelo_story;

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
