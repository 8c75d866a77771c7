// Received PDUs: real ones, the quirks, and broken ones.
#include "messages.h"

using namespace kelo;
using namespace kelo::test;

namespace
{

int decode(const std::string& pdu)
{
    const captured quiet;
    return libgsm_pdu_decode(&g_mobile, &gsm_event, pdu.c_str());
}

// A PDU with this behind its time stamp, and these fields ahead of it.
std::string with_data(const std::string& first, const std::string& dcs, const std::string& data)
{
    return "00" + first + "039121F300" + dcs + "12305021436523" + data;
}

} // namespace

TEST(Decoder, RealMessages)
{
    struct {
        const char *pdu, *smsc, *sender, *time, *zone;
        int length, coding;
        const char* text;
    } const cases[] = {{pdu_hello, "+123", "+123", "2021-03-05 12:34:56", "GMT+8", 5, 0, "Hello"},
                       {pdu_door, "+491710760000", "+4915112345678", "2024-05-17 09:30:12", "GMT+2",
                        11, 0, "Door 3 open"},
                       {"0791947101670000040BD0D4329B5E660300004250719013008002C834",
                        "+491710760000", "Teltel", "2024-05-17 09:31:00", "GMT+2", 2, 0, "Hi"},
                       {"07912160130300F4040B912160550541F200004210203040502B02EF35",
                        "+12063130004", "+12065550142", "2024-01-02 03:04:05", "GMT-8", 2, 0, "ok"},
                       {pdu_chinese, "+8613800100500", "+8613912345678", "2024-05-17 09:30:12",
                        "GMT+8", 11, 1, "\xEF\xBB\xBF告警 2"}};
    for (const auto& c : cases) {
        EXPECT_EQ(decode(c.pdu), 0);
        EXPECT_STREQ(gsm_event.smsc, c.smsc);
        EXPECT_STREQ(gsm_event.sender, c.sender);
        EXPECT_STREQ(gsm_event.sms_time, c.time);
        EXPECT_STREQ(gsm_event.time_zone, c.zone);
        EXPECT_EQ(gsm_event.length, c.length);
        EXPECT_EQ(gsm_event.coding, c.coding);
        EXPECT_STREQ(gsm_event.text, c.text);
        EXPECT_EQ(gsm_event.long_sms, nullptr);
    }
}

TEST(Decoder, PartOfALongMessage)
{
    const captured output;
    EXPECT_EQ(libgsm_pdu_decode(&g_mobile, &gsm_event, pdu_part), 0);
    ASSERT_NE(gsm_event.long_sms, nullptr);
    EXPECT_EQ(gsm_event.long_sms->flag, 0x5A);
    EXPECT_EQ(gsm_event.long_sms->total, 2);
    EXPECT_EQ(gsm_event.long_sms->now, 2);
    const std::string said = output.text();
    EXPECT_NE(said.find("User Data Header Indicator = 1\nSMSC Length = 7\n"), std::string::npos);
    EXPECT_NE(
        said.find("ID     : 1    \nInfo   : (00035A0202)  \nIDIn   : 0x00\nMeaning: (The IDIn "
                  "0x00 is Concatenated short message , 8-bit reference number)  \n"),
        std::string::npos);
    EXPECT_NE(said.find("The long sms flag 0x5a , total 2 , now is 2\n"), std::string::npos);
    decode(pdu_door);
    EXPECT_EQ(gsm_event.long_sms, nullptr);
}

// Each header ahead of "Hi" in UCS-2.
TEST(Decoder, Headers)
{
    struct {
        const char* header;
        int flag, total, now;
        const char* said;
    } const cases[] = {
        {"06080412340201", 0x1234, 2, 1, "The long sms flag 0x1234"},
        {"0B0504158A000000032A0301", 0x2A, 3, 1, "The User Data Header (0504158A0000) Info"},
        {"0A00030102010003070403", 7, 4, 3, "flag 0x7"}, // the last one counts
        {"03020000", 0, 0, 0, "The 8bit flag long sms user data () is too short"},
        {"050803123402", 0, 0, 0, "The 16bit flag long sms user data (123402) is too short"},
        {"0900032A030100030102", 0x2A, 3, 1, "ends early"}, // runs past the header
        {"0100", 0, 0, 0, "ends early"},                    // without a length
        {"080202020202020202", 0, 0, 0, "Reserved for future use"}};
    for (const auto& c : cases) {
        const captured output;
        const int octets = static_cast<int>(std::strlen(c.header) / 2) + 4;
        char udl[3];
        std::snprintf(udl, sizeof udl, "%02X", octets);
        const std::string pdu = with_data("44", "08", std::string(udl) + c.header + "00480069");
        EXPECT_EQ(libgsm_pdu_decode(&g_mobile, &gsm_event, pdu.c_str()), 0);
        EXPECT_STREQ(gsm_event.text, "\xEF\xBB\xBFHi") << c.header;
        EXPECT_EQ(gsm_event.long_sms->flag, c.flag) << c.header;
        EXPECT_EQ(gsm_event.long_sms->total, c.total) << c.header;
        EXPECT_EQ(gsm_event.long_sms->now, c.now) << c.header;
        EXPECT_TRUE(output.has(c.said)) << c.header;
    }
}

TEST(Decoder, Quirks)
{
    // Bit 3 of the coding alone decides, and one escape takes the text to UTF-8.
    for (const char* dcs : {"08", "18", "0C", "C8"}) {
        EXPECT_EQ(decode(with_data("04", dcs, "020048")), 0);
        EXPECT_EQ(gsm_event.coding, 1) << dcs;
    }
    for (const char* dcs : {"00", "04", "10", "F0", "F4"}) {
        EXPECT_EQ(decode(with_data("04", dcs, "02C834")), 0);
        EXPECT_STREQ(gsm_event.text, "Hi") << dcs;
    }
    EXPECT_EQ(decode(with_data("04", "00", "031B5E18")), 0);
    EXPECT_EQ(gsm_event.coding, 2);
    EXPECT_STREQ(gsm_event.text, "\xEF\xBB\xBF[a");
    EXPECT_EQ(decode(with_data("04", "00", "00")), 0);
    EXPECT_STREQ(gsm_event.text, "");
    EXPECT_EQ(gsm_event.length, 0);
    EXPECT_EQ(decode("00040000001230502143650A02C834"),
              0); // no sender, west of Greenwich
    EXPECT_STREQ(gsm_event.sender, "");
    EXPECT_STREQ(gsm_event.smsc, "");
    EXPECT_STREQ(gsm_event.time_zone, "GMT-5");
    // A header longer than the message: what stands behind stays.
    EXPECT_EQ(decode(with_data("44", "00", "0AC8" + std::string(20, '0'))), 0);
    EXPECT_STREQ(gsm_event.text, "Hi");
    EXPECT_EQ(gsm_event.length, 10);
    EXPECT_STREQ(gsm_event.sender, "+123");
}

TEST(Decoder, RefusesWhatItCanNotRead)
{
    decode(pdu_door);
    const event before = gsm_event;
    for (const char* pdu :
         {"", "0791947101670", "11919471016700000000000000000000000000000000FF",
          "00041F910000000000000000000000000000000000000000000000", "07919471016700000440D9"}) {
        EXPECT_EQ(decode(pdu), -1) << pdu;
        EXPECT_EQ(std::memcmp(&before, &gsm_event, sizeof before), 0);
    }
    EXPECT_EQ(libgsm_pdu_decode(&g_mobile, nullptr, pdu_door), -1);
    EXPECT_EQ(libgsm_pdu_decode(&g_mobile, &gsm_event, nullptr), -1);
    EXPECT_EQ(corvel_handle_user_data_header(&gsm_event, nullptr), -1);
}

// Every cut of a message, and every value of each of its octets: the sanitizers watch, every field
// stays terminated, and what was cut off reads as nothing more.
TEST(Decoder, HostileMessages)
{
    for (const std::string whole : {pdu_door, pdu_chinese, pdu_part}) {
        for (std::size_t length = 0; length <= whole.size(); length++)
            decode(whole.substr(0, length));
        EXPECT_EQ(decode(whole), 0);
        for (std::size_t at = 0; at + 1 < whole.size(); at += 2)
            for (const char* value : {"00", "7F", "80", "A0", "FF", "zz", "08"}) {
                decode(std::string(whole).replace(at, 2, value));
                for (const char* field : {gsm_event.sender, gsm_event.smsc})
                    EXPECT_LT(strnlen(field, 64), 64u);
                EXPECT_LT(strnlen(gsm_event.text, 1024), 1024u);
            }
    }
    for (const char* dcs : {"00", "08"}) // as much as the record holds, and more
        for (const char* fill : {"1B", "00", "D8", "02"}) {
            std::string data;
            for (int i = 0; i < 200; i++)
                data += fill;
            EXPECT_EQ(decode(with_data("04", dcs, "FF" + data)), 0);
            EXPECT_EQ(decode(with_data("44", dcs, "FF" + data)), 0);
            EXPECT_EQ(decode(with_data("44", dcs, "FF9F" + data)), 0);
        }
}
