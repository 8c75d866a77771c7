// SPDX-License-Identifier: MIT
// What is shown of network and cell, from whatever a module has told.
#include "host/state/network.h"

#include <gtest/gtest.h>

using namespace kelo_host;

// Catches: a name that stays hexadecimal, and a number or a word that becomes letters.
TEST(Network, NamesOfOperators)
{
    const struct {
        const char *oper, *name;
    } rows[] = {
        {"Telekom.de", "Telekom.de"},
        {"004F00320020002D0020006400650020002B", "O2 - de +"},
        {"00480061", "Ha"},
        {"4E2D56FD79FB52A8", "中国移动"},
        {"041C04220421", "МТС"},
        {"062706440645", "الم"},
        {"004d00540053d83ddcf1", "MTS📱"},
        {"SKT54C8", "SKT54C8"},
        {"26201", "26201"},
        {"12345678", "12345678"}, // U+1234 U+5678: digits are a number
        {"00123456", "00123456"}, // a control character
        {"CAFE4E2D", "CAFE4E2D"}, // two scripts
        {"Cafe0061", "Cafe0061"}, // of both cases
        {"D83D0041", "D83D0041"}, // half a pair, and the other half
        {"0041DC00", "0041DC00"},
        {"0041D83D", "0041D83D"},
        {"0041FFFE", "0041FFFE"},
        {"0041000D", "0041000D"},
        {"E00100410041", "E00100410041"}, // private use
    };
    for (const auto& [oper, name] : rows)
        EXPECT_EQ(operator_name(oper), name);
}

// Catches: a technology, band or code of the circuit-switched side or of a cell before, where the
// serving cell says better, and none where it is all that is known.
TEST(Network, TheServingCellFirst)
{
    const auto told = [](void (*change)(gsm_mobile&)) {
        gsm_mobile mobile{};
        mobile.rsrp = -120;
        std::snprintf(mobile.lac, sizeof mobile.lac, "5A1C");
        change(mobile);
        json_value status;
        add_network(status, mobile);
        std::string text;
        for (const char* name :
             {"operator", "plmn", "technology", "band", "channel", "pcid", "rsrp_dbm"})
            text +=
                (text.empty() ? "" : " ") +
                (status[name].is_string() ? status[name].get<std::string>() : status[name].dump());
        return text;
    };
    // clang-format off
    EXPECT_EQ(told([](gsm_mobile& m) { m.mcc = 262, m.mnc = 1; }), "null null GSM null null null null");
    EXPECT_EQ(told([](gsm_mobile& m) { m.qeng_net_stem = 3, m.mcc = 262, m.mnc = 1, m.earfcn = 6300, m.rsrp = -97, m.pcid = 7; }),
              "null 26201 LTE LTE BAND 20 6300 7 -97");
    EXPECT_EQ(told([](gsm_mobile& m) { std::strcpy(m.act, "5G NR"), m.qeng_net_stem = 3, m.mcc = 310, m.mnc = 26, m.earfcn = 5000; }),
              "null 310026 LTE null 5000 null null");
    EXPECT_EQ(told([](gsm_mobile& m) { std::strcpy(m.act, "FDD LTE"), m.qeng_net_stem = 3, m.tech = 2, m.channel = 66436; }),
              "null null FDD LTE LTE BAND 66 66436 null null");
    EXPECT_EQ(told([](gsm_mobile& m) { std::strcpy(m.oper, "310260"), m.tech = 0x11, m.qeng_net_stem = 1, m.rsrp = -90; }),
              "null 310260 NR null null null null"); // it searches: the figures are old
    // clang-format on
}
