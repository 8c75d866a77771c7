// SPDX-License-Identifier: MIT
// Settings: what each change path reaches, and what a careless or hostile record can't do. Status
// queries: the report by what the library knows, and the codes that are handed over once.
#include "tests/testing.h"

static std::vector<std::string> shell_lines;

// The host's shell wrapper.
int kelo_system(const char* command)
{
    start_settings_copy(); // the library holds no lock here: a host may call it
    shell_lines.emplace_back(command);
    return libgsm_set_volte(0);
}

static constexpr cellular_setting all_set = {1, "internet", "someone", "secret", "1234",
                                             2, 4,          60,        1,        "192.0.2.1"};

TEST(Settings, NetModeAtStartAndInAChange)
{
    // Net mode, operator, scan code at the start; in a change, with the word for no service.
    constexpr std::tuple<int, const char*, int, const char*, const char*, const char*> rows[] = {
        {1, "", 2, "20", "LTE", "0"},      {2, "CHN-UNICOM", 4, "40", "WCDMA", "0"},
        {3, "", 6, "00", "AUTO", "0"},     {2, "CHN-UNICOM2", 4, "01", "AUTO", "0"},
        {4, "", 7, "70", "LTE:NR5G", "1"}, {5, "", 8, "80", "NR5G", "2"},
        {-1, "", 0, "00", "AUTO", "0"}};
    modem_port port;
    for (const auto& [mode, oper, at_start, in_change, mode_pref, nr5g_disable_mode] : rows) {
        text_set(g_mobile.oper, oper);
        cellular_setting wanted = all_set;
        wanted.net_mode = mode;
        net_mode_to_scan_code(mode);
        EXPECT_EQ(cell_sim_config(1)->scan_code, at_start) << mode;
        set_5G_para(&wanted, 0);
        EXPECT_EQ(in_words(cell_sim_config(1)->scan_code, g_mode_no_service), in_change) << mode;
        EXPECT_EQ(port.heard(),
                  in_words("AT+QNWPREFCFG= \"mode_pref\",", mode_pref,
                           "\r\nAT+QNWPREFCFG=\"nr5g_disable_mode\",", nr5g_disable_mode, "\r\n"));
    }
    EXPECT_EQ(get_cell_pdpdeact(), 0) << "apply_attach was 0";
}

TEST(Settings, SlotOfAChange)
{
    constexpr const char* auth_texts[] = {"none", "pap", "chap", "ms-chap", "ms-chapv2", "none"};
    const cell_sim_cfg& slot = *cell_sim_config(1);
    cellular_setting wanted = all_set;
    for (wanted.auth = 0; wanted.auth < 6; wanted.auth++) {
        kelo_set_cellular(&wanted);
        EXPECT_STREQ(slot.auth, auth_texts[wanted.auth]);
    }
    EXPECT_EQ(in_words(slot.apn, slot.user, slot.password, slot.pin), "internetsomeonesecret1234");
    EXPECT_EQ(in_words(attach_timeout, get_cell_pdpdeact()), "601");
    EXPECT_STREQ(g_mobile.apn, "") << "the modem record is the restart's";

    std::memset(&wanted, 'x', sizeof wanted); // no text has an end
    captured said;
    kelo_set_cellular(&wanted);
    EXPECT_EQ(g_cellSet.user, std::string(255, 'x'));
    EXPECT_EQ(in_words(start_settings_copy().ping_target, slot.user), std::string(62, 'x'));
    EXPECT_EQ(slot.pin, nullptr) << "half a PIN is a wrong PIN";
    EXPECT_TRUE(said.has("pin of more than 31 characters, left out"));

    wanted = {};
    set_5G_para(&wanted, 1);
    EXPECT_EQ(slot.user, nullptr);
    text_set(wanted.apn, "off"); // and enable 0
    EXPECT_EQ(in_words(attach_timeout, kelo_set_cellular(&wanted), g_netWorkCardFlag), "5010");
    EXPECT_EQ(shell_lines,
              (std::vector<std::string>{"ifconfig wwan0 down", "ifconfig wwan0.1 down"}));
    EXPECT_STREQ(start_settings_copy().apn, "off");
    EXPECT_EQ(slot.apn, nullptr) << "the slot is not touched";
}

// Old or new, never a mix: every field of a copy is of one record.
TEST(Settings, ReadersSeeOneRecord)
{
    captured quiet;
    const std::jthread reader([](const std::stop_token& end) {
        while (!end.stop_requested()) {
            const cellular_setting seen = start_settings_copy();
            EXPECT_EQ(seen.apn[0], seen.ping_target[30]);
        }
    });
    cellular_setting wanted = {};
    for (int i = 0; i < 3000; i++) {
        std::memset(&wanted, 'a' + i % 2, sizeof wanted);
        wanted.enable = 0;
        kelo_set_cellular(&wanted);
    }
}

TEST(Report, BySimLinkAndCell)
{
    // SIM, ICCID, link, network, scan mode and no service; SIM state, signal and net type.
    constexpr std::tuple<int, const char*, int, int, int, int, int, int, int> rows[] = {
        {0, "8986", 1, 9, 0, 0, 1, -97, 0}, {-1, "8986", 1, 9, 0, 0, 0, -97, 0},
        {1, "", 1, 9, 0, 0, 1, -97, 0},     {1, "8986", 0, 9, 0, 0, 2, -97, 0},
        {1, "8986", 1, 9, 1, 0, 2, -97, 1}, {1, "8986", 1, 3, 3, 0, 2, -97, 2},
        {1, "8986", 1, 2, 2, 0, 2, 23, 3},  {1, "8986", 1, 0, 0, 0, 2, -97, 2},
        {1, "8986", 1, 9, 2, 1, 2, 0, 0}};
    g_mobile.rssi = 23;
    g_mobile.rsrp = -97;
    text_set(g_mobile.oper, std::string(60, 'o').c_str());
    cellular_status seen = {};
    seen.reserved = 77;
    for (const auto& [sim, iccid, online, stem, scanmode, none, state, signal, type] : rows) {
        set_sim_status(sim);
        text_set(g_mobile.iccid, iccid);
        cell_network_up = is_pin_ready = online;
        g_mobile.qeng_net_stem = stem;
        g_mobile.currscanmode = scanmode;
        g_mode_no_service = none;
        EXPECT_EQ(kelo_get_cellular(&seen), 1);
        EXPECT_EQ(std::tuple(seen.sim_state, seen.signal, seen.net_type, kelo_is_sim_insert()),
                  std::tuple(state, signal, type, sim != -1))
            << sim << iccid << online << stem << scanmode << none;
        EXPECT_STREQ(seen.iccid, iccid);
    }
    EXPECT_EQ(in_words(seen.oper, seen.reserved), std::string(31, 'o') + "77");
    EXPECT_EQ(shell_lines,
              (std::vector<std::string>{"echo \"\" > /tmp/network5Gmess.txt", "ifconfig wwan0 down",
                                        "ifconfig wwan0.1 down"}));
    word_set(mobile, {}); // no field is left as it was
    EXPECT_EQ(kelo_get_cellular(&seen), 1);
    EXPECT_EQ(in_words(seen.oper, seen.sn, seen.imsi, seen.iccid, libgsm_get_pincode()), "");
    EXPECT_EQ(libgsm_get_model(), nullptr);
    EXPECT_EQ(in_words(libgsm_get_rsrp(), kelo_update_apn()), "-1-1");
}

TEST(Queries, CodesAreHandedOverOnceAndTheApnIsThatOfTheRecord)
{
    modem_port port;
    char buffer[KELO_VERSION_CODE_SIZE + 1] = "";
    libgsm_update_version_code(std::string(200, 'v').c_str());
    EXPECT_EQ(kelo_check_version_code(buffer), 1);
    EXPECT_EQ(buffer, std::string(63, 'v'));
    EXPECT_EQ(kelo_check_version_code(buffer), 0);

    libgsm_update_qmbncfg_code(std::string(63, 'p').c_str());
    libgsm_check_qmbncfg_code();
    libgsm_update_qmbncfg_code("x\x1ay");
    libgsm_check_qmbncfg_code();
    EXPECT_EQ(port.heard(),
              "AT+QMBNCFG=\"SELECT\",\"" + std::string(42, 'p') + "\r\nat+qcfg=\"ims\",1\r\n");
    for (const std::string apn :
         {"net", "", "of more characters than 63 leave room for in one line"}) {
        libgsm_set_apn(apn.c_str(), "u", "p", 2);
        EXPECT_EQ(kelo_update_apn(), 0);
    }
    EXPECT_EQ(port.heard(), "AT+QICSGP=1,3,\"net\",\"u\",\"p\",2\r\n"
                            "AT+QICSGP=1,1,\"\",\"\",\"\",0\r\n"
                            "AT+QICSGP=1,3,\"of more characters than 63 leave room for in one\r\n");
}
