// The alphabet, septets and character sets: values from the published tables and by hand.
#include "messages.h"

using namespace kelo;
using namespace kelo::test;

namespace
{

std::string pack(const std::string& text, int& septets)
{
    octet out[320];
    octet udl = 0xEE;
    const int octets = corvel_mobile_sms_encode_gsm7bit(text.c_str(), out,
                                                        static_cast<int>(text.size()) + 1, &udl);
    septets = udl;
    return octets < 0 ? "refused"
                      : hex_of({reinterpret_cast<char*>(out), static_cast<std::size_t>(octets)});
}

} // namespace

TEST(Alphabet, Packing)
{
    struct {
        const char* text;
        int septets;
        const char* packed;
    } const cases[] = {
        {"Hello", 5, "C8329BFD06"},
        {"@", 1, "00"},
        {"", 0, ""},
        {"1234567", 7, "31D98C56B3DD00"},
        {"12345678", 8, "31D98C56B3DD70"},
        {"[a", 3, "1B5E18"},
        {"a\xCE\x94", 2, "6108"}, // a Greek pair is one septet
        {"a\xCE", 1, "E1"},       // swallows the terminator, which was to flush it
        {"\xA4\xFC", 2, "243F"},  // ISO 8859-1 bytes have septets too
        {"\t", 1, "09"}           // what has none stands for itself
    };
    for (const auto& c : cases) {
        int septets = 0;
        EXPECT_EQ(pack(c.text, septets), c.packed) << c.text;
        EXPECT_EQ(septets, c.septets) << c.text;
    }
    int septets = 0;
    EXPECT_EQ(pack(std::string(319, 'a'), septets).size(), 2u * 280);
    EXPECT_EQ(pack(std::string(320, 'a'), septets), "refused");
    EXPECT_EQ(pack(std::string(318, 'a') + "[", septets), "refused");
    EXPECT_EQ(septets, 0xEE); // untouched
    octet out[8];
    EXPECT_EQ(corvel_mobile_sms_encode_gsm7bit("a", out, 0, out), -1);
    EXPECT_EQ(corvel_mobile_sms_encode_gsm7bit(nullptr, out, 1, out), -1);
}

TEST(Alphabet, Unpacking)
{
    struct {
        const char* packed;
        int u, coding;
        std::string out; // or the UCS-2, hexadecimal
    } const cases[] = {
        {"C8329BFD06", 0, 0, "Hello"},
        {"31D98C56B3DD00", 0, 0, "1234567@"},   // seven octets are always eight septets
        {"0500035A0202E0613900", 6, 0, "par@"}, // header and one fill bit
        {"06080412340201C834", 7, 0, "Hi"},
        {"1B14", 0, 2, "007B"},     // an extension row
        {"9B32", 0, 2, "00FF0065"}, // no euro
        {"1008", 0, 2, "03940394"},
        {"C10D", 0, 2, "00410000"}, // an escape at the end
        {"", 5, 0, ""}};
    for (const auto& c : cases) {
        octet octets[64] = {};
        char out[64] = {};
        event what = {};
        what.length = -7;
        const int n = static_cast<int>(std::strlen(c.packed) / 2);
        gsm_hex_to_octets(octets, c.packed, n);
        EXPECT_EQ(corvel_mobile_sms_gsm7bit_to_8bit(&what, octets, out, n, c.u), 0);
        EXPECT_EQ(what.coding, c.coding) << c.packed;
        if (c.coding == 0)
            EXPECT_EQ(std::string(out), c.out) << c.packed;
        else
            EXPECT_EQ(
                hex_of({reinterpret_cast<char*>(octets), static_cast<std::size_t>(what.length)}),
                c.out)
                << c.packed;
        EXPECT_EQ(what.length == -7, c.coding == 0);
    }
    event what = {};
    octet octets[2 * 182] = {0x1B};
    char out[2 * 182];
    EXPECT_EQ(corvel_mobile_sms_gsm7bit_to_8bit(&what, octets, out, 160, 0), 0);
    EXPECT_EQ(what.length, 364);
    EXPECT_EQ(corvel_mobile_sms_gsm7bit_to_8bit(&what, octets, out, 321, 0), -1);
    EXPECT_EQ(corvel_mobile_sms_gsm7bit_to_8bit(&what, nullptr, out, 1, 0), -1);
}

TEST(Alphabet, HexadecimalOfAnything)
{
    EXPECT_EQ(gsm_hex2int("1a2B", 4), 0x1A2B);
    EXPECT_EQ(gsm_hex2int("g7", 2), 7);
    EXPECT_EQ(gsm_hex2int("1\0"
                          "2",
                          3),
              0x102);
    EXPECT_EQ(corvel_mobile_sms_ascii_to_gsm7bit(0xCE, 0xA9), 0x15);
    EXPECT_EQ(corvel_mobile_sms_ascii_to_gsm7bit(static_cast<signed char>(0xCE), 0), 0x1B);
    EXPECT_EQ(corvel_mobile_sms_ascii_to_gsm7bit(0xCF, 0xA9), 0);
}

TEST(Charset, Ucs2ToUtf8)
{
    const captured output;
    const octet data[] = {0x00, 'a', 0x54, 0x4A, 0xD8, 0x3D, 0xDE, 0x00};
    char out[16];
    EXPECT_EQ(sms_get_str(data, 4, out, sizeof out), 7);
    EXPECT_STREQ(out, "\xEF\xBB\xBF"
                      "a告");
    EXPECT_EQ(sms_get_str(data, 4, out, 7), -1); // filled exactly
    EXPECT_EQ(sms_get_str(data, 4, out, 8), 7);
    EXPECT_EQ(sms_get_str(data, 8, out, sizeof out), -1); // a pair is no UCS-2
    EXPECT_STREQ(out, "\xEF\xBB\xBF"
                      "a告");
    EXPECT_TRUE(output.has("iconv error!"));
    EXPECT_EQ(sms_get_str(data, 511, out, sizeof out), -1);
    EXPECT_EQ(sms_ucs2_to_charset("no such set", data, 4, out, sizeof out), -1);
    EXPECT_TRUE(output.has("iconv_open error!"));
    EXPECT_EQ(sms_ucs2_to_charset("iso-8859-1", data, 2, out, sizeof out), -1); // the mark
    EXPECT_EQ(utf16_to_utf8(data, 8, out, sizeof out), 8);
    EXPECT_STREQ(out, "a告\xF0\x9F\x98\x80");
    EXPECT_EQ(utf16_to_utf8(data + 6, 2, out, sizeof out), 3); // half a pair
    EXPECT_STREQ(out, "\xEF\xBF\xBD");
}
