// SPDX-License-Identifier: MIT
// Texts into the parts of messages, and back: what goes out is read as a phone would read it.
#include "tests/sms/messages.h"

static std::string composed(const std::string& text, int part, const submit_options& options)
{
    const auto cut = sms_compose(text);
    const auto pdu = cut ? sms_compose_part(*cut, text, part, options) : std::nullopt;
    return pdu ? std::string(pdu->items, pdu->count) : "";
}

// TP-UDL of each part. The text comes back part by part, so that none has half a character.
static std::vector<int> round_trip(const std::string& text)
{
    const int parts = sms_compose(text).value_or(composed_text()).parts;
    std::vector<int> udl;
    std::string all;
    for (int part = 1; part <= parts; part++) {
        const std::string pdu = composed(text, part, {.destination = "+123", .reference = 9});
        udl.push_back(gsm_hex2int(pdu.data() + 20, 2));
        const auto read = sms_read_deliver(delivered(pdu));
        const part_numbers numbers = read->numbers;
        EXPECT_EQ(joined(numbers.reference, numbers.number, numbers.total),
                  parts == 1 ? "0|0|0" : joined(9, part, parts));
        all += utf8_of(read->content);
    }
    EXPECT_TRUE(all == text || parts == 0) << text;
    return udl;
}

TEST(Compose, Parts)
{
    const std::pair<std::string, std::vector<int>> rows[] = {
        {gsm7_all, {127}},
        {"\f^{}\\[~]|€", {20}},
        {repeat("a", 160), {160}},
        {repeat("a", 161), {160, 15}},
        {repeat("Ω", 306) + "é", {160, 160, 8}},
        {repeat("€", 81), {159, 17}}, // the two septets of one stay together
        {"ç", {2}},                   // the alphabet has the capital alone
        {repeat("告", 71), {140, 14}},
        {repeat("😀", 36), {138, 18}},
        {repeat("a", 153 * 255), std::vector<int>(255, 160)},
        {repeat("a", 153 * 255 + 1), {}},
        {repeat("ä", 67 * 255) + "ё", {}}};
    for (const auto& [text, udl] : rows)
        EXPECT_EQ(round_trip(text), udl) << text.substr(0, 40);
    // No UTF-8: a lone byte behind and ahead, longer than need be, half a pair, beyond the last
    // character, broken off.
    for (const char* text : {"", "a\x80", "\xC3g", "\xC0\x80", "\xE0\x9F\xBF", "\xED\xA0\x80",
                             "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "a\xF0\x9F\x98"})
        EXPECT_FALSE(sms_compose(text)) << text;

    // What takes two places, wherever it stands ahead of a border, in one part or more.
    for (const auto& [piece, wide, border] : {std::tuple("告", "😀", 70), {"x", "€", 160}})
        for (int ahead = border - 12; ahead <= border; ahead++)
            for (const int more : {0, 1, border})
                round_trip(repeat(piece, ahead) + wide + repeat(piece, more));
}

TEST(Compose, Pdus)
{
    const std::tuple<std::string, submit_options, std::string> rows[] = {
        {"Hi", {.destination = "+123", .validity = 0x0B}, "001100039121F300000B02C834"},
        {"Hi", {.sca = "+123", .destination = "12345"}, "039121F3110005812143F50000FF02C834"},
        {"Hi", {.sca = "no", .destination = "+123", .report = true}, "003100039121F30000FF02C834"},
        {"Hi", {.destination = "+123", .flash = true}, "001100039121F30010FF02C834"},
        {"ё", {.destination = "+123", .flash = true}, "001100039121F30018FF020451"}};
    for (const auto& [text, options, pdu] : rows)
        EXPECT_EQ(composed(text, 1, options), pdu);
    for (const char* number : {"", "+", "1+2", "123456789012345678901"})
        EXPECT_EQ(composed("Hi", 1, {.destination = number}), "") << number;
    // Behind the header one bit is left free, as two other encoders have it.
    const std::string text = repeat("a", 153) + "part two of two";
    const submit_options options = {.destination = "+123", .reference = 0x5A};
    EXPECT_EQ(delivered(composed(text, 2, options)).substr(30), std::string(pdu_part).substr(54));
    EXPECT_EQ(composed(text, 0, options) + composed(text, 3, options), "");
}

// TP-VP, for at least as long as was asked.
TEST(Compose, Validity)
{
    std::ostringstream values;
    for (const unsigned minutes :
         {0u, 1u, 5u, 6u, 60u, 720u, 721u, 1440u, 1441u, 10080u, 43200u, 43201u, 635040u, UINT_MAX})
        values << std::hex << +sms_validity(minutes) << ' ';
    EXPECT_EQ(values.str(), "ff 0 0 1 b 8f 90 a7 a8 ad c4 c5 ff ff ");
}
