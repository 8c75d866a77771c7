// SPDX-License-Identifier: MIT
// What the table of modules decides where more than one of its rows fits.
#include "tests/testing.h"

// A module that gets another's commands, or none, never comes up. Rows: the steps of a start, a
// reload and a message.
TEST(ModuleTable, FlowsGoByTheFirstRowThatHasSteps)
{
    constexpr std::tuple<const char*, const char*, unsigned, unsigned, unsigned> rows[] = {
        {"EC25", "EC25VFAR02A08M4G", 12, 10, 3}, // "EC25AU" comes first and begins with it
        {"LE910-EUG", "20.00.522", 0, 0, 0},     // no key is as long as this model
        // Two rows fit: the one ahead.
        {"UC15", "EC25V", 28, 24, 3},
        {"EG95", "UC20G", 12, 10, 3}, // and for messages the one that has them
        {"E", "U9300C", 12, 10, 3},
        {"E9", "UC20G", 24, 22, 3},
        {"LE910", "E9720", 29, 24, 3},
        {"V1", "LE910", 21, 12, 3},
        {"RM510Q", "V1.0.1-B7", 13, 10, 3},
        {"MH5000", "RG510Q", 34, 24, 3},
        // A row with a mask alone is no flow.
        {"EC21KL", "x", 0, 0, 0},
        {"x", "EC21KLR06", 0, 0, 0},
        {"EG25G", "x", 0, 0, 0}};
    for (const auto& [model, revision, start, reload, message] : rows) {
        const unsigned steps[] = {0, start, reload, message, message, 0};
        for (int flow = FLOW_START - 1; flow <= FLOW_SMS_PDU + 1; flow++)
            EXPECT_EQ(module_steps(model, revision, flow).size(), steps[flow])
                << model << " " << revision << ", flow " << flow;
    }
}

TEST(ModuleTable, TheOrderOfTheNamesDecidesNotThatInTheLine)
{
    constexpr const char* names[] = {
        "E9720", "EC20", "EC21", "EC25",  "EG25",  "EP06",  "Quectel_M35", "U9300C", "LE910",
        "UC15",  "UC20", "EG95", "RM500", "RM510", "RG500", "RG510",       "MH5000", "V1.0.1-B7"};
    for (std::size_t i = 0; i + 1 < std::size(names); i++)
        EXPECT_STREQ(module_in((names[i + 1] + std::string(" ") + names[i]).c_str()), names[i]);
    EXPECT_STREQ(module_in(" V1.0.1-B7"), "V1.0.1-B7");
    for (const char* line : {"", "AT+CGMM", "EC2", "M35", "T99W175"})
        EXPECT_EQ(module_in(line), nullptr) << line;
}

TEST(ModuleTable, WhatIsKnownOfAModel)
{
    using text = const char*;
    constexpr std::tuple<text, text, text, text, text, apn_form> rows[] = {
        {"EC25", "EC25AUTFAR06A03M4G", "LTE", "00", "ff,80080000df,0", apn_form::context},
        {"EC25", "EC25AFFAR07A04M4G", "LTE", "00", "260,42000000000000381a,0", apn_form::context},
        {"EC21", "EC21AUTLR01", "LTE", "00", "0,8000044,0", apn_form::context},
        {"EC21", "EC21AUTR01", "LTE", "00", "50,8000055,0", apn_form::context},
        {"EP06", "EP06APACR01", "LTE", "00", "fff0,1e0021600d5,20", apn_form::context},
        {"EP06", "EP06AR01", "LTE", "00", "260,2000001003301185a,0", apn_form::context},
        {"EC25V", "x", "LTE", "00", nullptr, apn_form::context},
        {"x", "EG95EFBR06", "LTE", "00", nullptr, apn_form::context},
        {"U9300C", "EG25GGB", "LTE", "17", "3ff,1e00b0e18df,0", apn_form::name},
        {"E9720-A", "x", "LTE", "17", nullptr, apn_form::name},
        {"ML303", "x", "LTE", "00", nullptr, apn_form::name},
        {"UC15", "x", "UMTS", "00", nullptr, apn_form::context},
        {"UC15-A", "x", "LTE", "00", nullptr, apn_form::context},
        {"M35", "x", "GSM", "00", nullptr, apn_form::context}};
    for (const auto& [model, revision, network, sequence, mask, apn] : rows) {
        SCOPED_TRACE(std::string(model) + " " + revision);
        EXPECT_STREQ(module_network(model), network);
        EXPECT_STREQ(module_net_sequence(model), sequence);
        EXPECT_STREQ(module_band_mask(model, revision), mask);
        EXPECT_EQ(module_apn_form(model), apn);
    }
}
