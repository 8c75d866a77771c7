// SPDX-License-Identifier: MIT
// Registration, operator, technology, signal and serving cell.
#include "handlers/questions.h"
#include "tests/handlers/feed.h"

constexpr int up = GSM_EVENT_SIM_UP;
static at_info query{}; // the running command

static void reset_registration()
{
    g_mobile.cur_at = &query;
    g_mobile.reg_n = g_mobile.reg_stat = g_mobile.tech = g_mobile.rac = 9;
    g_mobile.reg_status = 5;
    std::strcpy(g_mobile.lac, "old");
    full_cell_id = 7;
    g_mobile.cid = 7;
}

static std::string registered()
{
    const gsm_mobile& r = g_mobile;
    EXPECT_EQ(static_cast<unsigned>(r.cid), full_cell_id & 0xffffffff);
    return in_words(std::hex, std::uppercase, "n", r.reg_n, " stat", r.reg_stat, " ", r.lac, "/",
                    libgsm_get_cid64(), " tech", r.tech, " rac", r.rac, " =", r.reg_status);
}

// All below is hexadecimal, as it is read, but for the technology of a "+CREG".
TEST(Registration, LinesOfEveryLayout)
{
    // clang-format off
    const story stories[] = {
        {"EC25 EC25EFAR06A08M4G", creg_handler, "+CREG: 1,\"5A1C\",\"7C4B10D\",7|OK", up, 1, "n9 stat1 5A1C/7C4B10D tech7 rac9 =1"},
        {"RG500Q-EA RG500QEAAAR11A06M4G", creg_handler, "+CEREG: 2,1,\"3AA800\",\"3A5B4C104\",11|OK", up, 1, "n2 stat1 3AA800/3A5B4C104 tech11 rac9 =1"},
        {"UC20 UC20GQBR03A14E1G", creg_handler, "+CGREG: 2,1,\"01F4\",\"0057E3A2\",6,\"2B\"|OK", up, 1, "n2 stat1 01F4/57E3A2 tech6 rac2B =1"},
        {"", creg_handler, "+CREG: 2,1,\"\",\"7C4B10D\",7", up, 0, "n2 stat1 old/0 tech9 rac9 =1"},
        {"EC25 EC25EFAR06A08M4G", creg_handler, "+CREG: 5|OK", up, 1, "n9 stat5 old/7 tech9 rac9 =5"},
        {"", creg_handler, "+CGREG: 1,\"01F4\",\"57E3A2\",6", up, 0, "n9 stat1 01F4/57E3A2 tech6 rac9 =1"},
        {"", creg_handler, "+CGREG: 1", up, 0, "n9 stat1 old/7 tech9 rac9 =1"},
        // an unknown layout or stat: the event follows the old status
        {"", creg_handler, "+CEREG: 3,3,,,,0,15", up, 0, "n9 stat9 old/7 tech9 rac9 =5"},
        {"", creg_handler, "+CGREG: 2,1,\"0123456789ABCDEF0123\",\"A\",7", up, 0, "n2 stat1 0123456789ABCDE/A tech7 rac9 =1"},
    };
    // clang-format on
    run(stories, reset_registration, registered);
    // With tries left, only a registered modem ends the query.
    query.retries_left = 3;
    const story again[] = {
        {"", creg_handler, "+CGREG: 2,2|OK", GSM_EVENT_SIM_DOWN, 0, "n2 stat2 old/7 tech9 rac9 =2"},
        {"", creg_handler, "+CGREG: 2,2|+CGREG: 2,1|OK", up, 1, "n2 stat1 old/7 tech9 rac9 =1"},
    };
    run(again, reset_registration, registered);
}

// Catches: a loss that is not heard on the families that report it, or is on others; a cell change
// that asks for nothing, or that asks on a 5G anchor, whose figures come with the technology.
TEST(Registration, ReportsBehindTheFlow)
{
    constexpr int down = GSM_EVENT_SIM_DOWN;
    const story stories[] = {
        // status, cell, technology, what is asked then
        {"RM500Q-GL RM500QGLABR11A06M4G", general_handler, "+CREG: 2", down, 0, "2 7 x ", 14},
        {"", general_handler, "+CEREG: 2", 0, 0, "5 7 x ", 14},
        {"", general_handler, "+CEREG: 2", down, 0, "2 7 x ", 8},
        {"", general_handler, "+CREG: 2", 0, 0, "5 7 x ", 8},
        {"", general_handler, "+CREG: 1,\"5A1C\",\"7C4B20E\",7", up, 0,
         "1 7C4B20E x AT+QENG=\"servingcell\"", 14},
        {"", general_handler, "+CREG: 1,\"5A1C\",\"7\",7", up, 0, "1 7 x ", 14}, // the same cell
        {"", general_handler, "+CREG: 1,\"5A1C\",\"7C4B30F\",13", up, 0, "1 7C4B30F 5G NR ", 14},
    };
    word_set(flow_walked, 1);
    run(
        stories,
        [] {
            reset_registration();
            text_set(g_mobile.act, "x");
            std::free(std::exchange(g_mobile.pending_at, nullptr));
        },
        [] {
            const char* const asked = g_mobile.pending_at;
            return in_words(std::hex, std::uppercase, g_mobile.reg_status, " ", full_cell_id, " ",
                            g_mobile.act, " ", asked != nullptr ? asked : "");
        });
}

TEST(Registration, OperatorTechnologySignal)
{
    for (at_handler exported : {cops_handler, nwinfo_handler}) { // a host may call them with less
        char line[] = "+COPS: 0|OK";
        EXPECT_EQ(exported(nullptr, line), nullptr);
        EXPECT_EQ(exported(&g_mobile, nullptr), nullptr);
    }
    // clang-format off
    const story stories[] = { // act/plmn/band oper, channel, rssi, status
        {"EG25-G EG25GGBR07A08M2G", cops_handler, "+COPS: 0,0,\"Telefonica, O2\",7", 0, 0, "x/x/x x 9 9 5"},
        {"", cops_handler, "+COPS: 0,2,\"00101\",7|OK", up, 1, "x/00101/x x 9 9 1"},
        {"", cops_handler, "+COPS: 0,2,\"99901\",7", up, 0, "x/99901/x x 9 9 1"},
        {"", cops_handler, "+COPS: 0,0,\"Telia\",7", up, 0, "x/x/x Telia 9 9 1"},
        {"", cops_handler, "+COPS: 0", GSM_EVENT_SIM_DOWN, 0, "x/x/x x 9 9 0"},
        // of early firmware, without quotes; and cut
        {"EC20", nwinfo_handler, "+QNWINFO: \"FDD LTE\",46001,\"LTE BAND 3\",1650|OK", 0, 1, "FDD LTE//LTE BAND 3 x 1650 9 5"},
        {"EC20", nwinfo_handler, "+QNWINFO: \"FDD LTE\",46001,\"LTE BAND 3\"", 0, 0, "FDD LTE//LTE BAND 3 x 9 9 5"},
        {"EC20", nwinfo_handler, "+QNWINFO: \"FDD LTE\",46001", 0, 0, "FDD LTE// x 9 9 5"},
        {"MH5000-31", nwinfo_handler, "^HCSQ: \"LTE\",46,41,111,22", 0, 0, "LTE/x/x x 9 9 5"},
        {"MH5000-31", nwinfo_handler, "^HCSQ: \"NOSERVICE\"|OK", 0, 1, "/x/x x 9 9 5"},
        {"ZTE", nwinfo_handler, "+ZPAS: \"EDGE\",\"CS_PS\"|OK", 0, 1, "EDGE// x 9 9 5"},
        {"", question_line, "AT+QNWINFO|+COPS: 0,2,\"310260\",7|+COPS: 0,0,\"a b\",7|+COPS: 0|+CSQ: 99,99|OK", 0, 1, "x/310260/x a b 9 99 5"},
    };
    // clang-format on
    run(
        stories,
        [] {
            gsm_mobile& r = g_mobile;
            set_texts("x", {r.act, r.plmn, r.band, r.oper});
            r.channel = r.rssi = 9;
            r.reg_status = 5;
        },
        [] {
            const gsm_mobile& r = g_mobile;
            return in_words(r.act, "/", r.plmn, "/", r.band, " ", r.oper, " ", r.channel, " ",
                            r.rssi, " ", r.reg_status);
        });
}

// Every figure that a serving cell report may write. All start as 7, the texts as "x".
static std::string figures()
{
    const gsm_mobile& r = g_mobile;
    return in_words(r.act, " 5g", r.is5g, " ", r.mcc, "/", r.mnc, std::hex, std::uppercase, " cid ",
                    full_cell_id, std::dec, "=", r.enodebid, ":", r.cellid, " pci ", r.pcid,
                    " lac ", r.lac, " ch ", r.earfcn, " bw ", r.ul_bandwidth, "/", r.dl_bandwidth,
                    " rsrp ", r.rsrp, " rsrq ", r.rsrq, " sinr ", r.sinr, " cqi ", r.cqi, " stem ",
                    libgsm_get_qeng_net_stem());
}

static void reset_figures()
{
    gsm_mobile& r = g_mobile;
    for (int* field :
         {&r.is5g, &r.mcc, &r.mnc, &r.cid, &r.enodebid, &r.cellid, &r.pcid, &r.earfcn,
          &r.ul_bandwidth, &r.dl_bandwidth, &r.rsrp, &r.rsrq, &r.sinr, &r.cqi, &r.qeng_net_stem})
        *field = 7;
    full_cell_id = 7;
    set_texts("x", {r.act, r.lac});
}

static const std::string untouched =
    "x 5g7 7/7 cid 7=7:7 pci 7 lac x ch 7 bw 7/7 rsrp 7 rsrq 7 sinr 7 cqi 7 stem ";

// clang-format off
static const story cell_stories[] = {
    // EC25, RM500Q: LTE. A column that was not measured keeps its field; an empty one moves the others up.
    {"EC25 EC25EFAR06A08M4G", nullptr, "+QENG: \"servingcell\",\"NOCONN\",\"LTE\",\"FDD\",262,01,1A2F403,214,1300,3,5,5,5A1C,-97,-11,-66,14,31", 0, 0,
     "x 5g7 262/1 cid 1A2F403=107252:3 pci 214 lac 5A1C ch 1300 bw 5/5 rsrp -97 rsrq -11 sinr 14 cqi 31 stem 3"},
    {"", nullptr, "+QENG: \"LTE\",\"FDD\",262,-,1A2F403,-,1300,3,5,5,5A1C,-,-11,-66,14,-", 0, 0,
     "x 5g7 262/7 cid 1A2F403=107252:3 pci 7 lac 5A1C ch 1300 bw 5/5 rsrp 7 rsrq -11 sinr 14 cqi 7 stem 3"},
    {"EC25 EC25EFAR06A08M4G", nullptr, "+QENG: \"servingcell\",\"NOCONN\",\"WCDMA\",262,02,1F4A,57E3A2,3012,118,0,-87,-6,-,-,-,-,-", 0, 0,
     "WCDMA 5g7 7/7 cid 57E3A2=22499:162 pci 7 lac 1F4A ch 3012 bw 0/0 rsrp -87 rsrq 0 sinr -6 cqi 0 stem 2"},
    // RG500Q: standalone, with a cell id of 36 bits; and cut behind column 4.
    {"RG500Q-EA RG500QEAAAR11A06M4G", nullptr, "+QENG: \"servingcell\",\"NOCONN\",\"NR5G-SA\",\"TDD\",460,00,3A5B4C104,412,3AA800,504990,41,12,-84,-10,24,1,44", up, 0,
     "5G NR 5g2 460/0 cid 3A5B4C104=-5917503:4 pci 412 lac 3AA800 ch 504990 bw 0/12 rsrp -84 rsrq -10 sinr 24 cqi 0 stem 9"},
    {"", nullptr, "+QENG: \"servingcell\",\"LIMSRV\",\"NR5G-SA\",\"FDD\",001,01", up, 0,
     "5G NR 5g2 1/1 cid 7=7:7 pci 7 lac x ch 7 bw 0/7 rsrp 7 rsrq 7 sinr 7 cqi 0 stem 9"},
    {"RM500Q-GL RM500QGLABR11A06M4G", nullptr, "+QENG: \"NR5G-NSA\",262,01,65535,-32768,-32768,-32768", 0, 0,
     "x 5g7 262/1 cid 7=7:7 pci 7 lac x ch 7 bw 7/7 rsrp 7 rsrq 7 sinr 7 cqi 7 stem 9"},
    // a leg is only released when nothing of it is measured
    {"", nullptr, "+QENG: \"NR5G-NSA\",262,01,310,-32768,-32768,-10", 0, 0,
     "5G NR 5g1 262/1 cid 7=7:7 pci 310 lac x ch 7 bw 7/7 rsrp -32768 rsrq -10 sinr -32768 cqi 7 stem 9"},
    {"", nullptr, "+QENG: \"NR5G-NSA\",262,01,310,-32768,18,-32768", 0, 0,
     "5G NR 5g1 262/1 cid 7=7:7 pci 310 lac x ch 7 bw 7/7 rsrp -32768 rsrq -32768 sinr 18 cqi 7 stem 9"},
    {"", nullptr, "+QENG: \"NR5G-NSA\",262,01,310,-96,-32768,-32768", 0, 0,
     "5G NR 5g1 262/1 cid 7=7:7 pci 310 lac x ch 7 bw 7/7 rsrp -96 rsrq -32768 sinr -32768 cqi 7 stem 9"},
    {"RM510Q-GL RM510QGLAAR11A03M4G", nullptr, "+QENG: \"NR5G-NSA\",", 0, 0, untouched + "9"},
    // Fibocom: the header of a dual connection announces two lines, a third is none; that of LTE one.
    {"Fibocom", nullptr, "+GTCCINFO:|LTE-NR EN-DC service cell:|1,4,460,00,2495,2C17811,9FE9,C,141,100,18,47,60,21", 0, 0,
     "x 5g7 460/0 cid 2C17811=180600:17 pci 12 lac 2495 ch 40937 bw 7/100 rsrp -81 rsrq 21 sinr 18 cqi 7 stem 7"},
    {"Fibocom", nullptr, "1,9,460,00,,,7B4AE,19C,5041,100,56,74,60,65|1,9,1,1,,,1,1,1,1,1,1,1,1", 0, 0,
     "x 5g7 460/0 cid 7=7:7 pci 412 lac x ch 505006 bw 7/100 rsrp -97 rsrq 65 sinr 56 cqi 7 stem 7"},
    {"", nullptr, "LTE service cell:|1,4,262,01|1,9,1,1", 0, 0,
     "x 5g7 262/1 cid 7=7:7 pci 7 lac x ch 7 bw 7/7 rsrp 7 rsrq 7 sinr 7 cqi 7 stem 7"},
};
// clang-format on

TEST(ServingCell, LinesThroughBothCallers)
{
    for (at_handler handler : {general_handler, servingcell_handler}) {
        std::vector<story> stories(std::begin(cell_stories), std::end(cell_stories));
        for (story& s : stories)
            s.handler = handler;
        run(stories, reset_figures, figures);
    }
}

TEST(ServingCell, FinalLinesAndTheSwallowedSimUp)
{
    const story stories[] = {
        {"EC25 EC25EFAR06A08M4G", servingcell_handler, "+QENG: \"servingcell\",\"SEARCH\"|OK", 0, 1,
         untouched + "1"},
        // while a cell line is to come, any other line is taken for it
        {"", servingcell_handler, "LTE service cell:|+CME ERROR: 4", 0, 0, untouched + "7"},
        {"", general_handler, "LTE service cell:|OK|1,4,262,01", 0, 1, untouched + "7"},
    };
    run(stories, reset_figures, figures);
    // Catches: figures of another technology in the places of LTE's.
    const story asked[] = {
        {"LE910", question_line, "#RFSTS: \"262 01\",1795,-101,-67,-15,5A1C,,128|OK", 0, 1,
         "x 5g7 262/1 cid 7=7:7 pci 7 lac 5A1C ch 1795 bw 7/7 rsrp -101 rsrq -15 sinr 7 cqi 7 stem "
         "3"},
        {"LE910", question_line, "#RFSTS: \"262 02\",3012,118,-6.5,-87,-80,1F4A|ERROR", 0, 1,
         untouched + "1"},
        {"LE910", question_line, "#RFSTS: \"262 02\",3012,-87,-6,0,1F4A|OK", 0, 1, untouched + "1"},
        {"", question_line, "+QENG: \"servingcell\",\"SEARCH\",\"NR5G-SA\"", 0, 0,
         "5G NR 5g2 7/7 cid 7=7:7 pci 7 lac x ch 7 bw 0/7 rsrp 7 rsrq 7 sinr 7 cqi 0 stem 9"},
    };
    run(asked, reset_figures, figures);
    const char* const standalone = "+QENG: \"servingcell\",\"NOCONN\",\"NR5G-SA\"";
    set_net_status_flag(1);
    EXPECT_EQ(feed(servingcell_handler, standalone), up);
    EXPECT_EQ(feed(general_handler, standalone), 0);
    EXPECT_EQ(feed(general_handler, standalone), up);
}

// Catches: figures that are taken beyond their ranges, a question that costs more and more though
// it is answered, one that does not and costs as much as ever.
TEST(Questions, RangesAndPace)
{
    const std::string longest = "AT+" + std::string(KELO_QUESTION_SIZE - 4, 'A');
    const std::string longer = longest + "A";
    const std::tuple<const char*, int, int, int> rows[] = {{"AT", 1, 1, 0},
                                                           {"AT", 1, 86400, 0},
                                                           {"AT", 1, 0, -1},
                                                           {"AT", 1, 86401, -1},
                                                           {"AT", -1, 5, -1},
                                                           {"AT", 0, -5, 0},
                                                           {nullptr, 1, 5, -1},
                                                           {"A\x01T", 1, 5, -1},
                                                           {"AT\x01", 1, 5, -1},
                                                           {"XAT", 1, 5, -1},
                                                           {longer.c_str(), 1, 5, -1},
                                                           {"AT", KELO_QUESTIONS + 1, 5, -1},
                                                           {longest.c_str(), 1, 10, 0}};
    for (const auto& [text, count, seconds, result] : rows) {
        const std::vector<const char*> all(KELO_QUESTIONS + 1, text);
        EXPECT_EQ(kelo_set_questions(all.data(), count, seconds), result)
            << count << " " << seconds;
    }
    EXPECT_EQ(kelo_set_questions(nullptr, 1, 5), -1);
    std::string pauses;
    for (int s = 0, last = 0; s <= 300; s += 10) { // its answer comes behind the next wait
        const char* const asked = question_next(s * 1000);
        if (asked == nullptr)
            continue;
        EXPECT_EQ(asked, longest);
        feed(question_line, s == 70 ? "OK" : "ERROR");
        pauses += std::to_string(s - last) + " ";
        last = s;
    }
    EXPECT_EQ(pauses, "0 10 20 40 80 10 20 40 80 ");
}
