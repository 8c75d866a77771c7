// SPDX-License-Identifier: MIT
// What the library sends, read by a decoder that is not ours, and what such an encoder makes read
// by the library: Gammu's.
#include "tests/sms/messages.h"

#include <gammu-debug.h>
#include <gammu-message.h>
#include <gammu-unicode.h>

// The text that Gammu reads in the PDUs, in UTF-8. Each of several parts has to say so, in order.
static std::string read_by_gammu(const std::vector<std::string>& pdus)
{
    std::string units; // UCS-2, big endian
    for (std::size_t i = 0; i < pdus.size(); i++) {
        std::vector<octet> octets(pdus[i].size() / 2);
        gsm_hex_to_octets(octets, pdus[i]);
        GSM_SMSMessage message = {};
        GSM_SetDefaultReceivedSMSData(&message);
        std::size_t end = 0;
        EXPECT_EQ(GSM_DecodePDUFrame(GSM_GetGlobalDebug(), &message, octets.data(), octets.size(),
                                     &end, TRUE),
                  ERR_NONE);
        EXPECT_EQ(end, octets.size());
        EXPECT_EQ(message.PDU, SMS_Submit);
        EXPECT_STREQ(DecodeUnicodeString(message.Number), "+4915112345678");
        const GSM_UDHHeader& udh = message.UDH;
        EXPECT_EQ(udh.Type != UDH_NoUDH, pdus.size() > 1);
        if (pdus.size() > 1) {
            EXPECT_EQ(in_words(udh.PartNumber, "/", udh.AllParts),
                      in_words(i + 1, "/", pdus.size()));
        }
        units.append(reinterpret_cast<char*>(message.Text), 2 * UnicodeLength(message.Text));
    }
    std::vector<char> text(2 * units.size() + 1);
    units.append(2, '\0');
    EncodeUTF8(text.data(), reinterpret_cast<const unsigned char*>(units.data()));
    return text.data();
}

// One message to +123, in hexadecimal as the library has it.
static std::string written_by_gammu(const std::string& text, bool utf16)
{
    GSM_SMSMessage message = {};
    GSM_SetDefaultSMSData(&message);
    message.PDU = SMS_Submit;
    message.Class = GSM_SMS_None;
    message.Coding = utf16 ? SMS_Coding_Unicode_No_Compression : SMS_Coding_Default_No_Compression;
    EncodeUnicode(message.Number, "+123", 4);
    DecodeUTF8(message.Text, text.c_str(), text.size());
    message.Length = static_cast<int>(UnicodeLength(message.Text));
    const GSM_SMSMessageLayout& at = PHONE_SMSSubmit;
    octet frame[1024] = {};
    int end = 0;
    EXPECT_EQ(GSM_EncodeSMSFrame(GSM_GetGlobalDebug(), &message, frame, at, &end, TRUE), ERR_NONE);
    pdu_text pdu;
    sms_put_octets(pdu, {0, frame[at.firstbyte], 0});
    sms_put_destination(pdu, "+123");
    sms_put_octets(pdu, {0, frame[at.TPDCS], 0, frame[at.TPUDL]});
    sms_hex_encode(pdu, {frame + at.Text, frame + end});
    return pdu.items;
}

TEST(Gammu, ReadsTheTextOfTheHost)
{
    // No tilde in the mixture: Gammu reads one in UCS-2 as Nokia's mark and doubles it.
    const std::string mixed = "@£$¥èéùìòÇ ΔΦΓΛΩΠΨΣΘΞ [\\]^{|} äöñüà§¿ 告白 😀 ";
    const std::string phone = std::string(gsm7_all) + "[\\]^{|}~€";
    for (const std::string& text : {phone, repeat("é", 150) + "€" + phone, repeat(mixed, 3)}) {
        const auto cut = sms_compose(text);
        std::vector<std::string> pdus;
        for (int part = 1; part <= cut->parts; part++) {
            const auto pdu = sms_compose_part(*cut, text, part, {.destination = "+4915112345678"});
            pdus.emplace_back(pdu->items, pdu->count);
        }
        EXPECT_EQ(read_by_gammu(pdus), text);
    }
    for (const auto& [text, utf16] : {std::pair(phone, false), {mixed, true}})
        EXPECT_EQ(utf8_of(sms_read_deliver(delivered(written_by_gammu(text, utf16)))->content),
                  text);
    for (const std::string& text :
         {std::string("Hi"), repeat("a", 160), repeat("a", 161), repeat("a", 303), repeat("[", 80),
          std::string("[\\]^{|}~ @$_ \"#%&'()*+,-./:;<=>?!"), "ΔΦΓΛΩΠΨΣΘΞ" + repeat("x", 150),
          repeat("a", 150) + "{Ω}" + repeat("b", 20), std::string("ä"), repeat("告", 70),
          repeat("告", 71), repeat("告", 133), "a" + repeat("😀", 66), repeat(mixed, 9)}) {
        EXPECT_EQ(send(text, "+4915112345678"), 0);
        EXPECT_EQ(read_by_gammu(sent_pdus()), text);
    }
}
