// Received messages and status reports, whole: what real networks send, and what is broken.
#include "tests/sms/messages.h"

#include <map>

static std::string text_of(const std::optional<message_part>& part)
{
    if (!part)
        return "none";
    pdu_text hex;
    sms_hex_encode(hex, part->content.all());
    return joined(part->message_class, part->data ? hex.items : utf8_of(part->content));
}

TEST(ReadMessage, Senders)
{
    const std::string may = "|2024-05-17 09:30:00|0|-1|Hi", end = "00004250719003000002C834";
    const std::pair<std::string, std::string> rows[] = {
        {pdu_door, "+4915112345678+491710760000|2024-05-17 09:30:12|8|-1|Door 3 open"},
        {pdu_part, "+4915112345678+491710760000|2024-05-17 09:32:00|8|-1|part two of two"},
        // Names: by their semi-octets, and with the place of an eighth character counted.
        {"00040DD0F334FC1CA69701" + end, "sipgate" + may},
        {"00040ED0F334FC1CA69701" + end, "sipgate" + may},
        {"00040DD09576F91CDE9401" + end, "Ωmega€" + may},
        {"000400D0" + end, may},
        {"000400" + end, may}, // without a type of address
        {"000405A121BAFE" + end, "12*#c" + may},
        {"0007039101F0" + end, "+100" + may}, // the reserved type of message
        {"00040391f10000004250719003008A02c834", "+1|2024-05-17 09:30:00|-28|-1|Hi"},
        {"00040391F1000000425071900300FF02C834", "+1" + may},
        {"00040391F100000042507A9003000002C834", "+1||0|-1|Hi"},  // no digits
        {"00040391F10000004231719003000002C834", "+1||0|-1|Hi"}}; // a month too many
    for (const auto& [pdu, read] : rows) {
        const auto part = sms_read_deliver(pdu);
        ASSERT_TRUE(part) << pdu;
        EXPECT_EQ(joined(in_words(part->sender, part->smsc), part->time.text, part->time.zone,
                         text_of(part)),
                  read);
    }
    // A host may keep it to know a message again: it must never change.
    EXPECT_EQ(sms_read_deliver(pdu_door)->digest, 0x220ADB3BB43EF8C4u);
}

// By what is read: TP-DCS and what stands behind the time. Less may be there than is said, or half
// an octet or unit of it; an escape may have nothing behind it that it knows.
TEST(ReadMessage, Codings)
{
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {"-1|Hi",
         {"0002C834", "0302C834", "0C02C834", "8002C834", "C802C834", "D802C834", "00FFC834"}},
        {"0|Hi", {"1002C834", "F002C834", "5002C834"}},
        {"2|Hi", {"1202C834", "F202C834", "FA02C834"}},
        {"-1|C834", {"0402C834", "2002C834", "2802C834"}},
        {"1|C834", {"1502C834", "F502C834"}},
        {"-1|ё", {"08020451", "48020451", "E8020451", "08FF0451", "0803045104"}},
        {"0|ё", {"18020451"}},
        {"-1|", {"0000", "0801C8"}},
        {"-1|A a ", {"00069BE06613DE00"}},
        {"none", {"", "00", "000", "0002C8g4"}}};
    for (const auto& [read, messages] : rows)
        for (const std::string& message : messages)
            EXPECT_EQ(text_of(sms_read_deliver("0004039121F300" + message.substr(0, 2) +
                                               "42507190030000" + behind(message, 2).data())),
                      read)
                << message;
}

// By what is read, each ahead of "Hi" in UTF-16. What does not fit a header makes it worth nothing;
// one that is longer than the message is none.
TEST(ReadMessage, Headers)
{
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {"42:1/3 -1<-1 Hi",
         {"0500032A0301", "0A7003AABBCC00032A0301", "0A0C03AABBCC00032A0301",
          "0A000301020100032A0301"}},
        {"4660:1/2w -1<-1 Hi", {"06080412340201"}},
        {"0:0/0 2948<9200 Hi", {"0605040B8423F0"}},
        {"42:1/3 42<3 Hi", {"0904022A0300032A0301"}},
        {"0:0/0 -1<-1 Hi",
         {"00", "0500032A0300", "0500032A0304", "0400022A03", "0900032A030100030102",
          "0600032A0301FF"}},
        {"0:0/0 -1<-1 \uFF90\u0003Hi", {"FF900003"}}};
    for (const auto& [read, headers] : rows)
        for (const std::string& header : headers) {
            const auto part =
                sms_read_deliver("0044039121F3000842507190030000FF" + header + "00480069");
            const part_numbers& n = part->numbers;
            EXPECT_EQ(in_words(n.reference, ":", n.number, "/", n.total,
                               part->wide_reference ? "w " : " ", part->port_to, "<",
                               part->port_from, " ", utf8_of(part->content)),
                      read);
        }
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
        {0, "", ""},
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
    // Both, told by the header.
    EXPECT_EQ(text_of(sms_read_deliver("0044039121F30000425071900300000B0625010124010184CD1C")),
              "-1|€ş");
}

// A PDU that ends anywhere: none, or the head of its text.
TEST(ReadMessage, BrokenOff)
{
    const std::string whole = pdu_part;
    for (std::size_t length = 0; length <= whole.size(); length++) {
        const std::vector<char> exact(whole.begin(), whole.begin() + static_cast<long>(length));
        const auto part = sms_read_deliver({exact.data(), exact.size()});
        EXPECT_EQ(part.has_value(), length >= 56) << length;
        EXPECT_TRUE(length < 68 || std::string("-1|part two of two").starts_with(text_of(part)));
    }
    const std::string zeros(514, '0'); // longer than an address or a PDU is; one to be sent
    for (const std::string& pdu :
         std::vector<std::string>{"11" + zeros.substr(0, 60), "00041F91" + zeros.substr(0, 60),
                                  zeros, "001100039121F30000FF02C834"})
        EXPECT_FALSE(sms_read_deliver(pdu)) << pdu;
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
        EXPECT_EQ(sms_is_status_report(pdu), true);
        EXPECT_FALSE(sms_read_deliver(pdu));
        const auto r = sms_read_status_report(pdu);
        EXPECT_EQ(joined(r->reference, r->recipient, r->sent.text, r->sent.zone, r->discharged.text,
                         r->discharged.zone, r->status),
                  expected);
        EXPECT_FALSE(sms_read_status_report(pdu.substr(0, 46)));
    }
    EXPECT_FALSE(sms_read_status_report(pdu_door));
    EXPECT_EQ(sms_is_status_report(pdu_door), false);
    for (const char* neither : {"", "07", "0791947101670000", "001100", "00g4"})
        EXPECT_FALSE(sms_is_status_report(neither)) << neither;
    constexpr std::pair<int, int> states[] = {{0, 1},    {2, 1},    {0x1F, 1}, {0x20, 2},
                                              {0x3F, 2}, {0x46, 3}, {0x65, 3}, {0xA0, 3}};
    for (const auto& [status, state] : states)
        EXPECT_EQ(sms_delivery(status), state) << status;
}
