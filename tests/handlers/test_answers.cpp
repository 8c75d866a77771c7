// SPDX-License-Identifier: MIT
// Who the module is, how it is set, and what its SIM says.
#include "tests/handlers/feed.h"

#include "handlers/parse.h"
#include "modules/modules.h"

static void clear_identity()
{
    gsm_mobile& r = g_mobile;
    set_texts("", {r.model, r.sn, r.imsi, r.iccid, r.number, r.smscenter, r.revision});
}

// Each story fills one field at most, so that all of them in a row tell it.
static std::string identity()
{
    const gsm_mobile& r = g_mobile;
    return in_words(r.model, r.sn, r.imsi, r.iccid, r.number, r.smscenter, r.revision,
                    module_unlisted());
}

TEST(Identity, Answers)
{
    // clang-format off
    const story stories[] = {
        {"", cgmm_handler, "EC25 E9720", 0, 0, "E9720"}, // the order of the tokens, not of the line
        {"", qccid_handler, "+CCID: 01234567890123456789012345678901234", 0, 0, "0123456789012345678901234567890"},
        {"LE910-EUG 17.00.523", qccid_handler, "#CCID: 8949|+CME ERROR: SIM failure|+CME ERROR: SIM busy", GSM_EVENT_SIM_FAILED, 1, "8949"},
        {"SIM7600", qccid_handler, "+ICCID: 8949|^SCID: 8986|OK", 0, 1, "8986"},
        {"", cimi_handler, "AT+CIMI|262011234567890|+CREG: 1|:|OK", 0, 1, "262011234567890"},
        {"", cnum_handler, "AT+CNUM|+CNUM: \"Voice\",\"4915112345678\",129", 0, 1, "4915112345678"},
        {"EC25 EC25EFAR06A08M4G", csca_handler, "AT+CSCA?\r|+CSCA: \"+491710760000\",145|OK", 0, 1, "+491710760000"},
        {"", cgmr_handler, "EC25EFAR06A08M4G beta|OK", 0, 1, "EC25EFAR06A08M4G"},
        {"", cgmr_handler, "RING|RDY|NO CARRIER|BUSY|NORMAL POWER DOWN|OK", 0, 0, ""},
        {"", cgmm_handler, "AT+CGMM|AT|RDY|RM520N-GL\r|+CPIN: READY|OK", 0, 0, "RM520N-GL"},
        {"", cgmm_handler, "EC25|OK", 0, 1, "EC25"},
    };
    // clang-format on
    run(stories, clear_identity, identity);
    std::strcpy(g_mobile.model, "V1.0.1-B7"); // pads its version with four blanks, or with five
    for (const char* line : {"BASE  Version:    BASE_W25.39.4", "BASE  Version:     BASE_W25.39.4",
                             "BASE  Version:"}) {
        feed(cgmr_handler, line);
        EXPECT_EQ(std::string(g_mobile.revision), std::strlen(line) > 14 ? "BASE_W25.39.4" : "");
    }
}

TEST(Readback, ScanModeBandsAndProfiles)
{
    // clang-format off
    const story stories[] = { // scan mode, masks, Verizon, profile, version
        {"MH5000-31 10.1.2.5(H1212SP2C00)", scanmode_handler, "^SYSCFGEX: \"080302\",40000000,1,2,40000000,,", 0, 0, "0 x/x/x 5 x x"},
        {"", scanmode_handler, "+QCFG: \"nwscanmode\",0|+CMS ERROR: 310", 0, 1, "0 x/x/x 5 x x"}, // of a command joined to it
        {"EG25-G EG25GGBR07A08M2G", band_handler, "OK|+QCFG: \"band\",0xbff,0x1e00b0e18df,0x0", 0, 0, "77 bff/1e00b0e18df/0 5 x x"},
        {"", band_handler, "+QCFG: \"band\",0x0000000000000000000F,5,0000000000000000000F", 0, 0, "77 000000000000000/5/000000000000000 5 x x"},
        {"EG25-G EG25GGBR07A08M2G", qmbncfg_list_handler, "+QMBNCFG: \"List\",0,0,0,\"ROW_Generic_3GPP\",0x0501081F", 0, 1, "77 x/x/x 5 ROW_Generic_3GPP! x"},
        {"EC25 EC25EFAR06A08M4G", mbn_list_handler, "+QMBNCFG: \"List\",2,1,1,\"hVoLTE-Verizon\",0x05010141|+QMBNCFG: \"List\",3,0,0,\"Sprint\"|OK", 0, 1, "77 x/x/x 1 x x"},
        {"", mbn_list_handler, "+QMBNCFG: \"List\",2,1,0,\"hVoLTE-Verizon\"|OK", 0, 1, "77 x/x/x 0 x x"},
        {"", ati_handler, "Quectel|EC25|OK", 0, 0, "77 x/x/x 5 x x"},
        {"EG95 EG95EXGAR08A02M1G", ati_handler, "EG95|Revision: EG95EXGAR08A02M1G", 0, 1, "77 x/x/x 5 x EXGAR08A02M1G!"},
    };
    // clang-format on
    run(
        stories,
        [] {
            gsm_mobile& r = g_mobile;
            r.currscanmode = 77;
            verizon_flag = 5;
            r.qmbn_code_new = r.version_code_new = 0;
            set_texts("x", {r.band_gsm, r.band_lte, r.band_tds, r.qmbn_code, r.version_code});
        },
        [] {
            const gsm_mobile& r = g_mobile;
            return in_words(r.currscanmode, " ", r.band_gsm, "/", r.band_lte, "/", r.band_tds, " ",
                            libgsm_get_verizon_flag(), " ", r.qmbn_code,
                            r.qmbn_code_new != 0 ? "! " : " ", r.version_code,
                            r.version_code_new != 0 ? "!" : "");
        });
}

TEST(Readback, ScanModes)
{
    // clang-format off
    constexpr std::tuple<const char*, const char*, int> rows[] = {
        {"RM500Q-GL RM500QGLABR11A06M4G", "+QNWPREFCFG: \"mode_pref\",AUTO", 0},
        {"RM510Q-GL RM510QGLAAR11A03M4G", "+QNWPREFCFG: \"mode_pref\",NR5G", 10},
        {"RM510Q-GL RM510QGLAAR11A03M4G", "+QNWPREFCFG: \"mode_pref\",NR5G:LTE", 77}, // not known: as it was
        {"MH5000-31 10.1.2.5(H1212SP2C00)", "^SYSCFGEX: \"03\",3FFFFFFF,0,2,40", 3},
        {"MH5000-31 10.1.2.5(H1212SP2C00)", "^SYSCFGEX: \"00\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF", 0},
        {"Fibocom", "+GTRAT: 2", 2}, {"Fibocom", "+GTRAT: 3", 3}, {"Fibocom", "+GTRAT: 10", 0},
        {"Fibocom", "+GTRAT: 14", 10}, {"Fibocom", "+GTRAT: 16", 9}, {"Fibocom", "+GTRAT: 17,6,3", 9},
    };
    // clang-format on
    for (const auto& [module, line, expected] : rows) {
        std::optional<int> mode;
        EXPECT_TRUE(read_scan_mode(line, mode));
        EXPECT_EQ(mode.value_or(77), expected) << module << ": " << line;
    }
}

static at_info running{}, waiting{};

TEST(Sim, AnswersAndWhatEndsTheCommandAndTheFlow)
{
    // clang-format off
    const story stories[] = { // SIM ready, the rest of the flow marked as sent
        {"", cpin_handler, "+CPIN: NOT READY", GSM_EVENT_SIM_FAILED, 0, "0 8"},
        {"", cpin_handler, "+CME ERROR: SIM not inserted", GSM_EVENT_SIM_NOT_INSERTED, 0, "0 8"},
        {"", cpin_handler, "+CME ERROR: SIM busy|OK", GSM_EVENT_SIM_BUSY, 0, "0 0"},
        {"", cpin_handler, "+CME ERROR: SIM failure", GSM_EVENT_SIM_FAILED, 0, "0 8"},
        // the numbers tell less than the words
        {"", cpin_handler, "+CME ERROR: 10", GSM_EVENT_SIM_NOT_INSERTED, 0, "0 0"},
        {"", cpin_handler, "+CME ERROR: 13", GSM_EVENT_PIN_ERROR, 0, "0 0"},
        {"", cpin_handler, "+CME ERROR: 16", GSM_EVENT_PIN_ERROR, 0, "0 0"},
        {"", cpin_handler, "+CPIN: READY|OK", 0, 1, "1 0"},
        {"", cpin_handler, "+CPIN: SIM PUK|OK", GSM_EVENT_PUK_REQUIRED, 1, "0 0"},
        {"", cfun_full_handler, "OK|+CPIN: SIM PIN", 0, 0, "0 0"},
        {"RM500Q-GL RM500QGLABR11A06M4G", selslot_handler, "+QUSIM: 1|OK", 0, 1, "0 0", 18},
        {"", netseq_handler, "AT+QCFG=\"nwscanseq\"|ERROR", 0, 1, "0 16"},
    };
    // clang-format on
    list_add_tail(&running.node, cur_at_list);
    list_add_tail(&waiting.node, cur_at_list);
    g_mobile.cur_at = &running;
    run(
        stories,
        [] {
            running.flags = waiting.flags = 0;
            is_pin_ready = 0;
        },
        [] {
            return in_words(is_pin_ready, " ", running.flags & (waiting.flags | AT_FLAG_ONCE_DONE));
        });
}

// Catches: an APN that stays in the context of another operator, a second clearing, a command that
// ends ahead of it.
TEST(Readback, TheOtherContextOfAnApnIsClearedOnce)
{
    modem_port port;
    for (const auto& [verizon, wire] : {std::pair(0, "AT+QICSGP=3,3,\"\",\"\",\"\",0\r\n"),
                                        {1, "AT+QICSGP=1,3,\"\",\"\",\"\",0\r\n"}}) {
        verizon_flag = verizon;
        g_mobile.at_done = g_mobile.reg_seen = 0;
        feed(apn_handler, "AT+QICSGP=1,3,\"a\"|OK");
        EXPECT_EQ(g_mobile.at_done, 0);
        EXPECT_EQ(port.heard(), wire);
        feed(apn_handler, "OK");
        EXPECT_EQ(g_mobile.at_done, 1);
        EXPECT_EQ(port.heard(), "");
    }
}
