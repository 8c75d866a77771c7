#include "feed.h"

using namespace kelo;

namespace
{

constexpr int up = GSM_EVENT_SIM_UP;
constexpr int down = GSM_EVENT_SIM_DOWN;
at_info query{}; // the running command

void reset_registration()
{
    g_mobile.cur_at = &query;
    g_mobile.reg_n = g_mobile.reg_stat = g_mobile.tech = g_mobile.rac = 9;
    g_mobile.reg_status = 5;
    std::strcpy(g_mobile.lac, "old");
    full_cell_id = 0;
    g_mobile.cid = 0;
}

std::string registration()
{
    const gsm_mobile& r = g_mobile;
    EXPECT_EQ(static_cast<unsigned>(r.cid), full_cell_id & 0xffffffff);
    return told(std::hex, std::uppercase, "n", r.reg_n, " stat", r.reg_stat, " ", r.lac, "/",
                libgsm_get_cid64(), " tech", r.tech, " rac", r.rac, " =", r.reg_status);
}

// Technologies and stats below are hexadecimal, as they are read.
TEST(Registration, LinesOfEveryLayout)
{
    // clang-format off
    const story stories[] = {
        {creg_handler, "AT+CREG?\r|+CREG: 0,1|OK", up, 1, "n0 stat1 old/0 tech9 rac9 =1"},
        {creg_handler, "+CREG: 1,\"5A1C\",\"7C4B10D\",7|OK", up, 1, "n9 stat1 5A1C/7C4B10D tech7 rac9 =1"},
        {creg_handler, "+CREG: 2,5,\"0E3F\",\"01A2B3C4\",2|OK", up, 1, "n2 stat5 0E3F/1A2B3C4 tech2 rac9 =5"},
        {creg_handler, "+CREG: 2,1,\"3AA800\",\"3A5B4C104\",11|OK", up, 1, "n2 stat1 3AA800/3A5B4C104 techB rac9 =1"},
        {creg_handler, "+CEREG: 2,1,\"3AA800\",\"3A5B4C104\",11|OK", up, 1, "n2 stat1 3AA800/3A5B4C104 tech11 rac9 =1"},
        {creg_handler, "+CGREG: 2,1,\"01F4\",\"0057E3A2\",6,\"2B\"|OK", up, 1, "n2 stat1 01F4/57E3A2 tech6 rac2B =1"},
        {creg_handler, "+CEREG: 1,\"5A1C\",\"7C4B10D\",7|OK", up, 1, "n9 stat1 5A1C/7C4B10D tech7 rac9 =1", 14},
        {creg_handler, "+CEREG: 2,1,\"5A1C\",\"7C4B10D\"|OK", up, 1, "n2 stat1 5A1C/7C4B10D tech9 rac9 =1", 15},
        // an unknown layout or stat: the event follows the old status
        {creg_handler, "+CEREG: 3,3,,,,0,15", up, 0, "n9 stat9 old/0 tech9 rac9 =5"},
        {creg_handler, "+CREG: 2,8", up, 0, "n2 stat8 old/0 tech9 rac9 =5"},
        {creg_handler, "+CGREG: 2,1,\"0123456789ABCDEF0123\",\"A\",7", up, 0, "n2 stat1 0123456789ABCDE/A tech7 rac9 =1"},
    };
    // clang-format on
    run(stories, reset_registration, registration);
    // With tries left, only a registered modem ends the query.
    query.retries_left = 3;
    const story again[] = {
        {creg_handler, "+CGREG: 2,2|OK", down, 0, "n2 stat2 old/0 tech9 rac9 =2"},
        {creg_handler, "+CGREG: 2,2|+CGREG: 2,1|OK", up, 1, "n2 stat1 old/0 tech9 rac9 =1"},
    };
    run(again, reset_registration, registration);
}

TEST(Registration, NewCellBehindTheFlowAsksOnceForItsFigures)
{
    const char* const line = "+CREG: 2,1,\"5A1C\",\"7C4B10D\",7";
    feed(creg_handler, line);
    word_set(at_flow_done, 1);
    feed(creg_handler, line);
    EXPECT_EQ(g_mobile.pending_at, nullptr) << "the flow ran, then the cell was the same";
    feed(creg_handler, "+CREG: 1,\"5A1C\",\"7C4B10E\",13");
    EXPECT_STREQ(g_mobile.act, "5G NR");
    EXPECT_EQ(g_mobile.cid, 0x7C4B10E);
    feed(creg_handler, "+CEREG: 2,1,\"5A1C\",\"7C4B10F\",7");
    EXPECT_EQ(g_mobile.pending_at, nullptr) << "neither an EN-DC cell nor +CEREG asks";
    feed(creg_handler, line);
    feed(creg_handler, "+CREG: 2,1,\"5A1C\",\"7C4B110\",7"); // replaces the text that waits
    EXPECT_STREQ(g_mobile.pending_at, "AT+QENG=\"servingcell\"");
}

TEST(Registration, OperatorTechnologySignal)
{
    // clang-format off
    const story stories[] = { // act/plmn/band oper, channel, rssi, status
        {cops_handler, "AT+COPS?\r|+COPS: 0,0,\"CHINA MOBILE CMCC\",7|OK", up, 1, "a/p/b CHINA MOBILE CMCC 9 9 1"},
        {cops_handler, "+COPS: 0,2,\"46000\",7|OK", up, 1, "a/46000/b o 9 9 1"},
        {cops_handler, "+COPS: 0,2,\"310260\",13", up, 0, "a/p/b 310260 9 9 1"},
        {cops_handler, "+COPS: 0|OK", down, 1, "a/p/b o 9 9 0"},
        {cops_handler, "+COPS: 0,0,\"Telefonica, O2\",7", 0, 0, "a/p/b o 9 9 5"},
        {nwinfo_handler, "AT+QNWINFO\r|+QNWINFO: \"FDD LTE\",\"26201\",\"LTE BAND 20\",6300|OK", 0, 1, "FDD LTE/26201/LTE BAND 20 o 6300 9 5"},
        {nwinfo_handler, "+QNWINFO: No Service|OK", 0, 1, "// o 9 9 5"},
        {nwinfo_handler, "+QNWINFO: \"FDD LTE\",26201,\"LTE BAND 20\",6300", 0, 0, "FDD LTE//LTE BAND 20 o 6300 9 5"},
        {nwinfo_handler, "+QNWINFO: \"FDD LTE\",\"\",\"LTE BAND 20 AND MORE\",1", 0, 0, "FDD LTE//LTE BAND 20 AND o 1 9 5"},
        {nwinfo_handler, "+PSRAT: LTE TDD|OK", 0, 1, "LTE TDD// o 9 9 5"},
        {nwinfo_handler, "+ZPAS: \"EDGE\",\"CS_PS\"|OK", 0, 1, "EDGE// o 9 9 5"},
        {nwinfo_handler, "^HCSQ: \"LTE\",58,48,171,26|OK", 0, 1, "LTE/p/b o 9 9 5"},
        {nwinfo_handler, "^HCSQ: \"NR\",61,201,22", 0, 0, "5G NR/p/b o 9 9 5"},
        {csq_handler, "+CSQ: 99,99|OK", 0, 1, "a/p/b o 9 99 5"},
    };
    // clang-format on
    run(
        stories,
        [] {
            gsm_mobile& r = g_mobile;
            set_texts({{r.act, "a"}, {r.plmn, "p"}, {r.band, "b"}, {r.oper, "o"}});
            r.channel = r.rssi = 9;
            r.reg_status = 5;
        },
        [] {
            const gsm_mobile& r = g_mobile;
            return told(r.act, "/", r.plmn, "/", r.band, " ", r.oper, " ", r.channel, " ", r.rssi,
                        " ", r.reg_status);
        });
}

} // namespace
