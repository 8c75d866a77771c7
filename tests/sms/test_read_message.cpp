// SPDX-License-Identifier: MIT
// Received messages and status reports, whole: what real networks send, and what is broken.
#include "tests/sms/messages.h"

#include <map>

// Class, numbers, ports and text or octets, as far as there are any.
static std::string read(const std::string& pdu)
{
    const auto part = sms_read_deliver(pdu);
    if (!part)
        return "none";
    pdu_text hex;
    sms_hex_encode(hex, part->content.all());
    const auto& [reference, total, number] = part->numbers;
    const char* const wide = part->wide_reference ? "w" : "";
    return in_words(part->message_class,
                    total > 0 ? in_words(" ", reference, wide, ":", number, "/", total) : "",
                    part->port_to >= 0 ? in_words(" ", part->port_to, "<", part->port_from) : "",
                    " ", part->data ? hex.items : utf8_of(part->content));
}

TEST(ReadMessage, Senders)
{
    const std::string may = "|2024-05-17 09:30:00|0", end = "00004250719003000002C834";
    const std::pair<std::string, std::string> rows[] = {
        {pdu_door, "+4915112345678+491710760000|2024-05-17 09:30:12|8"},
        // Names: by their semi-octets, and with the place of an eighth character counted.
        {"00040DD0F334FC1CA69701" + end, "sipgate" + may},
        {"00040ED0F334FC1CA69701" + end, "sipgate" + may},
        {"00040DD09576F91CDE9401" + end, "Ωmega€" + may},
        {"000400D0" + end, may},
        {"000400" + end, may}, // without a type of address
        {"000405A121BAFE" + end, "12*#c" + may},
        {"00040391f10000004250719003008A02c834", "+1|2024-05-17 09:30:00|-28"},
        {"00040391F1000000425071900300FF02C834", "+1" + may},
        {"00040391F10000004250719003060002C834", "+1|2024-05-17 09:30:60|0"}, // a leap second
        {"00040391F10000004250719003160002C834", "+1||0"},
        {"00040391F100000042507A9003000002C834", "+1||0"},  // no digits
        {"00040391F10000004231719003000002C834", "+1||0"}}; // a month too many
    for (const auto& [pdu, sender] : rows) {
        const auto part = sms_read_deliver(pdu);
        EXPECT_EQ(joined(in_words(part->sender, part->smsc), part->time.text, part->time.zone),
                  sender);
    }
    // A host may keep it to know a message again: it must never change.
    EXPECT_EQ(sms_read_deliver(pdu_door)->digest, 0x220ADB3BB43EF8C4u);
}

// By what is read: the first octet, TP-DCS, and what stands behind the time.
TEST(ReadMessage, Contents)
{
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {"-1 Hi",
         {"040002C834", "040302C834", "040C02C834", "048002C834", "04C802C834", "04D802C834",
          "070002C834"}},
        {"0 Hi", {"041002C834", "04F002C834", "045002C834"}},
        {"2 Hi", {"041202C834", "04F202C834", "04FA02C834"}},
        {"-1 C834", {"040402C834", "042002C834", "042802C834"}},
        {"1 C834", {"041502C834", "04F502C834"}},
        {"-1 ё", {"0408020451", "0448020451", "04E8020451"}},
        {"0 ё", {"0418020451"}},
        // Less there than is said, or half an octet or unit of it.
        {"-1 H", {"0400FFC8", "0400FFC83", "0408FF0048", "0408FF004800"}},
        {"-1 ", {"040000", "040801C8"}},
        {"none", {"04", "0400", "04000", "040002C8g4", "050002C834", "060002C834"}},
        // Escapes: from nothing known, twice, at the end.
        {"-1 A a ", {"0400069BE06613DE00"}},
        // Headers, of other elements too; the last one counts.
        {"-1 42:1/3 H",
         {"4408FF0500032A03010048", "4408FF0A7003AABBCC00032A03010048",
          "4408FF0A0C03AABBCC00032A03010048", "4408FF0A000301020100032A03010048"}},
        {"-1 4660w:1/2 H", {"4408FF060804123402010048"}},
        {"-1 2948<9200 H", {"4408FF0605040B8423F00048"}},
        {"-1 42:1/3 42<3 H", {"4408FF0904022A0300032A03010048"}},
        // No part of a message, or no end within the header: it is worth nothing.
        {"-1 H",
         {"4408FF000048", "4408FF0500032A03000048", "4408FF0500032A03040048",
          "4408FF0400022A030048", "4408FF0900032A0301000301020048", "4408FF0600032A0301FF0048"}},
        {"-1 \uFF90\u0003H", {"4408FFFF9000030048"}}, // longer than the message: none
        {"-1 €ş", {"44000B0625010124010184CD1C"}}};   // both tables of a language
    for (const auto& [expected, messages] : rows)
        for (const std::string& m : messages)
            EXPECT_EQ(read("00" + m.substr(0, 2) + "039121F300" + m.substr(2, 2) +
                           "42507190030000" + behind(m, 4).data()),
                      expected)
                << m;
}

static std::vector<std::string> characters(std::string_view text)
{
    std::vector<std::string> all;
    for (; !text.empty(); text = behind(text, all.back().size()))
        all.emplace_back(text.substr(0, utf8_read(text).bytes));
    return all;
}

// By pairs: what stands in a language's table where the default alphabet has the character ahead.
TEST(ReadMessage, Languages)
{
    const std::string all = "\n\fΛ^({)}/\\<[=~>]¡|e€";
    const std::tuple<octet, std::string, std::string> rows[] = {
        {13, "", ""},
        {2, "", "ÇçAÁIÍOÓUÚaáiíoóuú"},
        {1, "è€ìıØĞøğÆŞæş¡İ¿ç", "GĞIİSŞcçgğiısş"},
        {3, "èêùúìíòóÇçØÔøôÅÁåáΦªΓÇΛÀΩ∞Π^Ψ\\Σ€ΘÓΞ|ÆÂæâßÊ¤º¡ÍÄÃÖÕÑÚ¿~äãöõñ`",
         "éêÇçØÔøôÅÁåáΦΦΓΓΩΩΠΠΨΨΣΣΘΘÉÊAÀIÍOÓUÚÄÃÖÕaÂiíoóuúäãöõàâ"}};
    for (const auto& [language, locking, single] : rows)
        for (const bool escaped : {false, true}) {
            const auto pairs = characters(escaped ? single + all : locking);
            std::map<std::string, std::string> other;
            for (std::size_t i = 0; i < pairs.size(); i += 2)
                other.emplace(pairs[i], pairs[i + 1]);
            made<octet, 256> septets;
            std::string expected;
            for (octet septet = 0; const std::string& character : characters(gsm7_all)) {
                septet = static_cast<octet>(septet + (septet == gsm7_escape));
                expected += other.contains(character) ? other[character] : character;
                if (escaped)
                    septets.add(gsm7_escape);
                septets.add(septet++);
            }
            const octet none = 0;
            const national_tables tables = {escaped ? none : language, escaped ? language : none};
            EXPECT_EQ(utf8_of(sms_septets_to_utf16(septets.all(), tables)), expected);
        }
}

// A PDU that ends anywhere: none, or the head of its text.
TEST(ReadMessage, BrokenOff)
{
    const std::string whole = pdu_part;
    for (std::size_t length = 0; length <= whole.size(); length++) {
        const std::vector<char> exact(whole.begin(), whole.begin() + static_cast<long>(length));
        const auto part = sms_read_deliver({exact.data(), exact.size()});
        EXPECT_EQ(part.has_value(), length >= 56) << length;
        EXPECT_TRUE(length < 68 ||
                    std::string("part two of two").starts_with(utf8_of(part->content)));
    }
    const std::string zeros(514, '0'); // longer than an address or a PDU is
    EXPECT_EQ(read("11" + zeros.substr(0, 60)) + read("00041F91" + zeros.substr(0, 60)) +
                  read(zeros),
              "nonenonenone");
}

TEST(StatusReport, Reads)
{
    const std::pair<std::string, const char*> rows[] = {
        {"07919761989901F006270B917777777777F7515012113320215150121133402100",
         "39|+77777777777|2015-05-21 11:33:02|12|2015-05-21 11:33:04|12|0"},
        {"0791947101670000062F0D91945111325476F84250711203218A4250811203218A46",
         "47|+4915112345678|2024-05-17 21:30:12|-28|2024-05-18 21:30:12|-28|70"},
        {"0026070B918100551512F2627050214365006270502144000000077F0005E8329BFD06",
         "7|+18005551212|2026-07-05 12:34:56|0|2026-07-05 12:44:00|0|0"},
        {"00060107D0D4F29C0E00000000000000FFFFFFFFFFFFFF30", "1|Test||0||0|48"}};
    for (const auto& [pdu, expected] : rows) {
        EXPECT_FALSE(sms_read_deliver(pdu));
        const auto r = sms_read_status_report(pdu);
        EXPECT_EQ(joined(r->reference, r->recipient, r->sent.text, r->sent.zone, r->discharged.text,
                         r->discharged.zone, r->status),
                  expected);
        EXPECT_FALSE(sms_read_status_report(pdu.substr(0, 46)));
    }
    EXPECT_FALSE(sms_read_status_report(pdu_door));
    for (const char* neither : {"", "07", "0791947101670000", "001100", "00g4"})
        EXPECT_FALSE(sms_read_deliver(neither) || sms_read_status_report(neither)) << neither;
    EXPECT_EQ(in_words(sms_delivery(0x1F), sms_delivery(0x20), sms_delivery(0x3F),
                       sms_delivery(0x40), sms_delivery(0xA0)),
              "12233");
}
