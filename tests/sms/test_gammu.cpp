// What the library sends, read back by a decoder that is not ours: Gammu's.
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

TEST(Gammu, ReadsTheTextOfTheHost)
{
    // No tilde in the mixture: Gammu reads one in UCS-2 as Nokia's mark and doubles it.
    const std::string mixed = "@£$¥èéùìòÇ ΔΦΓΛΩΠΨΣΘΞ [\\]^{|} äöñüà§¿ 告白 😀 ";
    for (const std::string& text :
         {std::string("Hi"), repeat("a", 160), repeat("a", 161), repeat("a", 303), repeat("[", 80),
          std::string("[\\]^{|}~ @$_ \"#%&'()*+,-./:;<=>?!"), "ΔΦΓΛΩΠΨΣΘΞ" + repeat("x", 150),
          repeat("a", 150) + "{Ω}" + repeat("b", 20), std::string("ä"), repeat("告", 70),
          repeat("告", 71), repeat("告", 133), "a" + repeat("😀", 66), repeat(mixed, 9)}) {
        EXPECT_EQ(send(text, "+4915112345678"), 0);
        EXPECT_EQ(read_by_gammu(sent_pdus()), text);
    }
}
