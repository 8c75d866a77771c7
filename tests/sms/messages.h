// SPDX-License-Identifier: MIT
// PDUs that several of the tests read, and what they share in sending and reading.
#pragma once

#include "tests/testing.h"

namespace kelo::test
{

// From two independent encoders.
constexpr const char* pdu_door =
    "0791947101670000040D91945111325476F80000425071900321800BC4F75B0E9A81DEF0B21B";
constexpr const char* pdu_part = "0791947101670000440D91945111325476F8000042507190230080160500035A0"
                                 "202E061391D44BFBF416F33887E7F03";

// The 7-bit alphabet in order, without the escape.
constexpr const char* gsm7_all =
    "@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?"
    "¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà";

inline std::string utf8_of(const utf16_text& content)
{
    char text[1024];
    return {text, static_cast<std::size_t>(utf16_to_utf8(content.all(), text))};
}

inline std::string joined(const auto& first, const auto&... others)
{
    return in_words(first) + (in_words("|", others) + ... + std::string());
}

inline std::string repeat(const std::string& piece, int times)
{
    std::string all;
    while (times-- > 0)
        all += piece;
    return all;
}

// The SMS-DELIVER that the network makes of a PDU to +123 without a service centre.
inline std::string delivered(const std::string& submit)
{
    const bool header = (gsm_hex2int(submit.data() + 2, 2) & has_header_bit) != 0;
    return std::string(header ? "0044" : "0004") + "039121F3" + submit.substr(14, 4) +
           "42507190032180" + submit.substr(20);
}

// What the outbox holds, emptied.
inline std::vector<std::string> sent_pdus()
{
    std::vector<std::string> pdus;
    while (sms_outbox_item* const item = sms_outbox_deq()) {
        pdus.emplace_back(item->sms_body);
        sms_outbox_free(item);
    }
    return pdus;
}

inline int send(const std::string& text, const char* number = "+123", int mode = 0,
                const char* tag = "t")
{
    const captured quiet;
    return libgsm_send_sms_from_buffer(tag, number, mode, text.data(),
                                       static_cast<int>(text.size()));
}

} // namespace kelo::test
