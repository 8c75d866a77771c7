// SPDX-License-Identifier: MIT
// A record of a field fault, read and played back without a port.
#include "emulator/record_line.h"
#include "emulator/replay.h"

#include <gtest/gtest.h>
#include <sstream>

using namespace kelo_emulator;
using namespace kelo_record;

namespace
{

// What the modem says to a host: rows `time what-the-host-says`, each given at its time; in between
// the time goes on. Gives "time what" of what the modem does, control characters left out.
std::string dialogue(record_player& player, std::vector<std::pair<long long, std::string>> host,
                     long long until)
{
    std::string all;
    for (long long now = 0; now <= until; now += 100) {
        while (!host.empty() && host.front().first <= now) {
            player.hear(host.front().second, now);
            host.erase(host.begin());
        }
        for (const record_player::action& one : player.due(now)) {
            std::string text = one.what == record_player::deed::say        ? one.bytes
                               : one.what == record_player::deed::node_off ? "(off)"
                                                                           : "(on)";
            std::erase_if(text, [](char c) { return c < ' '; });
            all += std::to_string(now) + " " + text + "|";
        }
    }
    return all;
}

std::string notes_of(record_player& player)
{
    std::string all;
    for (const std::string& one : player.take_notes())
        if (!one.starts_with("the record has ended"))
            all += one + "|";
    return all;
}

} // namespace

// Catches: a byte that is not the same behind a record, and a line of a hostile one that is taken.
TEST(RecordLine, GoesRound)
{
    std::string every;
    for (int byte = 0; byte < 256; byte++)
        every += static_cast<char>(byte);
    for (const record_line& line :
         {record_line{12345, origin::host, "AT+CSQ\r\n"}, record_line{0, origin::modem, every},
          record_line{99999999999, origin::port, "gone /dev/ttyUSB2"}}) {
        const auto back = parse_line(text_of(line));
        ASSERT_TRUE(back) << text_of(line);
        EXPECT_EQ(std::tuple(back->ms, back->from, back->bytes),
                  std::tuple(line.ms, line.from, line.bytes));
    }
    EXPECT_EQ(text_of({12345, origin::host, "a\\\r\x1a"}), "   12.345 >> a\\\\\\r\\x1A");
    for (const char* bad :
         {"", "12.345", "12.345 >>", "12.345 >>AT", "12.34 >> AT", "-1.000 >> AT", "1.0000 >> AT",
          "1.-00 >> A", "12.345 <> AT", "1.000 >> \\", "1.000 >> \\x", "1.000 >> \\xG0",
          "1.000 >> \\x4", "1.000 >> \\q", "1.000 >> \x01", "123456789012.000 >> AT"})
        EXPECT_FALSE(parse_line(bad)) << bad;
}

TEST(Replay, TellsABadRecordByItsLine)
{
    const std::string head = "# kelo-record 1 x\n", line = "1.000 >> AT\\r\n";
    const std::tuple<std::string, const char*> rows[] = {
        {"", "it holds nothing that was said on a port"},
        {head, "it holds nothing that was said on a port"},
        {head + line, ""},
        {line + "EC25 at /dev/ttyUSB2\n" + line, ""}, // the emulator's own, between its words
        {head + "1.000 >> \\x0\n" + line, "2: no line of a record"},
        {head + line + "1.000 >> \\x0", ""},       // a loss of power,
        {head + line + "1.0\n" + head + line, ""}, // and the run behind it
        {"# kelo-record 2 x\n" + line, "1: a record of a version that is not known"},
        {head + std::string(longest_line + 1, 'x'), "2: the line is too long"}};
    for (const auto& [text, fault] : rows) {
        record_player player;
        std::istringstream in(text);
        EXPECT_EQ(player.load(in), fault) << text.substr(0, 100);
    }
}

// Catches: a replay that stops because its host is not quite the one of the record, that answers
// while the recorded modem hung, or that says nothing of a difference.
TEST(Replay, FindsItsWay)
{
    const std::string record = "# kelo-record 1 x\n"
                               "0.000 -- open /dev/ttyUSB2\n"
                               "1.000 >> AT+CGMM\\r\\n\n"
                               "1.300 << AT+CGMM\\r\\r\\nEC25\\r\\n\\r\\nOK\\r\\n\n"
                               "2.000 >> AT+CPIN=*\\r\\n\n"
                               "2.100 << OK\\r\\n\n"
                               "2.500 >> AT+COPS?\\r\\n\n"
                               "2.600 << +CREG: 2\\r\\nAT+COPS?\\r\\n+COPS: 0\\r\\nOK\\r\\n\n"
                               "3.000 >> AT+CMGS=3\\r\\n\n"
                               "3.100 << > \n"
                               "3.200 >> *\\x1A\\r\\n\n"
                               "3.400 << +CMGS: 7\\r\\nOK\\r\\n\n"
                               "4.000 >> AT+QFUPL=\"a\",2,100\\r\\n\n"
                               "4.010 << CONNECT\\r\\n\n"
                               "4.100 >> **\n"
                               "4.100 >> **\n"
                               "4.200 << +QFUPL: 2\\r\\n\n"
                               "9.000 << +CREG: 1\\r\\n\n"
                               "20.000 >> AT+ONE\\r\\n\n"
                               "21.000 >> AT+TWO\\r\\n\n"
                               "22.000 -- gone /dev/ttyUSB2\n"
                               "24.000 -- close /dev/ttyUSB2\n"
                               "25.000 -- open /dev/ttyUSB2\n"
                               "25.100 >> AT+CSQ\\r\\n\n"
                               "25.200 << +CSQ: 9\\r\\nOK\\r\\n\n";
    struct row {
        const char* name;
        std::vector<std::pair<long long, std::string>> host;
        std::string modem, notes;
        bool got_over = true;
    };
    const std::string model = "AT+CGMMEC25OK|";
    const row rows[] = {
        {"as recorded, but for the bodies and how its bytes come",
         {{0, "AT+C"},
          {100, "GMM\r\n"},
          {1000, "AT+CPIN=\"1\"\r"},
          {1200, "\n"},
          {1500, "AT+COPS?\r\n"},
          {2000, "AT+CMGS=3\r\n"},
          {2200, "0A\r\n0B\x1a\r\n"},
          {3000, "AT+QFUPL=\"a\",2,100\r\n"},
          {3100, "x\ny\n"}},
         "400 " + model +
             "1100 OK|1600 +CREG: 2AT+COPS?+COPS: 0OK|2100 > |2400 +CMGS: 7OK|"
             "3100 CONNECT|3200 +QFUPL: 2|8000 +CREG: 1|",
         ""},
        {"one is left out: what the modem said by itself stays",
         {{0, "AT+CGMM\r\n"}, {1000, "AT+CPIN=1\r\n"}, {1500, "AT+CMGS=3\r\n"}},
         "300 " + model + "1100 OK|1500 +CREG: 2|1600 > |",
         "line 7: 'AT+COPS?' did not come|"},
        {"in another order, and once more",
         {{0, "AT+CGMM\r\n"},
          {1000, "AT+COPS?\r\n"},
          {1500, "AT+CPIN=1\r\n"},
          {1700, "AT+COPS?\r\n"}},
         "300 " + model + "1100 +CREG: 2AT+COPS?+COPS: 0OK|1600 OK|1800 AT+COPS?+COPS: 0OK|",
         ""},
        {"the record does not know it",
         {{0, "AT+CGMM\r\n"}, {500, "AT+NEW\r\n"}},
         "300 " + model + "500 ERROR|",
         "line 5: 'AT+CPIN=*' is awaited; the record does not know 'AT+NEW'|",
         false},
    };
    for (const row& one : rows) {
        SCOPED_TRACE(one.name);
        record_player player;
        std::istringstream in(record);
        ASSERT_EQ(player.load(in), "");
        EXPECT_EQ(dialogue(player, one.host, 9000), one.modem);
        EXPECT_EQ(notes_of(player), one.notes);
        EXPECT_EQ(player.got_over(), one.got_over);
    }

    // The host does not speak at the end, so that all of it is passed over; then it is silent, too.
    record_player player(10); // times as fast
    std::istringstream in(record);
    ASSERT_EQ(player.load(in), "");
    EXPECT_EQ(
        dialogue(
            player,
            {{0, "AT+CGMM\r\n"}, {1950, "AT+ONE\r\nAT+TWO\r\nAT+CGMM\r\n"}, {2400, "AT+CSQ\r\n"}},
            2600),
        "100 " + model + "1200 +CREG: 2|1400 +CREG: 1|2100 (off)|2400 (on)|2500 +CSQ: 9OK|");
}
