// SPDX-License-Identifier: MIT
// Setters: what each text and its absence does, and which texts never get into the record.
#include "tests/testing.h"

TEST(Setters, HostileTextsLeaveTheRecordAloneAndNoTextActsPerField)
{
    const auto set = [](const char* apn, const char* user, const char* password, int auth,
                        const char* pin, const char* smsc) {
        return libgsm_set_apn(apn, user, password, auth) + libgsm_set_pincode(pin) +
               libgsm_set_smscenter(smsc);
    };
    const auto stored = [] {
        const gsm_mobile& r = g_mobile;
        return in_words(r.apn, ",", r.user, ",", r.password, ",", r.auth, ",", r.pincode, ",",
                        r.smscenter);
    };
    captured said;
    EXPECT_EQ(set("apn", "user", "password", 1, "1234", "+49"), 0);
    for (const char* text : {"a\"b", "a\rb", "a\nb", "a\x1a", "\x1b[", "a\tb", "\x7f"}) {
        EXPECT_EQ(set(text, "x", "x", 3, text, text), -3);
        EXPECT_EQ(libgsm_set_apn("x", text, "x", 3), -1);
        EXPECT_EQ(libgsm_set_apn("x", "x", text, 3), -1);
    }
    for (const char* what : {"apn: ", "user: ", "password: ", "pin: ", "smscenter: "})
        EXPECT_EQ(count_of(said.text(), std::string(what) + "refused"), 7);
    EXPECT_EQ(stored(), "apn,user,password,1,1234,+49");
    set(nullptr, nullptr, nullptr, 0, nullptr, nullptr);
    EXPECT_EQ(stored(), ",,,0,1234,");
    libgsm_set_pincode("");
    word_set(mobile, {});
    EXPECT_EQ(set("x", "x", "x", 3, "x", "x"), -3);
    EXPECT_EQ(stored(), ",,,0,,");
}

// Catches: settings whose unchanged 3G mode takes the link of another operator down for good.
TEST(Setters, AllButTheModeReachesTheDialerAndTheSlotAndNoModem)
{
    modem_port port;
    cellular_setting wanted = {1, "net", "", "", "1234", 1, 2, 5, 1, "9.9.9.9"};
    sim_slot_set_scan_code(4);
    EXPECT_EQ(kelo_set_cellular_but_mode(&wanted), 1);
    const cell_sim_cfg& slot = *cell_sim_config(1);
    EXPECT_EQ(in_words(start_settings_copy().ping_target, g_cellSet.apn, slot.scan_code, slot.apn,
                       slot.pin, slot.auth, g_netWorkCardFlag, g_mode_no_service, cell_pdpdeact),
              "9.9.9.9net4net1234pap100");
    wanted.enable = 0;
    EXPECT_EQ(kelo_set_cellular_but_mode(&wanted) - kelo_set_cellular_but_mode(nullptr), 1);
    EXPECT_EQ(in_words(g_netWorkCardFlag, port.heard()), "0");
}
