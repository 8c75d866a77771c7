// Settings: what each change path reaches, and what a careless or hostile record can't do.
#include "tests/api/host_side.h"

using namespace kelo;
using namespace kelo::test;

TEST(Settings, NetModeAtStartAndInAChange)
{
    struct {
        int mode;
        const char* oper;
        int at_start, in_change, no_service;
        const char *mode_pref, *nr5g_disable_mode;
    } const cases[] = {
        {1, "", 2, 2, 0, "LTE", "0"},      {2, "CHN-UNICOM", 4, 4, 0, "WCDMA", "0"},
        {3, "", 6, 0, 0, "AUTO", "0"},     {2, "CHN-UNICOM2", 4, 0, 1, "AUTO", "0"},
        {4, "", 7, 7, 0, "LTE:NR5G", "1"}, {5, "", 8, 8, 0, "NR5G", "2"},
        {-1, "", 0, 0, 0, "AUTO", "0"},
    };
    modem_port port;
    for (const auto& c : cases) {
        text_set(g_mobile.oper, c.oper);
        cellular_setting wanted = full_settings();
        wanted.net_mode = c.mode;
        net_mode_to_scan_code(c.mode);
        EXPECT_EQ(cell_sim_config(1)->scan_code, c.at_start) << c.mode;
        set_5G_para(&wanted, 0);
        EXPECT_EQ(cell_sim_config(1)->scan_code, c.in_change) << c.mode << c.oper;
        EXPECT_EQ(g_mode_no_service, c.no_service) << c.mode << c.oper;
        EXPECT_EQ(port.heard(), std::string("AT+QNWPREFCFG= \"mode_pref\",") + c.mode_pref +
                                    "\r\nAT+QNWPREFCFG=\"nr5g_disable_mode\"," +
                                    c.nr5g_disable_mode + "\r\n");
    }
    EXPECT_EQ(get_cell_pdpdeact(), 0) << "apply_attach was 0";
}

TEST(Settings, SlotOfAChange)
{
    constexpr const char* auth_texts[] = {"none", "pap", "chap", "ms-chap", "ms-chapv2", "none"};
    const cell_sim_cfg& slot = *cell_sim_config(1);
    cellular_setting wanted = full_settings();
    for (wanted.auth = 0; wanted.auth < 6; wanted.auth++) {
        kelo_set_cellular(&wanted);
        EXPECT_STREQ(slot.auth, auth_texts[wanted.auth]);
    }
    EXPECT_EQ(std::string(slot.apn) + slot.user + slot.password + slot.pin,
              "internetsomeonesecret1234");
    EXPECT_EQ(attach_timeout, 60);
    EXPECT_EQ(get_cell_pdpdeact(), 1);
    EXPECT_STREQ(g_mobile.apn, "") << "the modem record is the restart's";

    std::memset(&wanted, 'x', sizeof wanted); // no text has an end
    captured said;
    kelo_set_cellular(&wanted);
    EXPECT_EQ(g_cellSet.user, std::string(255, 'x'));
    EXPECT_EQ(start_settings_copy().ping_target, std::string(31, 'x'));
    EXPECT_EQ(slot.user, std::string(31, 'x'));
    EXPECT_EQ(slot.pin, nullptr) << "half a PIN is a wrong PIN";
    EXPECT_TRUE(said.has("pin of more than 31 characters, left out"));

    wanted = {};
    set_5G_para(&wanted, 1);
    EXPECT_EQ(slot.user, nullptr);
    EXPECT_EQ(attach_timeout, 50);
    text_set(wanted.apn, "off"); // and enable 0
    EXPECT_EQ(kelo_set_cellular(&wanted), 1);
    EXPECT_EQ(g_netWorkCardFlag, 0);
    EXPECT_EQ(shell_lines,
              (std::vector<std::string>{"ifconfig wwan0 down", "ifconfig wwan0.1 down"}));
    EXPECT_STREQ(start_settings_copy().apn, "off");
    EXPECT_EQ(slot.apn, nullptr) << "the slot is not touched";
}

// Old or new, never a mix: every field of a copy is of one record.
TEST(Settings, ReadersSeeOneRecord)
{
    captured quiet;
    int done = 0;
    std::thread writer([&done] {
        cellular_setting wanted = {};
        for (int i = 0; i < 3000; i++) {
            std::memset(&wanted, 'a' + i % 2, sizeof wanted);
            wanted.enable = 0;
            kelo_set_cellular(&wanted);
        }
        word_set(done, 1);
    });
    while (word_get(done) == 0) {
        const cellular_setting seen = start_settings_copy();
        EXPECT_EQ(seen.apn[0], seen.ping_target[30]);
    }
    writer.join();
}
