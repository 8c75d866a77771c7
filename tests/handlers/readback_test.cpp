#include "feed.h"

#include <fcntl.h>
#include <unistd.h>

using namespace kelo;

namespace
{

TEST(Readback, ScanModeBandsAndProfiles)
{
    // clang-format off
    const story stories[] = { // scan mode, masks, Verizon, profile, version
        {scanmode_handler, "AT+QCFG=\"nwscanmode\"\r|+QCFG: \"nwscanmode\",0|OK", 0, 1, "0 g/l/t 5 q v"},
        {scanmode_handler, "+QCFG: \"nwscanseq\",0403010205|OK", 0, 0, "77 g/l/t 5 q v"},
        {scanmode_handler, "+QNWPREFCFG: \"mode_pref\",LTE:NR5G |OK", 0, 1, "9 g/l/t 5 q v"},
        {scanmode_handler, "+QNWPREFCFG: \"mode_pref\",LTE:WCDMA|OK", 0, 1, "77 g/l/t 5 q v"},
        {scanmode_handler, "^SYSCFGEX: \"080302\",40000000,1,2,40000000,,", 0, 0, "0 g/l/t 5 q v"},
        {scanmode_handler, "+GTRAT: 17,6,3|OK", 0, 1, "9 g/l/t 5 q v"},
        {scanmode_handler, "+GTRAT: ", 0, 0, "0 g/l/t 5 q v"},
        {band_handler, "OK|+QCFG: \"band\",0xbff,0x1e00b0e18df,0x0", 0, 0, "77 bff/1e00b0e18df/0 5 q v"},
        {band_handler, "+QCFG: \"band\",0x93,0x1a0000800d5|OK", 0, 1, "77 93/1a0000800d5/ 5 q v"}, // EC25: two masks
        {band_handler, "+BNDPRF: 3FF,7FFF,1|OK", 0, 1, "77 3FF/7FFF/1 5 q v"},
        {band_handler, "+QCFG: \"band\",0x0000000000000000000F,5,0000000000000000000F", 0, 0, "77 000000000000000/5/000000000000000 5 q v"},
        {mbn_list_handler, "OK|+QMBNCFG: \"List\",4,1,0,\"hVoLTE-Verizon\",0x060101A0,201801081", 0, 0, "77 g/l/t 0 q v"},
        {mbn_list_handler, "+QMBNCFG: \"List\",2,1,1,\"HVOLTE-verizon\",0x05010141,202302081|OK", 0, 1, "77 g/l/t 1 q v"},
        {mbn_list_handler, "hVoLTE-Verizon\"List\",", 0, 0, "77 g/l/t 0 q v"},
        {qmbncfg_list_handler, "+QMBNCFG: \"List\",0,0,0,\"ROW_Generic_3GPP\",0x0501081F", 0, 1, "77 g/l/t 5 ROW_Generic_3GPP! v"},
        {qmbncfg_list_handler, "0,0,0,", 0, 1, "77 g/l/t 5 ! v"},
        {ati_handler, "Quectel|EC25|OK", 0, 0, "77 g/l/t 5 q v"},
        {ati_handler, "EG95|Revision: EG95EXGAR08A02M1G", 0, 1, "77 g/l/t 5 q EXGAR08A02M1G!"},
    };
    // clang-format on
    run(
        stories,
        [] {
            gsm_mobile& r = g_mobile;
            r.currscanmode = 77;
            verizon_flag = 5;
            r.qmbn_code_new = r.version_code_new = 0;
            set_texts({{r.band_gsm, "g"},
                       {r.band_lte, "l"},
                       {r.band_tds, "t"},
                       {r.qmbn_code, "q"},
                       {r.version_code, "v"}});
        },
        [] {
            const gsm_mobile& r = g_mobile;
            return told(r.currscanmode, " ", r.band_gsm, "/", r.band_lte, "/", r.band_tds, " ",
                        libgsm_get_verizon_flag(), " ", r.qmbn_code,
                        r.qmbn_code_new != 0 ? "! " : " ", r.version_code,
                        r.version_code_new != 0 ? "!" : "");
        });
}

at_list flow = LIST_HEAD_INIT(flow);
at_info running{};
at_info waiting{};

TEST(Sim, AnswersAndWhatEndsTheCommandAndTheFlow)
{
    // clang-format off
    const story stories[] = { // SIM ready, the rest of the flow marked as sent
        {cpin_handler, "AT+CPIN?\r|+CPIN: READY|OK", 0, 1, "1 0"},
        {cpin_handler, "+CPIN: SIM PIN|OK", GSM_EVENT_PIN_REQUIRED, 1, "0 0"},
        {cpin_handler, "+CPIN: NOT READY", GSM_EVENT_SIM_FAILED, 0, "0 8"},
        {cpin_handler, "+CME ERROR: SIM failure", GSM_EVENT_SIM_FAILED, 0, "0 8"},
        {cpin_handler, "+CME ERROR: SIM not inserted", GSM_EVENT_SIM_NOT_INSERTED, 0, "0 8"},
        {cpin_handler, "+CME ERROR: SIM busy|OK", GSM_EVENT_SIM_BUSY, 0, "0 0"},
        {cpin_handler, "+CME ERROR: 103", GSM_EVENT_SIM_NOT_INSERTED, 0, "0 0"},
        {cpin_handler, "+CME ERROR: 16", GSM_EVENT_PIN_ERROR, 0, "0 0"},
        {cpin_handler, "ERROR|OK", 0, 0, "0 0"},
        {cfun_full_handler, "OK|+CPIN: SIM PIN", 0, 0, "0 0"},
        {cfun_full_handler, "+QUSIM: 1", 0, 1, "0 0"},
        {cfun_mini_handler, "OK|ERROR|+CPIN: READY", 0, 0, "0 0"},
        {selslot_handler, "OK", 0, 1, "0 0", 14},
        {selslot_handler, "OK|+QUSIM: 1", 0, 0, "0 0", 18},
        {selslot_handler, "+QUSIM: 1|OK", 0, 1, "0 0", 18},
        {ok_handler, "ERROR", 0, 0, "0 0"},
        {netseq_handler, "AT+QCFG=\"nwscanseq\"", 0, 0, "0 16"},
        {netseq_handler, "ERROR", 0, 1, "0 16"},
    };
    // clang-format on
    list_add_tail(&running.node, &flow);
    list_add_tail(&waiting.node, &flow);
    cur_at_list = &flow;
    g_mobile.cur_at = &running;
    run(
        stories,
        [] {
            running.flags = waiting.flags = 0;
            is_pin_ready = 0;
        },
        [] {
            return told(is_pin_ready, " ", running.flags & (waiting.flags | AT_FLAG_ONCE_DONE));
        });
}

// The port is a pipe: what the handler sends can be read from its other end.
TEST(Apn, TheFirstFinalLineSendsTheSecondCommand)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    g_mobile.fd = ends[1];
    for (int verizon : {0, 1}) {
        verizon_flag = verizon;
        g_mobile.reg_seen = g_mobile.at_done = 0;
        feed_all(apn_handler, "AT+QICSGP=1,3,\"internet\"|ERROR");
        EXPECT_EQ(g_mobile.at_done, 0);
        feed(apn_handler, "OK");
        EXPECT_EQ(g_mobile.at_done, 1);
        char sent[64] = "";
        EXPECT_GT(read(ends[0], sent, sizeof sent - 1), 0);
        EXPECT_STREQ(sent, verizon != 0 ? "AT+QICSGP=1,3,\"\",\"\",\"\",0\r\n"
                                        : "AT+QICSGP=3,3,\"\",\"\",\"\",0\r\n");
    }
    g_mobile.fd = -1;
    close(ends[0]);
    close(ends[1]);
}

} // namespace
