// Pre-treatment: the text that goes out, and when none does.
#include "handlers/handlers.h"
#include "modules/modules.h"
#include <kelo/settings.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace kelo;

namespace
{

class PreTreat : public testing::Test
{
  protected:
    PreTreat()
    {
        const int fd = g_mobile.fd;
        g_mobile = {};
        g_mobile.fd = fd;
        cell_network_switch = cell_net_proto = verizon_flag = 0;
    }
    ~PreTreat() override { at_info_free(at); }

    // Runs a treatment on a fresh node and gives its text, "(nul)" for none.
    std::string run(at_pre_treat treat, const char* text, const char* old = nullptr)
    {
        at_info_free(at);
        at = at_info_create(1, nullptr, old, 3, 0, 0, general_handler, 1, treat, 1, text);
        treat(&g_mobile, at);
        return at->cmd != nullptr ? at->cmd : "(nul)";
    }
    bool skipped() const { return (at->flags & AT_FLAG_SKIP) != 0; }

    at_info* at = nullptr;
};

template <std::size_t size> void set(char (&field)[size], const char* text)
{
    std::snprintf(field, size, "%s", text);
}

std::string substitute(const char* text, const char* placeholder, const char* value)
{
    const text_pointer result = at_substitute(text, std::strlen(text), placeholder, value);
    return result != nullptr ? result.get() : "(null)";
}

} // namespace

TEST_F(PreTreat, Substitute)
{
    EXPECT_EQ(substitute("$X,$X;", "$X", "1"), "1,1;");
    // The buffer has the template's length and one value: the second value loses its tail.
    EXPECT_EQ(substitute("$X,$X", "$X", "123456789"), "123456789,123");
    for (const char* value : {"", "1\r", "1\nAT", "\x1a"})
        EXPECT_EQ(substitute("a$X", "$X", value), "(null)");
    EXPECT_EQ(substitute("a$Y", "$X", "1"), "(null)");
}

TEST_F(PreTreat, BandIsSkippedWhenTheModemHasIt)
{
    set(g_mobile.revision, "EC20CE");
    set(g_mobile.band_gsm, "493");
    set(g_mobile.band_lte, "1e000000085");
    set(g_mobile.band_tds, "21");
    for (const char* text : {"AT+QCFG=\"band\",$BAND,1", "AT+BAND=$BAND"}) {
        run(cband_pre_treat, text);
        EXPECT_TRUE(skipped()) << text;
    }
    for (const char* text : {static_cast<const char*>(nullptr), "AT+BAND $BAND"}) {
        run(cband_pre_treat, text);
        EXPECT_FALSE(skipped());
    }
    set(g_mobile.band_tds, "20");
    run(cband_pre_treat, "AT+BAND=$BAND");
    EXPECT_FALSE(skipped());
}

TEST_F(PreTreat, ScanModePerModel)
{
    const char* const none = "old"; // no value: the command stays as it was
    struct {
        const char* model;
        int wanted, network_switch, current;
        const char* value;
        bool skipped;
    } const cases[] = {
        {"U9300C", 0, 0, 2, "2", true},
        {"E9720", 3, 0, 9, "5", false},
        {"RM500Q-GL", 1, 0, 0, "AUTO", false},
        {"RM500Q", 9, 0, 0, "LTE:NR5G", false},
        {"RM500Q", 9, 1, 0, "NR5G", false},
        {"RM500Q", 9, 2, 9, none, true},
        {"MH5000-31", 0, 0, 1, "AT^SYSCFGEX=\"030802\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,,", false},
        {"MH5000-31", 1, 0, 1, none, true},
        {"EC25", -5, 0, 0, "-5", false},
        {"EC25", 3, 0, 3, "3", true},
    };
    for (const auto& c : cases) {
        set(g_mobile.model, c.model);
        g_mobile.scanmode = c.wanted;
        g_mobile.currscanmode = c.current;
        cell_network_switch = c.network_switch;
        EXPECT_EQ(run(netmode_pre_treat, "$MODE", none), c.value) << c.model << c.wanted;
        EXPECT_EQ(skipped(), c.skipped) << c.model << c.wanted;
    }
}

TEST_F(PreTreat, ApnTypeFollowsTheProtocol)
{
    set(g_mobile.model, "MH5000-31");
    set(g_mobile.apn, "web");
    constexpr const char* texts[] = {"=\"IP\",\"web\"", "=\"IPV6\",\"web\"", "=\"IPV4V6\",\"web\"",
                                     "(nul)"};
    for (cell_net_proto = 0; cell_net_proto < 4; cell_net_proto++)
        EXPECT_EQ(run(apn_pre_treat, "=$PARAM"), texts[cell_net_proto]);
}
