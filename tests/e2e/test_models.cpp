// SPDX-License-Identifier: MIT
// Every module from power-on to ready: what goes over the wire, in order, and what is known then.
#include "tests/e2e/story.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

using namespace kelo_story;

namespace
{

// The start flow of one module, worked out by hand from the flow tables, the catalogue and the
// module's profile. What has a mark goes out at the first start alone (1), with the settings of
// `tuned` alone (t), or with both; ~ is a blank. Two runs that most share have names.
struct module_flow {
    const char* name;
    const char* commands;
};

const module_flow ec25 = {"EC25", R"(
    1:AT+CGMM 1:AT+CGMR AT+QSIMDET=1,0 AT+QMTCONN? AT+QMBNCFG="Autosel",1 AT+CPIN? AT+CIMI
    AT+QCCID 1:AT+CGSN AT+QMBNCFG="List" t:AT+QICSGP=1,3,"internet","me","secret",1
    t:AT+QICSGP=3,3,"","","",0 AT+QCFG="nwscanmode";+CMGF=0;+CNMI=2,2,0,0,0
    1t:AT+QCFG="nwscanmode",0,1 AT+CGREG? AT+COPS?)"};
const module_flow low_power = {"EC25", R"(
    1:AT+CGMM 1:AT+CGMR 1:AT+CGSN ATI AT+QSCLK=1 AT+QCFG="risignaltype","physical"
    AT+QSIMDET=1,0 AT+QMBNCFG="AutoSel",1 at+qcfg="ims",1 AT+CREG=1 AT+QINDCFG="act",1,1~
    at+qcfg="urc/ri/smsincoming","pulse",20,1 at+qcfg="urc/ri/other","pulse",20,1
    at+qcfg="urc/ri/ring","always",120,1,4000,"on",1 AT+QSSLCFG="seclevel",1,0
    AT+QSSLCFG="ignorelocaltime",1,1 AT+QSSLCFG="ignoreinvalidcertsign",1,1
    AT+QSSLCFG="ignoremulticertchainverify",1,1 AT+QSSLCFG="sni",1,1 AT+QMBNCFG="Autosel",1
    AT+CPIN? AT+CIMI AT+QCCID AT+QMBNCFG="List" t:AT+QICSGP=1,3,"internet","me","secret",1
    t:AT+QICSGP=3,3,"","","",0 AT+QCFG="nwscanmode";+CMGF=0;+CNMI=2,2,0,0,0
    1t:AT+QCFG="nwscanmode",0,1 AT+CGREG? AT+COPS?)"};
const module_flow eg95 = {"EG95", ec25.commands}; // the same rows and values
// Of a model text that begins with EC25V, and of no other.
const module_flow ec25v = {"EC25", R"(
    begin AT+QGPS=1 AT+QMBNCFG="Autosel",1 AT+CPIN? AT+CIMI AT+QCCID AT+QCFG="band"
    1:AT+QCFG="band",0,1008,0,1 1:AT+QCFG="nwscanseq",00,1 AT+CGDCONT=1,"IPV4V6","vzwims"
    AT+CGDCONT=3,"IPV4V6","vzwinternet" AT+QCFG="nwscanmode";+CMGF=0;+CNMI=2,2,0,0,0 calls
    AT+QINDCFG="csq",1 AT+QNWINFO AT+CGREG? AT+COPS=3,0 AT+COPS? AT+CSQ)"};
const module_flow uc20 = {"UC20", R"(
    begin AT+CPIN? AT+CIMI AT+QCCID 1:AT+QCFG="nwscanseq",00,1 AT+QCFG="nwscanmode"
    1t:AT+QCFG="nwscanmode",2,1 calls t:AT+CSCA="+491710760000" AT+QCFG="band"
    AT+QINDCFG="csq",1 AT+QNWINFO AT+CGREG? AT+COPS=3,0 AT+COPS? AT+CSQ)"};
const module_flow le910 = {"LE910", R"(
    begin AT+CPIN? AT+CIMI AT#CCID t:AT+WS46=22 calls t:AT+CSCA="+491710760000" AT+CREG=2
    AT+CGREG? AT+COPS=3,0 AT+COPS? AT+CSQ)"};
const module_flow mh5000 = {"MH5000-31", R"(
    begin AT+CPIN? AT+CIMI AT^ICCID? AT^SYSCFGEX? t:AT+CGDCONT=1,"IP","internet"
    t:AT+QICSGP=3,3,"","","",0 AT^SYSCFGEX? 1t:AT^SYSCFGEX="02",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,,
    AT+CLIP=1 AT+CEREG=2 AT+CSCS="GSM";+CMGF=0;+CNMI=2,2,0,0,0 AT+CNUM AT+CSCS="GSM"
    t:AT+CSCA="+491710760000" AT+CLVL=4 AT+COPS=3,0 AT+COPS? AT^HCSQ? AT+CEREG? AT+COPS=3,2
    AT+COPS? AT+CSQ)"};
const module_flow u9300c = {"U9300C", R"(
    begin AT+CPIN? AT+CIMI AT+ICCID AT+BNDPRF? 1t:AT+BNDPRF=896,1272,131072
    t:AT+CGDCONT=1,"IP","internet" t:AT+QICSGP=3,3,"","","",0 t:AT$QCPDPP=1,1,"secret","me"
    AT+MODODR? 1t:AT+MODODR=7 calls t:AT+CSCA="+491710760000" AT+CREG=2 AT+PSRAT AT+CGREG?
    AT+COPS=3,0 AT+COPS? AT+COPS=3,2 AT+COPS? AT+CSQ)"};
const module_flow e9720 = {"E9720", R"(
    begin AT+CPIN? AT+CIMI AT+ICCID AT+BNDPRF? t:AT+CGDCONT=1,"IP","internet"
    t:AT+QICSGP=3,3,"","","",0 t:AT$QCPDPP=1,1,"secret","me" AT+MODODR? 1t:AT+MODODR=5 calls
    t:AT+CSCA="+491710760000" AT+CREG=2 AT+PSRAT AT+CGREG? AT+COPS=3,0 AT+COPS? AT+COPS=3,2
    AT+COPS? AT+CSQ)"};
const module_flow v101b7 = {"V1.0.1-B7", R"(
    begin AT+QGPS=1 AT+CPIN? AT+CIMI AT+CLIP=1 AT+CGREG=2 AT+CSCS="GSM";+CMGF=0;+CNMI=2,2,0,0,0
    AT+CGREG? AT+COPS=3,0 AT+COPS? AT+CSQ)"};
const module_flow rm500q = {"RM500Q", R"(
    begin AT+QGPS=1 AT+QMBNCFG="Autosel",1 AT+CPIN? AT+CIMI AT+QCCID
    t:AT+QICSGP=1,3,"internet","me","secret",1 t:AT+QICSGP=3,3,"","","",0
    AT+QNWPREFCFG="mode_pref" 1t:AT+QNWPREFCFG="mode_pref",LTE:NR5G AT+CLIP=1 AT+CREG=2
    AT+CSCS="GSM" AT+CMGF=0;+CNMI=2,2,0,0,0 AT+CSCS="GSM" t:AT+CSCA="+491710760000" AT+CLIR=2
    AT^DSCI=1 AT+CLVL=4 AT+QDAI=1,1,0,4,0,0,1,1 AT+QMIC=20577,14567 AT+QRXGAIN=20577
    AT+QCFG="ims",0 AT+CREG=2 AT+QINDCFG="csq",1 AT+QNWINFO AT+CREG? AT+COPS=3,0 AT+COPS?
    AT+CSQ AT+QENG="servingcell")"};

// Of modules that an example of a profile file brings.
const module_flow rm520n = {"RM520N-GL", rm500q.commands};
const module_flow sim7600 = {"SIM7600", R"(
    begin AT+CPIN? AT+CIMI AT+CICCID calls t:AT+CSCA="+491710760000" AT+CGREG? AT+COPS=3,0 AT+COPS?
    AT+CSQ)"};

// The owner's folder with the example for this module, where there is one.
struct own_profile {
    explicit own_profile(const std::string& name)
    {
        const std::filesystem::path example = KELO_PROFILE_EXAMPLES "/" + name + ".conf";
        if (!std::filesystem::exists(example))
            return;
        std::filesystem::create_directories("/etc/kelo/profiles");
        std::filesystem::copy(example, "/etc/kelo/profiles");
    }
    ~own_profile() { std::filesystem::remove_all("/etc/kelo"); }
};

line_list lines_of(const module_flow& flow, bool first, bool tuned)
{
    constexpr const char* begin =
        "1:AT+CGMM 1:AT+CGMR AT+QSIMDET=1,0 AT+QMTCONN? 1:AT+CGMI 1:AT+CGSN";
    constexpr const char* calls =
        R"(AT+CLIP=1 AT+CGREG=2 AT+CSCS="GSM" AT+CMGF=0;+CNMI=2,2,0,0,0 AT+CNUM AT+CSCS="GSM")";
    std::string commands = flow.commands;
    for (const auto& [name, run] : {std::pair("begin", begin), {"calls", calls}})
        if (const std::size_t at = commands.find(name); at != std::string::npos)
            commands.replace(at, 5, run);
    line_list lines;
    for (std::string line : words(commands)) {
        const std::string marks = line.substr(0, line.find_first_of("Aa"));
        if ((marks[0] == '1' && !first) || (marks.find('t') != std::string::npos && !tuned))
            continue;
        std::replace(line.begin(), line.end(), '~', ' ');
        lines.push_back(line.substr(marks.size()));
    }
    return lines;
}

// What is known behind the second start: operator, technology and band; area, cell and <AcT>; band
// masks; the scan mode read back; then of the serving cell is5g, the stem, country and network,
// physical cell, channel, RSRP, RSRQ, SINR and bandwidth.
std::string known(const gsm_mobile& is)
{
    char text[512];
    std::snprintf(text, sizeof text,
                  "%s,%s,%s,%s; %s,%llX,%d; %s,%s,%s; %d; %d,%d,%d,%d,%d,%d,%d,%d,%d,%d", is.oper,
                  is.plmn, is.act, is.band, is.lac, libgsm_get_cid64(), is.tech, is.band_gsm,
                  is.band_lte, is.band_tds, is.currscanmode, is.is5g, is.qeng_net_stem, is.mcc,
                  is.mnc, is.pcid, is.earfcn, is.rsrp, is.rsrq, is.sinr, is.dl_bandwidth);
    return text;
}

struct module_case {
    const char* name;
    const module_flow& flow;
    int scan_code; // -1: untouched, as all settings of the host; else tuned
    std::map<std::string, std::string> variables;
    std::string known;
};

// clang-format off
#define NO_CELL "0,0,0,0,0,0,-120,0,0,0"
const module_case modules[] = {
    {"EC25_tuned",   ec25,    0, {{"nwscanmode", "3"}}, "Telekom.de,,,; ,0,0; ,,; 0; " NO_CELL},
    {"EC25_low_power_tuned", low_power, 0, {{"nwscanmode", "3"}}, "Telekom.de,,,; ,0,0; ,,; 0; " NO_CELL},
    {"EG95",         eg95,   -1, {}, "Telekom.de,,,; ,0,0; ,,; 0; " NO_CELL},
    {"EC25V",        ec25v,  -1, {{"model", "EC25V"}, {"revision", "EC25VFAR02A07M4G"}},
     "Telekom.de,26201,FDD LTE,LTE BAND 3; 5A1C,7C4B10D,7; 0,1008,0; 0; " NO_CELL},
    {"UC20_tuned",   uc20,    4, {}, // WCDMA alone, as all that have a 4
     "CHN-UNICOM,46001,HSPA+,WCDMA 2100; 01F4,57E3A2,2; 93,,; 2; " NO_CELL},
    {"LE910_tuned",  le910,   4, {{"unknown_command", "OK"}}, // for the sake of time
     "Telekom.de,,,; 5A1C,7C4B10D,7; ,,; 0; " NO_CELL},
    {"MH5000_tuned", mh5000,  4, {{"unknown_command", "OK"}, {"syscfgex", R"("03",3FFFFFFF,0,2,40)"}},
     "CHINA MOBILE,46000,5G NR,; 3AA800,3A5B4C104,17; ,,; 2; " NO_CELL},
    {"U9300C_tuned", u9300c,  4, {{"unknown_command", "OK"}, {"bndprf", "896,1272,0"}, {"mododr", "5"}},
     "CHN-UNICOM,46001,LTE FDD,; 5A1C,7C4B10D,7; 896,1272,131072; 7; " NO_CELL},
    {"E9720_tuned",  e9720,   2, {{"mododr", "2"}},
     "CHN-UNICOM,46001,LTE FDD,; 5A1C,7C4B10D,7; 896,1272,131072; 5; " NO_CELL},
    {"V101B7",       v101b7, -1, {}, "CHINA MOBILE,,,; 5A1C,7C4B10D,7; ,,; 0; " NO_CELL},
    {"RM500Q",       rm500q, -1, {},
     "Telekom.de,26201,FDD LTE,LTE BAND 3; 5A1C,7C4B10D,7; ,,; 0; 0,3,262,1,407,1300,-99,-12,11,5"},
    {"SIM7600_tuned", sim7600, 4, {}, "Telekom.de,,,; 5A1C,7C4B10D,7; ,,; 0; " NO_CELL},
    {"RM520N_NSA_tuned", rm520n, 7, {{"cell", "NR5G-NSA"}, {"mode_pref", "LTE"}},
     "Telekom.de,26201,5G NR,NR5G BAND 78; 5A1C,7C4B10D,13; ,,; 9; "
     "1,9,262,1,920,1350,-96,-10,18,5"},
    {"RM500Q_NSA_tuned", rm500q, 7, {{"cell", "NR5G-NSA"}, {"mode_pref", "LTE"}},
     "Telekom.de,26201,5G NR,NR5G BAND 78; 5A1C,7C4B10D,13; ,,; 9; "
     "1,9,262,1,920,1350,-96,-10,18,5"},
};
// clang-format on

class Models : public Story, public testing::WithParamInterface<std::size_t>
{
  protected:
    void expect_flow(const line_list& expected)
    {
        const std::string& last = expected.back();
        ASSERT_TRUE(
            wire(last, 60s,
                 static_cast<std::size_t>(std::count(expected.begin(), expected.end(), last))));
        quiet(1500ms); // nothing comes behind the last
        EXPECT_EQ(modem.commands(), expected);
        EXPECT_SOON(mobile_is_ready() != 0);
        EXPECT_EQ(cellular_get_cur_status(), CELL_STATUS_READY | CELL_STATUS_UP);
    }
};

class CarrierList : public Story, public testing::WithParamInterface<int> // whether it is active
{
};

} // namespace

// Catches: a row lost, doubled, out of its place, or with another module's text; a command for what
// the modem has already; an answer that does not reach the record.
TEST_P(Models, FromPowerOnToReadyTwice)
{
    const module_case& module = modules[GetParam()];
    const bool tuned = module.scan_code >= 0;
    const bool is_low_power = module.flow.commands == low_power.commands;
    libgsm_set_low_power(is_low_power);
    const own_profile own(module.flow.name);
    plug(module.flow.name, module.variables);
    if (tuned) {
        ASSERT_EQ(cellular_gsm_init(is_low_power), 0); // the record of the settings
        cell_sim_config(1)->scan_code = module.scan_code;
        cell_sim_config(1)->smsc = "+491710760000";
        ASSERT_EQ(libgsm_set_apn("internet", "me", "secret", 1), 0);
        needSetApn = 1; // as a change of the settings leaves it
    }
    start();
    expect_flow(lines_of(module.flow, true, tuned));
    stop();
    modem.clear_log();
    start();
    expect_flow(lines_of(module.flow, false, tuned));

    const gsm_mobile is = record();
    EXPECT_EQ(is.imsi + std::string(is.iccid), modem.get("imsi") + modem.get("iccid"));
    EXPECT_EQ(is.sn, modem.get("imei"));
    EXPECT_EQ(is.reg_status, 1);
    EXPECT_EQ(known(is), module.known);
    EXPECT_EQ(is.cid, static_cast<int>(libgsm_get_cid64() & 0xffffffff));
}

INSTANTIATE_TEST_SUITE_P(All, Models, testing::Range<std::size_t>(0, std::size(modules)),
                         [](const auto& one) { return modules[one.param].name; });

// Catches: a question ahead of the end of a flow, or beside a command; one that is forgotten, or
// that goes on at its pace though the module refuses it; an answer that stays unread, or that
// counts as news of the registration.
TEST_F(Story, QuestionsFillWhatAFlowLeavesOut)
{
    const char* const bad[] = {"AT", "ATI\r"};
    const char* const all[] = {"AT+CSQ", "AT+QNWINFO", "AT+QENG=\"servingcell\"", "AT+NOSUCH"};
    ASSERT_EQ(kelo_set_questions(all, 4, 1), 0);
    for (const auto& [questions, count, seconds] :
         {std::tuple(bad, 2, 3),
          {all, 1, 0},
          {all, 9, 3},
          {static_cast<decltype(&all[0])>(nullptr), 1, 3}})
        EXPECT_EQ(kelo_set_questions(questions, count, seconds), -1);
    plug("EC25", {{"rssi", "99"}});
    start();
    ASSERT_TRUE(wire("AT+NOSUCH", 60s, 3)); // at 0, 1 and 3 s: it becomes rare
    const line_list lines = modem.commands();
    const auto flow = lines_of(ec25, true, false);
    ASSERT_GT(lines.size(), flow.size());
    EXPECT_TRUE(std::equal(flow.begin(), flow.end(), lines.begin()));
    EXPECT_EQ(line_list(lines.begin() + static_cast<long>(flow.size()),
                        lines.begin() + static_cast<long>(flow.size()) + 4),
              line_list(std::begin(all), std::end(all)));
    EXPECT_GE(std::count(lines.begin(), lines.end(), "AT+CSQ"), 4);
    EXPECT_EQ(known(record()), "Telekom.de,26201,FDD LTE,LTE BAND 3; 5A1C,7C4B10D,0; ,,; 0; "
                               "0,3,262,1,214,1300,-97,-11,14,5");
    EXPECT_FALSE(says("no signal", 0ms));
    modem.clear_log();
    ASSERT_EQ(cellular_reload(), 0);
    ASSERT_TRUE(wire("AT+NOSUCH", 60s)); // once more, right behind the flow
    EXPECT_EQ(kelo_set_questions(nullptr, 0, 0), 0);
    quiet(500ms);
    modem.clear_log();
    quiet(10s);
    EXPECT_EQ(modem.commands(), line_list());
}

// Catches: a list over several reads that ends its row at the first of them, or a carrier profile
// that is only selected, or not seen; both put the APN into the wrong context.
TEST_P(CarrierList, PutsTheApnIntoItsContext)
{
    const int active = GetParam();
    plug("EC25", {{"mbn_generic", "0,0"}, {"mbn_verizon", active != 0 ? "1,1" : "1,0"}});
    ASSERT_EQ(cellular_gsm_init(0), 0);
    ASSERT_EQ(libgsm_set_apn("vzwinternet", "", "", 0), 0);
    needSetApn = 1;
    order("split 140 " + std::to_string(real(600ms).count())); // each piece is a read; the second
                                                               // holds the line of Verizon whole
    start();
    ASSERT_TRUE(wire("AT+QICSGP=*", 60s, 2));
    const line_list all = modem.commands();
    const auto first = std::find_if(all.begin(), all.end(),
                                    [](const auto& line) { return line.starts_with("AT+QICSGP"); });
    EXPECT_EQ(line_list(first, first + 2),
              active != 0
                  ? words(R"(AT+QICSGP=3,3,"vzwinternet","","",0 AT+QICSGP=1,3,"","","",0)")
                  : words(R"(AT+QICSGP=1,3,"vzwinternet","","",0 AT+QICSGP=3,3,"","","",0)"));
    EXPECT_EQ(libgsm_get_verizon_flag(), active);
    EXPECT_GE(gap_behind("AT+QMBNCFG=\"List\""), real(3s)); // five pieces and more
}

INSTANTIATE_TEST_SUITE_P(Verizon, CarrierList, testing::Values(0, 1));
