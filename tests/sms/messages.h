// PDUs and reports that several of the tests read, and what they share in reading them.
#pragma once

#include "sms/sms.h"
#include "testing.h"

#include <string>
#include <vector>

namespace kelo::test
{

// From two independent encoders.
constexpr const char* pdu_door =
    "0791947101670000040D91945111325476F80000425071900321800BC4F75B0E9A81DEF0B21B";
constexpr const char* pdu_chinese =
    "0891683108100005F0040D91683119325476F800084250719003212308544A8B6600200032";
constexpr const char* pdu_part = "0791947101670000440D91945111325476F8000042507190230080160500035A0"
                                 "202E061391D44BFBF416F33887E7F03";
constexpr const char* pdu_hello = "039121F304039121F300001230502143652305C8329BFD06";

inline std::string hex_of(const std::string& bytes)
{
    std::string hex(bytes.size() * 2 + 1, '\0');
    const int length = sms_hex_encode(reinterpret_cast<const octet*>(bytes.data()), hex.data(),
                                      static_cast<int>(bytes.size()));
    return hex.substr(0, static_cast<std::size_t>(length));
}

// The SMS-DELIVER that the network makes of an SMS-SUBMIT without a service centre.
inline std::string delivered(const std::string& submit)
{
    const int digits = gsm_hex2int(submit.data() + 6, 2);
    const auto behind = static_cast<std::size_t>(10 + (digits + 1) / 2 * 2);
    const bool header = (gsm_hex2int(submit.data() + 2, 2) & 0x40) != 0;
    return std::string(header ? "0044" : "0004") + "0391" + "21F3" + submit.substr(behind, 4) +
           "42507190032180" + submit.substr(behind + 6);
}

// What the outbox holds, emptied.
inline std::vector<std::string> sent_pdus()
{
    std::vector<std::string> pdus;
    while (sms_outbox_item* const item = sms_outbox_deq()) {
        pdus.emplace_back(item->sms_body);
        EXPECT_EQ(item->sms_length, static_cast<int>(pdus.back().size() / 2) - 1);
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

// One read of these bytes, while that command runs.
inline void hear(modem_port& port, std::string_view bytes, at_info* running)
{
    const captured quiet;
    port.say(bytes);
    pollfd ready = {port_descriptor(&g_mobile), POLLIN, 0};
    poll(&ready, 1, 1000);
    libgsm_check_event(&g_mobile, running);
}

// The queue, emptied.
inline std::vector<kelo_sms> taken()
{
    std::vector<kelo_sms> messages;
    kelo_sms message;
    while (kelo_take_sms(&message) == 1)
        messages.push_back(message);
    return messages;
}

} // namespace kelo::test
