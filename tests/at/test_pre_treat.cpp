// Pre-treatment: the text that goes out, and when none does.
#include "at/gsm_at.h"
#include "handlers/handlers.h"
#include <kelo/settings.h>

#include <gtest/gtest.h>

#include <cstdlib>
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
    std::string run(at_pre_treat treat, const char* text, const char* old = nullptr,
                    unsigned int flags = 0)
    {
        at_info_free(at);
        at = at_info_create(1, nullptr, old, 3, 0, flags, general_handler, 1, treat, 1, text);
        treat(&g_mobile, at);
        return sent();
    }
    std::string sent() const { return at->cmd != nullptr ? at->cmd : "(nul)"; }
    bool skipped() const { return (at->flags & AT_FLAG_SKIP) != 0; }

    at_info* at = nullptr;
};

template <std::size_t size> void set(char (&field)[size], const char* text)
{
    std::snprintf(field, size, "%s", text);
}

std::string substitute(const char* text, const char* placeholder, const char* value)
{
    char* const result = at_substitute(text, std::strlen(text), placeholder, value);
    const std::string copy = result != nullptr ? result : "(null)";
    std::free(result);
    return copy;
}

} // namespace

TEST_F(PreTreat, Substitute)
{
    EXPECT_EQ(substitute("a$X", "$X", "1"), "a1");
    EXPECT_EQ(substitute("$X,$X;", "$X", "1"), "1,1;");
    // The buffer has the template's length and one value: the second value loses its tail.
    EXPECT_EQ(substitute("$X,$X", "$X", "123456789"), "123456789,123");
    EXPECT_EQ(substitute("$X$X$X$X$X", "$X", "abcdefgh"), "abcdefghabcdefgha");
    for (const char* value : {"", "1\r", "1\nAT", "\x1a"})
        EXPECT_EQ(substitute("a$X", "$X", value), "(null)");
    EXPECT_EQ(substitute("a$Y", "$X", "1"), "(null)");
    EXPECT_EQ(substitute("a", "", "1"), "(null)");
    EXPECT_EQ(at_substitute(nullptr, 0, "$X", "1"), nullptr);
}

TEST_F(PreTreat, ProfileWithCrLfSendsCleanCommands)
{
    set(g_mobile.apn, "internet");
    EXPECT_EQ(run(general_pre_treat, "AT+A\r"), "AT+A");
    EXPECT_EQ(run(cont3_pre_treat, "AT+A=\"$APN\"\r"), "AT+A=\"internet\"");
}

TEST_F(PreTreat, BandRowsGoByTheFirstPrefix)
{
    struct {
        const char* revision;
        const char* model;
        const char* mask;
    } const cases[] = {
        {"EC25AUTFAR06A03M4G", "EC25", "ff,80080000df,0"},
        {"EC25AFFAR07A04M4G", "EC25", "260,42000000000000381a,0"},
        {"EC25AFAR05A04M4G", "EC25", "260,42000000000000381a,0"},
        {"EC21AUTLR01", "EC21", "0,8000044,0"},
        {"EC21AUTR01", "EC21", "50,8000055,0"},
        {"EC21AUR01", "EC21", "ff,80080000df,0"},
        {"EC21AR01", "EC21", "260,80a,0"},
        {"EP06APACR01", "EP06", "fff0,1e0021600d5,20"},
        {"EP06AR01", "EP06", "260,2000001003301185a,0"},
        {"11.433.45", "U9300C", "896,1272,131072"},
        {"EC25VFAR01", "U9300C", "0,1008,0"},
    };
    for (const auto& c : cases) {
        set(g_mobile.revision, c.revision);
        set(g_mobile.model, c.model);
        EXPECT_EQ(run(cband_pre_treat, "AT+QCFG=\"band\",$BAND,1"),
                  std::string("AT+QCFG=\"band\",") + c.mask + ",1")
            << c.revision;
        EXPECT_FALSE(skipped()) << c.revision;
    }
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
    run(cband_pre_treat, "AT+BAND $BAND");
    EXPECT_FALSE(skipped());
    run(cband_pre_treat, nullptr);
    EXPECT_FALSE(skipped()) << "no text at all";
    set(g_mobile.band_tds, "20");
    run(cband_pre_treat, "AT+BAND=$BAND");
    EXPECT_FALSE(skipped());
    // A module without a row gets its template as it is, and no test.
    set(g_mobile.revision, "RM500Q");
    set(g_mobile.band_tds, "21");
    EXPECT_EQ(run(cband_pre_treat, "AT=493,1e000000085,21"), "AT=493,1e000000085,21");
    EXPECT_FALSE(skipped());
}

TEST_F(PreTreat, ScanModePerModel)
{
    const char* const none = "old"; // no value: the command stays as it was
    struct {
        const char* model;
        int wanted;
        int network_switch;
        int current;
        const char* value;
        bool skipped;
    } const cases[] = {
        {"U9300C", 0, 0, 2, "2", true},
        {"U9300C", 0, 0, 3, "2", false},
        {"E9720", 3, 0, 9, "5", false},
        {"U9300C", 9, 0, 9, none, true},
        {"LE910", 0, 0, 25, "25", true},
        {"RM500Q-GL", 1, 0, 0, "AUTO", false},
        {"RM500Q", 9, 0, 0, "LTE:NR5G", false},
        {"RM500Q", 9, 1, 0, "NR5G", false},
        {"RM500Q", 9, 2, 0, none, false},
        {"RM500Q", 9, 2, 9, none, true},
        {"RM510Q", 77, 0, 0, "AUTO", false},
        {"MH5000-31", 0, 0, 1, "AT^SYSCFGEX=\"030802\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,,", false},
        {"MH5000-31", 1, 0, 0, none, false},
        {"MH5000-31", 1, 0, 1, none, true},
        {"EC25", 9, 0, 0, "9", false},
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

TEST_F(PreTreat, ApnPerModelAndCarrier)
{
    set(g_mobile.apn, "web");
    set(g_mobile.user, "u");
    set(g_mobile.password, "p");
    g_mobile.auth = 2;
    struct {
        const char* model;
        int protocol;
        int verizon;
        const char* text;
    } const cases[] = {
        {"ML303", 0, 1, "=\"web\""},
        {"MH5000-31", 0, 1, "=\"IP\",\"web\""},
        {"MH5000-31", 2, 0, "=\"IPV4V6\",\"web\""},
        {"MH5000-31", 3, 0, "(nul)"},
        {"EC25", 1, 1, "=3,3,\"web\",\"u\",\"p\",2"},
        {"RM500Q", 1, 0, "=1,3,\"web\",\"u\",\"p\",2"},
    };
    for (const auto& c : cases) {
        set(g_mobile.model, c.model);
        cell_net_proto = c.protocol;
        verizon_flag = c.verizon;
        EXPECT_EQ(run(apn_pre_treat, "=$PARAM"), c.text) << c.model;
    }
    g_mobile.apn[0] = '\0';
    EXPECT_EQ(run(apn_pre_treat, "=$PARAM"), "=1,3,\"\",\"u\",\"p\",2");
    EXPECT_EQ(run(cont3_pre_treat, "\"$APN\""), "\"vzwinternet\"");
}

TEST_F(PreTreat, SettingsThatAreMissingSkipTheirCommand)
{
    EXPECT_EQ(run(userpwd_pre_treat, "=$PARAM"), "=0,\"\",\"\""); // built all the same
    EXPECT_TRUE(skipped());
    run(smsc_pre_treat, "=$SCA");
    EXPECT_TRUE(skipped());
    set(g_mobile.user, "u");
    set(g_mobile.password, "p");
    set(g_mobile.smscenter, "+4917");
    g_mobile.auth = 1;
    EXPECT_EQ(run(userpwd_pre_treat, "=$PARAM"), "=1,\"p\",\"u\"");
    EXPECT_FALSE(skipped());
    EXPECT_EQ(run(smsc_pre_treat, "=$SCA"), "=+4917");
    EXPECT_FALSE(skipped());
    EXPECT_EQ(run(ucs2_pre_treat, "AT+CSCS"), "AT+CSCS");
    EXPECT_FALSE(skipped());
    g_mobile.smsmode = 1;
    run(ucs2_pre_treat, "AT+CSCS");
    EXPECT_TRUE(skipped());
}

// A PIN that goes out unasked, over and over, locks the SIM.
TEST_F(PreTreat, PinGoesOutOnlyWhenAskedFor)
{
    struct {
        int last_event;
        const char* pin;
        bool goes;
    } const cases[] = {{GSM_EVENT_PIN_REQUIRED, "1234", true},
                       {GSM_EVENT_PIN_ERROR, "1234", false},
                       {GSM_EVENT_PIN_REQUIRED, "", false}};
    for (const auto& c : cases) {
        g_mobile.last_event = c.last_event;
        set(g_mobile.pincode, c.pin);
        testing::internal::CaptureStdout();
        EXPECT_EQ(run(cpin_pre_treat, "=$PIN_NUMBER"), c.goes ? "=1234" : "(nul)");
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  std::string("[Cellular]---> {cpin_pre_treat} pin = ") + c.pin + " \n");
        EXPECT_EQ(skipped(), !c.goes);
    }
}

TEST_F(PreTreat, SlotIsConsumed)
{
    cell_sim_config(2)->scan_code = 8;
    for (const int slot : {0, 3, -1}) {
        g_mobile.simslot = slot;
        run(selslot_pre_treat, "=$NUM");
        EXPECT_TRUE(skipped());
        EXPECT_EQ(selected_card, 1);
    }
    g_mobile.simslot = 2;
    EXPECT_EQ(run(selslot_pre_treat, "=$NUM"), "=2");
    EXPECT_FALSE(skipped());
    EXPECT_EQ(selected_card, 2);
    EXPECT_EQ(g_mobile.simslot, 0);
    EXPECT_EQ(g_mobile.scanmode, 10);
}
