// SPDX-License-Identifier: MIT
// The text of a message, held to the C library's own way, and what is printed of it.
#include "tests/testing.h"

#include <iconv.h>
#include <random>

// As iconv has it, behind the mark: what it wrote, and its length, -1 where it stopped or the room
// was full.
static std::pair<int, std::string> by_iconv(const std::string& data, std::size_t room)
{
    std::string in = "\xFE\xFF" + data, out(room, '\0');
    char *from = in.data(), *to = out.data();
    std::size_t left_in = in.size(), left = room;
    const iconv_t descriptor = iconv_open("UTF-8", "UCS-2BE");
    const bool whole =
        iconv(descriptor, &from, &left_in, &to, &left) != static_cast<std::size_t>(-1);
    iconv_close(descriptor);
    const bool good = whole && left > 0;
    if (!good)
        out[room - 1] = '\0';
    return {good ? static_cast<int>(room - left) : -1, out};
}

// Catches: a character, half a pair, or an end of the room that is taken in another way.
TEST(Charset, IsThatOfTheCLibrary)
{
    const captured said; // of each that it stops at
    std::mt19937 chance(7);
    const auto text_of_units = [&](int units) {
        std::string text;
        for (int i = 0; i < 2 * units; i++)
            text += static_cast<char>(chance() % (i % 2 == 0 ? 0xE0 : 0x100));
        return text;
    };
    std::vector<std::string> texts = {"", std::string("\0", 1), std::string("\0A\0", 3)};
    for (int unit = 0; unit < 0x10000; unit += unit < 0x900 || unit > 0xD700 ? 1 : 37)
        texts.push_back({static_cast<char>(unit >> 8), static_cast<char>(unit)});
    for (int i = 0; i < 300; i++)
        texts.push_back(text_of_units(i % 40));
    for (const std::string& text : texts)
        for (const std::size_t room : {1, 2, 3, 4, 5, 6, 7, 20, 121, 1024}) {
            std::string out(room, 'x');
            const int made =
                sms_get_str(reinterpret_cast<const unsigned char*>(text.data()),
                            static_cast<int>(text.size()), out.data(), static_cast<int>(room));
            ASSERT_EQ(std::pair(made, out), by_iconv(text, room))
                << testing::PrintToString(text) << room;
        }
}

// Catches: a line, a number's form or an order that differs from what has been printed for long.
TEST(Charset, EachFieldIsPrinted)
{
    struct {
        const char *pdu, *lines;
    } const rows[] = {
        {"0791947101670000040D91945111325476F8000842507190032180044F60597D",
         "SMSC Length = 7\nSMSC Type-of-address = 0x91\nSMSC Number = +491710760000\n"
         "PDU First Octet = 0x4\nSender number length = 13\nSender Type-of-address = 0x91\n"
         "Sender Number = +4915112345678\nTP-PID = 0\nTP-DCS = 0x8\nTimestamp = 24051709301208\n"
         "User data length = 4\nUser data = 4F60597D\nUser data 8bit = \n"},
        {"00040B819051154365F700F3425071900321800231F1",
         "SMSC Length = 0\nPDU First Octet = 0x4\nSender number length = 11\n"
         "Sender Type-of-address = 0x81\nSender Number = 09155134567\nTP-PID = 0\nTP-DCS = 0xf3\n"
         "Timestamp = 24051709301208\nUser data length = 2\nUser data = 31F1\nUser data 8bit = "
         "1b\n"},
    };
    for (const auto& [pdu, lines] : rows) {
        captured said;
        event what = {};
        EXPECT_EQ(libgsm_pdu_decode(&g_mobile, &what, pdu), 0);
        EXPECT_EQ(said.text(), lines);
    }
}
