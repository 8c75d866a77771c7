// The first start and the next one: what goes over the wire, in which order and at what pace.
#include "story.h"

using namespace kelo_story;

using Pace = Story;

namespace
{

struct Module {
    const char* name;
    Lines first;  // the start flow, worked out by hand from the module's command tables
    Lines second; // the same once the module is known
    const char *model, *revision, *mfrs, *sn;
};

Lines joined(Lines head, const Lines& tail)
{
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

const Lines ask_module = {"AT+CGMM", "AT+CGMR"};
const Lines first_rows = {"AT+QSIMDET=1,0", "AT+QMTCONN?"};

// AT_SEND_PIN, AT_SET_APN and AT_NETWORK_AUTO have nothing to do here.
const Lines ec25_sim = {"AT+QMBNCFG=\"Autosel\",1", "AT+CPIN?", "AT+CIMI", "AT+QCCID"};
const Lines ec25_rest = {"AT+QMBNCFG=\"List\"", "AT+QCFG=\"nwscanmode\"", "AT+CGREG?", "AT+COPS?"};

// Nor have AT_SEL_SIMSLOT and AT_SET_SMSC.
const Lines rm500q_rest = {"AT+QGPS=1",
                           "AT+QMBNCFG=\"Autosel\",1",
                           "AT+CPIN?",
                           "AT+CIMI",
                           "AT+QCCID",
                           "AT+CGACT=1,1",
                           "AT+QNWPREFCFG=\"mode_pref\"",
                           "AT+CLIP=1",
                           "AT+CREG=2",
                           "AT+CSCS=\"GSM\"",
                           "AT+CMGF=0;+CNMI=2,2,0,0,0",
                           "AT+CSCS=\"GSM\"",
                           "AT+CLIR=2",
                           "AT^DSCI=1",
                           "AT+CLVL=4",
                           "AT+QDAI=1,1,0,4,0,0,1,1",
                           "AT+QMIC=20577,14567",
                           "AT+QRXGAIN=20577",
                           "AT+QCFG=\"ims\",0",
                           "AT+CREG=2",
                           "AT+QINDCFG=\"csq\",1",
                           "AT+QNWINFO",
                           "AT+CREG?",
                           "AT+COPS=3,0",
                           "AT+COPS?",
                           "AT+CSQ",
                           "AT+QENG=\"servingcell\""};

const Module modules[] = {
    {"EC25",
     joined(joined(ask_module, first_rows), joined(joined(ec25_sim, {"AT+CGSN"}), ec25_rest)),
     joined(first_rows, joined(ec25_sim, ec25_rest)), "EC25", "EC25EFAR06A08M4G", "",
     "861107034512347"},
    {"RM500Q", joined(joined(ask_module, first_rows), joined({"AT+CGMI", "AT+CGSN"}, rm500q_rest)),
     joined(first_rows, rm500q_rest), "RM500Q-GL", "RM500QGLABR11A06M4G", "Quectel",
     "861107034512347"},
};

std::ostream& operator<<(std::ostream& stream, const Module& one)
{
    return stream << one.name;
}

class Boot : public Story, public testing::WithParamInterface<Module>
{
  protected:
    void expect_flow(const Lines& expected)
    {
        wire(expected.back(), 60s);
        usleep(1500000); // nothing comes behind the last
        EXPECT_EQ(modem.commands(), expected);
        EXPECT_TRUE(eventually([] { return mobile_is_ready() != 0; }, within(2s)));
        EXPECT_EQ(cellular_get_cur_status(), CELL_STATUS_READY | CELL_STATUS_UP);
    }
};

} // namespace

// Catches: a row lost, doubled, out of its place or with a wrong text; an answer that does not
// reach the record; a module asked again for what is known.
TEST_P(Boot, FirstFlowAndSecond)
{
    const Module& module = GetParam();
    plug(module.name);
    EXPECT_EQ(mobile_is_ready(), 0u);
    const Clock::time_point begin = Clock::now();
    start();
    ASSERT_TRUE(wire("AT+CGMM", 1200ms));
    EXPECT_LE(since(begin), within(1200ms)); // the shell lines of the start included
    expect_flow(module.first);

    const gsm_mobile known = record();
    EXPECT_STREQ(known.model, module.model);
    EXPECT_STREQ(known.revision, module.revision);
    EXPECT_STREQ(known.mfrs, module.mfrs);
    EXPECT_STREQ(known.sn, module.sn);
    EXPECT_STREQ(known.imsi, "262011234567890");
    EXPECT_STREQ(known.iccid, "89490200001234567890");
    EXPECT_STREQ(known.oper, "Telekom.de");
    EXPECT_EQ(known.reg_status, 1);
    EXPECT_STREQ(known.at_dev, port);
    EXPECT_EQ(word(is_pin_ready), 1);
    EXPECT_EQ(cellular_at_is_ready(), 1);

    EXPECT_LE(stop(), within(3s));
    EXPECT_EQ(record().fd, -1);
    EXPECT_EQ(cellular_get_cur_status(), CELL_STATUS_NO_SIM);
    EXPECT_EQ(cellular_at_is_ready(), 1); // it stays
    modem.clear_log();
    start();
    EXPECT_STREQ(record().imsi, "");
    EXPECT_STREQ(record().model, module.model);
    expect_flow(module.second);
    EXPECT_STREQ(record().imsi, "262011234567890");
}

INSTANTIATE_TEST_SUITE_P(Modules, Boot, testing::ValuesIn(modules),
                         [](const auto& one) { return std::string(one.param.name); });

// Catches: commands without the pace that slow modules need, or one that waits a full second each.
TEST_F(Pace, Commands)
{
    plug("EC25");
    start();
    ASSERT_TRUE(wire("AT+QCCID", 20s));
    const auto times = command_times();
    ASSERT_GE(times.size(), 8u);
    const auto gap = [&](std::size_t from, std::size_t to) {
        return std::chrono::duration_cast<milliseconds>(times[to].first - times[from].first);
    };
    const milliseconds slack = sanitized ? 250ms : 100ms;
    EXPECT_GE(gap(0, 1), 500ms - slack);
    EXPECT_LE(gap(0, 1), within(700ms));
    EXPECT_LE(gap(1, 2), within(300ms)); // the pair of the second
    for (std::size_t i = 0; i + 2 < times.size(); i++)
        EXPECT_GE(gap(i, i + 2), 500ms - slack) << times[i].second;
    // Three seconds of silence end the query, which this modem answers with an OK alone.
    EXPECT_GE(gap(3, 4), 3000ms - slack);
    EXPECT_LE(gap(3, 4), within(4500ms));
}

namespace
{

const Lines low_power_rows = {"AT+CGMM",
                              "AT+CGMR",
                              "AT+CGSN",
                              "ATI",
                              "AT+QSCLK=1",
                              "AT+QCFG=\"risignaltype\",\"physical\"",
                              "AT+QSIMDET=1,0",
                              "AT+QMBNCFG=\"AutoSel\",1",
                              "at+qcfg=\"ims\",1",
                              "AT+CREG=1",
                              "AT+QINDCFG=\"act\",1,1 ",
                              "at+qcfg=\"urc/ri/smsincoming\",\"pulse\",20,1",
                              "at+qcfg=\"urc/ri/other\",\"pulse\",20,1",
                              "at+qcfg=\"urc/ri/ring\",\"always\",120,1,4000,\"on\",1",
                              "AT+QSSLCFG=\"seclevel\",1,0",
                              "AT+QSSLCFG=\"ignorelocaltime\",1,1",
                              "AT+QSSLCFG=\"ignoreinvalidcertsign\",1,1",
                              "AT+QSSLCFG=\"ignoremulticertchainverify\",1,1",
                              "AT+QSSLCFG=\"sni\",1,1"};

class LowPower : public Story
{
  protected:
    void start_low()
    {
        libgsm_set_low_power(1);
        plug_unknown();
        start();
    }
};

} // namespace

// Catches: commands into a module that is still starting; low power rows lost or out of order.
TEST_F(LowPower, ModemReportsItsEnd)
{
    start_low();
    for (int i = 0; i < 12; i++) { // busy enough that no second is silent, too few for the credit
        usleep(150000);
        modem.report("RDY");
    }
    EXPECT_EQ(modem.commands(), Lines{});
    const Clock::time_point told = Clock::now();
    modem.report("+QIND: PB DONE");
    EXPECT_TRUE(wire("AT+CGMM", 1s));
    EXPECT_LE(since(told), within(1200ms));
    wire(low_power_rows.back(), 25s);
    usleep(1500000);
    EXPECT_EQ(modem.commands(), low_power_rows);
}

TEST_F(LowPower, ThreeSilentSecondsEndTheWait)
{
    const Clock::time_point begin = Clock::now();
    start_low();
    usleep(2700000);
    EXPECT_EQ(modem.commands(), Lines{});
    EXPECT_TRUE(wire("AT+CGMM", 1500ms));
    EXPECT_GE(since(begin), 3000ms);
}

TEST_F(LowPower, ThirtyBusyPassesEndTheWait)
{
    start_low();
    const Clock::time_point begin = Clock::now();
    while (modem.commands().empty() && since(begin) < within(14s)) {
        modem.report("$GPGSV,4,1,13,02,32,118,22*7F");
        usleep(20000);
    }
    EXPECT_EQ(modem.commands().front(), "AT+CGMM");
    EXPECT_GE(since(begin), 6500ms); // two passes in half a second
}
