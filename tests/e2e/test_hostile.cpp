// A modem that says anything.
#include "tests/e2e/story.h"

using namespace kelo_story;

namespace
{

std::string every_byte()
{
    std::string bytes;
    for (int value = 0; value < 256; value++)
        bytes += static_cast<char>(value);
    return bytes;
}

class Hostile : public Story
{
  protected:
    void expect_working(int rssi)
    {
        quiet(300ms); // what came before was read by itself
        modem.report("+CSQ: " + std::to_string(rssi) + ",99");
        EXPECT_TRUE(eventually([&] { return record().rssi == rssi; }, within(3s))) << rssi;
    }
    // The least of one second: passes hold a buffer now and then.
    static std::size_t heap_at_rest()
    {
        std::size_t least = heap_bytes();
        for (int i = 0; i < 100; i++, usleep(10000))
            least = std::min(least, heap_bytes());
        return least;
    }
};

} // namespace

// Catches: bytes that break the cutting into lines, or the lines behind them.
TEST_F(Hostile, NoiseBetweenReports)
{
    start_and_come_to_rest();
    const std::string nul(3, '\0');
    const std::string noises[] = {
        every_byte() + every_byte() + "\r\n",
        nul + "\r\n" + nul,
        std::string(100000, 'x') + "\r\n",
        std::string(100000, '\n'),
        "+CSQ: 1",                                     // half a report, and no more of it
        "+CLIP: \"" + std::string(5000, '9') + "\r\n", // no closing quote
        "+QGPSLOC: " + std::string(2000, ',') + "\r\nservice cell:\r\n+CMT: ,\r\n+CMTI:\r\n",
    };
    int rssi = 1;
    for (const std::string& noise : noises) {
        modem.raw(noise);
        expect_working(rssi++);
    }
    // A report survives NUL bytes around and inside it.
    modem.raw(nul + "\r\n+CS" + nul + "Q: 30,99\r\n" + nul);
    EXPECT_TRUE(eventually([&] { return record().rssi == 30; }, within(3s)));
    // Commands of the host reach the wire, at rest and behind all that.
    EXPECT_EQ(libgsm_send_at("AT+CSQ"), 0);
    EXPECT_TRUE(wire("AT+CSQ", 2s));
    EXPECT_EQ(modem.count("*reboot*"), 0u);
}

// Catches: a flow that waits for ever on half an answer, or on a module that restarted.
TEST_F(Hostile, HalfAnswersAndResetInMidCommand)
{
    change(9, 2); // AT+CGMM would have 30 seconds
    plug("EC25", {{"reset_ms", "1500"}});
    order("partial 9 AT+CGMM"); // "EC25" and no OK
    order("reset on AT+CGMR");
    start();
    ASSERT_TRUE(wire("AT+CGMR", 6s));
    EXPECT_GE(gap_behind("AT+CGMM"), real(1900ms));
    EXPECT_TRUE(says("/dev/ttyUSB: No such file or directory\n", within(4s)));
    EXPECT_TRUE(eventually([] { return access(port, F_OK) == 0; }, within(4s)));
    EXPECT_TRUE(modem.wait_sent("+QIND: PB DONE", within(4s)));
    EXPECT_LE(stop(), within(3s));
}

// Catches: memory that an endless stream takes, and commands that wait for a silence that never
// comes.
TEST_F(Hostile, EndlessStream)
{
    set_pace(1);
    change(9, 2);
    bare_port bare(port);
    bare.talk("$GPGSV,4,1,13,02,32,118,22*7F\r\n" + every_byte() + std::string(2000, 'x') +
              "\r\nRING\r\n");
    ASSERT_EQ(cellular_gsm_init(0), 0);
    usleep(200000);
    const std::size_t before = heap_bytes();
    const monotonic_clock::time_point begin = monotonic_clock::now();
    start();
    ASSERT_TRUE(bare.hears("AT+CGMM\r\n", within(3s)));
    EXPECT_EQ(libgsm_send_at("AT+HELLO"), 0);
    EXPECT_TRUE(bare.hears("AT+HELLO\r\n", within(3s)));
    EXPECT_TRUE(bare.hears("AT+CGMR\r\n", within(16s))); // time itself ticks
    std::size_t most = 0;
    while (since(begin) < 14s) {
        most = std::max(most, heap_bytes());
        usleep(1000);
    }
    EXPECT_LE(most, before + 512 * 1024); // one read, at most
    EXPECT_LE(heap_at_rest(), before + 64 * 1024);
    EXPECT_LE(stop(), within(3s));
}

// Catches: control characters of the modem that stop our own commands or throw lines away, on a
// port with the settings that a fresh serial device has.
TEST_F(Hostile, ControlCharactersReachNoLineDiscipline)
{
    bare_port bare(port);
    start();
    ASSERT_TRUE(bare.hears("AT+CGMM\r\n", within(3s)));
    bare.talk("\r\nEC25\r\n\x03\x1a\x1c\x13\r\nOK\r\n\x13", 100ms); // 0x13 is XOFF
    EXPECT_TRUE(bare.hears("AT+CGMR\r\n", within(3s)));
    EXPECT_EQ(libgsm_send_at("AT+HELLO"), 0);
    EXPECT_TRUE(bare.hears("AT+HELLO\r\n", within(3s)));
    EXPECT_STREQ(record().model, "EC25");
}
