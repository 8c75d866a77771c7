// SPDX-License-Identifier: MIT
// Septets, character sets and received PDUs: real ones, the quirks, and broken ones.
#include "tests/sms/messages.h"

static std::string numbers_of(const long_sms_info* info)
{
    return info == nullptr ? "single" : joined(info->flag, info->now, info->total);
}

static std::string decoded(const std::string& pdu)
{
    const captured quiet;
    const event& e = gsm_event;
    if (libgsm_pdu_decode(&g_mobile, &gsm_event, pdu.c_str()) != 0)
        return "refused";
    return joined(e.smsc, e.sender, e.sms_time, e.time_zone, e.length, e.coding, e.text,
                  numbers_of(e.long_sms));
}

// A PDU with this behind its time stamp, and these fields ahead of it.
static std::string with_data(const std::string& first, const std::string& dcs,
                             const std::string& data)
{
    return "00" + first + "039121F300" + dcs + "12305021436523" + data;
}

TEST(Alphabet, Packing)
{
    const std::tuple<std::string, int, int, std::string> rows[] = {
        {"@", 1, 1, "00"},
        {"", 0, 0, ""},
        {"1234567", 7, 7, "31D98C56B3DD00"},
        {"12345678", 7, 8, "31D98C56B3DD70"},
        {"[a", 3, 3, "1B5E18"},
        {"a\xCE\x94", 2, 2, "6108"}, // a Greek pair is one septet
        {"a\xCE", 1, 1, "E1"},       // swallows the terminator, which was to flush it
        {"\xA4\xFC", 2, 2, "243F"},  // ISO 8859-1 bytes have septets too
        {"\t", 1, 1, "09"},          // what has none stands for itself
        {std::string(319, 'a'), 280, 319 - 256, ""},
        {std::string(320, 'a'), -1, 0xEE, ""}, // refused
        {std::string(318, 'a') + "[", -1, 0xEE, ""},
    };
    for (const auto& [text, octets, septets, packed] : rows) {
        octet out[320];
        octet udl = 0xEE;
        const int room = static_cast<int>(text.size()) + 1;
        EXPECT_EQ(corvel_mobile_sms_encode_gsm7bit(text.c_str(), out, room, &udl), octets);
        EXPECT_EQ(udl, septets) << text;
        pdu_text hex;
        sms_hex_encode(hex, std::span(out).first(packed.size() / 2));
        EXPECT_EQ(hex.items, packed) << text;
    }
}

// Also a header so long that its bits wrap round to none.
TEST(Alphabet, BehindAHeader)
{
    const octet septets[16] = {};
    for (const auto& [header, left] :
         {std::pair(std::size_t(0), 16u), {6, 9}, {7, 8}, {14, 0}, {SIZE_MAX / 8 + 1, 0}})
        EXPECT_EQ(gsm7_behind(septets, header).size(), left) << header;
}

TEST(Decoder, Messages)
{
    const std::string quirk = "|+123|2021-03-05 12:34:56|GMT+8|";
    const std::string mark = "\xEF\xBB\xBF";
    const std::pair<std::string, std::string> rows[] = {
        {pdu_door,
         "+491710760000|+4915112345678|2024-05-17 09:30:12|GMT+2|11|0|Door 3 open|single"},
        {pdu_part,
         "+491710760000|+4915112345678|2024-05-17 09:32:00|GMT+2|16|0|part two of two|90|2|2"},
        {"0791947101670000040BD0D4329B5E660300004250719013008002C834",
         "+491710760000|Teltel|2024-05-17 09:31:00|GMT+2|2|0|Hi|single"},
        {"0891683108100005F0040D91683119325476F800084250719003212308544A8B6600200032",
         "+8613800100500|+8613912345678|2024-05-17 09:30:12|GMT+8|11|1|" + mark + "告警 2|single"},
        {"00040000001230502143650A02C834", "||2021-03-05 12:34:56|GMT-5|2|0|Hi|single"},
        // Bit 3 of the coding alone decides, and one escape takes the text to UTF-8.
        {with_data("04", "C8", "020048"), quirk + "4|1|" + mark + "H|single"},
        {with_data("04", "F4", "02C834"), quirk + "2|0|Hi|single"},
        {with_data("04", "00", "031B5E18"), quirk + "5|2|" + mark + "[a|single"},
        {with_data("04", "00", "021B14"), quirk + "4|2|" + mark + "{|single"},
        {with_data("04", "00", "029B32"), quirk + "6|2|" + mark + "ÿe|single"}, // no euro
        {with_data("04", "00", "021008"), quirk + "7|2|" + mark + "ΔΔ|single"},
        {with_data("04", "00", "0831D98C56B3DD00"), quirk + "8|0|1234567@|single"},
        {with_data("04", "00", "00"), quirk + "0|0||single"},
        {with_data("44", "00", "0A06080412340201C834"), quirk + "3|0|Hi|4660|1|2"},
        // A header longer than the message: what stands behind stays.
        {with_data("44", "00", "0AC8" + std::string(20, '0')), quirk + "10|0|Hi|4660|1|2"},
        {"", "refused"},
        {"0791947101670", "refused"},
        {"11919471016700000000000000000000000000000000FF", "refused"},
        {"00041F910000000000000000000000000000000000000000000000", "refused"},
        {"07919471016700000440D9", "refused"},
    };
    for (const auto& [pdu, read] : rows)
        EXPECT_EQ(decoded(pdu), read) << pdu;
    EXPECT_STREQ(gsm_event.text, "Hi") << "a refused one changes nothing";
}

// Each header ahead of "Hi" in UCS-2.
TEST(Decoder, Headers)
{
    const std::tuple<std::string, const char*, const char*> rows[] = {
        {"06080412340201", "4660|1|2", "The long sms flag 0x1234 , total 2 , now is 1\n"},
        {"0B0504158A000000032A0301", "42|1|3", "The User Data Header (0504158A0000) Info"},
        {"0A00030102010003070403", "7|3|4", "flag 0x7"}, // the last one counts
        {"03020000", "0|0|0", "The 8bit flag long sms user data () is too short"},
        {"050803123402", "0|0|0", "The 16bit flag long sms user data (123402) is too short"},
        {"0900032A030100030102", "42|1|3", "ends early"}, // runs past the header
        {"0100", "0|0|0", "ends early"},                  // without a length
        {"080202020202020202", "0|0|0", "Reserved for future use"},
    };
    for (const auto& [header, numbers, said] : rows) {
        const captured output;
        char udl[3];
        std::snprintf(udl, sizeof udl, "%02X", static_cast<octet>(header.size() / 2 + 4));
        const std::string pdu = with_data("44", "08", udl + header + "00480069");
        EXPECT_EQ(libgsm_pdu_decode(&g_mobile, &gsm_event, pdu.c_str()), 0);
        EXPECT_STREQ(gsm_event.text, "\xEF\xBB\xBFHi") << header;
        EXPECT_EQ(numbers_of(gsm_event.long_sms), numbers) << header;
        EXPECT_TRUE(output.has(said)) << header;
    }
    decoded(with_data("44", "08", "FF900003070403")); // a header longer than the PDU
    EXPECT_EQ(numbers_of(gsm_event.long_sms), "0|0|0");
}
