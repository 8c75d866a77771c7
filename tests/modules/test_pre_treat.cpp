// SPDX-License-Identifier: MIT
// Pre-treatment: the text that goes out, and when none does.
#include "tests/testing.h"

static std::string substitute(const char* text, const char* value)
{
    const text_pointer result = at_substitute(text, std::strlen(text), "$X", value);
    return result != nullptr ? result.get() : "(null)";
}

// The text that a treatment gives a fresh node, "(nul)" for none, and "!" where it is passed over.
static std::string run(at_pre_treat treat, const char* text, const char* old = nullptr)
{
    at_info* const at =
        at_info_create(1, nullptr, old, 3, 0, 0, general_handler, 1, treat, 1, text);
    treat(&g_mobile, at);
    const std::string result = at->cmd != nullptr ? at->cmd : "(nul)";
    const bool skipped = (at->flags & AT_FLAG_SKIP) != 0;
    at_info_free(at);
    return result + (skipped ? "!" : "");
}

TEST(PreTreat, Substitute)
{
    EXPECT_EQ(substitute("$X,$X;", "1"), "1,1;");
    // The buffer has the template's length and one value: the second value loses its tail.
    EXPECT_EQ(substitute("$X,$X", "123456789"), "123456789,123");
    for (const char* value : {"", "1\r", "1\nAT", "\x1a"})
        EXPECT_EQ(substitute("a$X", value), "(null)");
    EXPECT_EQ(substitute("a$Y", "1"), "(null)");
}

TEST(PreTreat, BandIsSkippedWhenTheModemHasIt)
{
    text_set(g_mobile.revision, "EC20CE");
    text_set(g_mobile.band_gsm, "493");
    text_set(g_mobile.band_lte, "1e000000085");
    const std::string masks = "493,1e000000085,21";
    for (const char* tds : {"21", "20"}) {
        text_set(g_mobile.band_tds, tds);
        const std::string known = std::strcmp(tds, "21") == 0 ? "!" : "";
        EXPECT_EQ(run(cband_pre_treat, "AT+QCFG=\"band\",$BAND,1"),
                  "AT+QCFG=\"band\"," + masks + ",1" + known);
        EXPECT_EQ(run(cband_pre_treat, "AT+BAND=$BAND"), "AT+BAND=" + masks + known);
        EXPECT_EQ(run(cband_pre_treat, "AT+BAND $BAND"), "AT+BAND " + masks);
        EXPECT_EQ(run(cband_pre_treat, nullptr), "(nul)");
    }
}

TEST(PreTreat, ScanModePerModel)
{
    constexpr std::tuple<const char*, int, int, int, const char*> rows[] = {
        {"U9300C", 0, 0, 2, "2!"},
        {"RM500Q-GL", 1, 0, 0, "AUTO"},
        {"RM500Q", 9, 1, 0, "NR5G"},
        {"RM500Q", 9, 2, 9, "old!"},
        {"MH5000-31", 0, 0, 1, "AT^SYSCFGEX=\"030802\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,,"},
        {"MH5000-31", 1, 0, 1, "old!"},
        {"EC25", -5, 0, 0, "-5"},
    };
    for (const auto& [model, wanted, network_switch, current, value] : rows) {
        text_set(g_mobile.model, model);
        g_mobile.scanmode = wanted;
        g_mobile.currscanmode = current;
        cell_network_switch = network_switch;
        EXPECT_EQ(run(netmode_pre_treat, "$MODE", "old"), value) << model << wanted;
    }
    EXPECT_EQ(run(cgmm_pre_treat, nullptr, "AT+CGMM"), "AT+CGMM!"); // the model is known
}

TEST(PreTreat, ApnTypeFollowsTheProtocol)
{
    text_set(g_mobile.model, "MH5000-31");
    text_set(g_mobile.apn, "web");
    constexpr const char* texts[] = {"=\"IP\",\"web\"", "=\"IPV6\",\"web\"", "=\"IPV4V6\",\"web\"",
                                     "(nul)"};
    for (cell_net_proto = 0; cell_net_proto < 4; cell_net_proto++)
        EXPECT_EQ(run(apn_pre_treat, "=$PARAM"), texts[cell_net_proto]);
}

// A message must not go to the number of the one before.
TEST(PreTreat, MessageWithoutANumberHasNoCommand)
{
    constexpr std::tuple<const char*, const char*> rows[] = {
        {"+491", "AT+CMGS=\"+491\""}, {"", "(nul)"}, {"1\r", "(nul)"}};
    for (const auto& [number, command] : rows) {
        text_set(g_mobile.sms_dest, number);
        EXPECT_EQ(run(sms_des_pre_treat, "AT+CMGS=\"$SMS_DES\"", "AT+CMGS=\"+499\""), command);
    }
}
