// SPDX-License-Identifier: MIT
// The ways of a SIM: its PIN, its faults, out and in again, and the other slot.
#include "tests/e2e/story.h"

#include "host/input/custom_file.h"

#include <algorithm>

using namespace kelo_story;

namespace
{

class Sim : public Story
{
  protected:
    // The sample that ships: errors in words, ahead of the SIM, and messages as they come in.
    static void take_sample()
    {
        const kelo_host::custom_file sample = kelo_host::read_custom_file(KELO_SAMPLE_CUSTOM);
        ASSERT_TRUE(sample.errors.empty()) << sample.errors.front();
        kelo_host::install_custom(sample.items);
    }
    // Commands from AT+CPIN? on, of the latest flow.
    line_list from_sim_on() const
    {
        line_list all = modem.commands();
        const auto at = std::find(all.rbegin(), all.rend(), "AT+CPIN?");
        return {at == all.rend() ? all.end() : at.base() - 1, all.end()};
    }
    void expect_ready()
    {
        EXPECT_TRUE(eventually([] { return mobile_is_ready() != 0; }, within(40s)));
        EXPECT_EQ(get_sim_status(), 1);
        EXPECT_EQ(word(is_pin_ready), 1);
    }
};

class SimSlot : public Sim, public testing::WithParamInterface<int>
{
};

} // namespace

// Catches: a wrong PIN that goes out without a new request, and locks the SIM; a host's right one
// that does not reach it, is sent more than once, or out of its place.
TEST_F(Sim, WrongPinThenPinOfTheHost)
{
    change(29, 1); // AT+CGREG?
    plug("EC25");
    order("sim pin 4711");
    cell_sim_config(1)->pin = "1234";
    start();
    ASSERT_TRUE(wire("AT+COPS?", 40s));
    EXPECT_EQ(modem.count("AT+CPIN=*"), 1u);
    EXPECT_EQ(count_of(said(), "GSM Event: pin required!"), 1u);
    EXPECT_TRUE(says("GSM Event: pin error!", 0s));
    EXPECT_EQ(mobile_is_ready(), 0u);
    EXPECT_EQ(record().reg_status, 0);

    // A modem that does not ask again gets none: the last event is no request any more.
    order("silence AT+CPIN?");
    ASSERT_TRUE(eventually([] { return cellular_reload() == 0; }, within(3s)));
    ASSERT_TRUE(wire("AT+CIMI", 40s, 2));
    EXPECT_EQ(modem.count("AT+CPIN=*"), 1u);

    order("silence off");
    cell_sim_config(1)->pin = "4711";
    ASSERT_TRUE(eventually([] { return cellular_reload() == 0; }, within(3s)));
    ASSERT_TRUE(wire("AT+CIMI", 40s, 3));
    EXPECT_EQ(from_sim_on(), (line_list{"AT+CPIN?", "AT+CPIN=\"4711\"", "AT+CIMI"}));
    EXPECT_EQ(modem.count("AT+CPIN=*"), 2u);
    stop();
    start();
    expect_ready();
}

// Catches: a sample that is not taken, or in the wrong place; messages that stay in the modem; a
// SIM that is gone and still counts; one that is back and is never asked anything.
TEST_F(Sim, SampleOfCustomCommandsThenPulledAndPutBack)
{
    const std::string last = "AT+CSQ;+QINDCFG=\"csq\",1";
    take_sample();
    plug("EC25");
    start();
    ASSERT_TRUE(wire(last, 40s));
    EXPECT_EQ(modem.commands()[4], "AT+CMEE=2"); // behind AT+QMTCONN?
    const line_list from_sim = words(R"(AT+CPIN? AT+CIMI AT+QCCID AT+QMBNCFG="List"
        AT+QCFG="nwscanmode";+CMGF=0;+CNMI=2,2,0,0,0 AT+CGREG? AT+COPS? AT+CMGF=0;+CNMI=2,2,0,0,0)" +
                                     (" " + last));
    line_list first = from_sim;
    first.insert(first.begin() + 3, "AT+CGSN");
    EXPECT_EQ(from_sim_on(), first);
    expect_ready();
    quiet(1500ms);
    order("sms text +4915112345678 Door 3 open");
    EXPECT_TRUE(modem.wait_sent("+CMT: ,*", within(2s))); // by the flow's own, and the sample's
    EXPECT_SOON(cellular_is_sms_received() == 1);

    order("sim pull");
    EXPECT_SOON(*record().oper == '\0');
    quiet(1500ms);
    EXPECT_EQ(from_sim_on(), first); // nothing is asked of an empty slot

    order("set iccid 89490200009999999999"); // another card
    order("sim put");
    ASSERT_TRUE(wire(last, 40s, 2));
    expect_ready();
    EXPECT_EQ(from_sim_on(), from_sim); // a start, and the module itself is known
    EXPECT_STREQ(record().iccid, "89490200009999999999");
    EXPECT_EQ(modem.count("AT+CGMM"), 1u);
}

// Catches: a switch behind the SIM's own rows, one that waits for a report which comes behind the
// OK on families that need none, or that is asked for again; the other card's settings left out.
TEST_P(SimSlot, SwitchedByCommand)
{
    is_quectel = GetParam();
    plug("RM500Q");
    ASSERT_EQ(cellular_gsm_init(0), 0);
    ASSERT_EQ(libgsm_set_simslot(2), 0); // family 14 comes here by mobile_select_simcard(2)
    cell_sim_config(2)->scan_code = 2;   // LTE alone
    start();
    ASSERT_TRUE(wire("AT+CGMI", 30s));
    EXPECT_EQ(modem.commands()[4], "AT+QUIMSLOT=2");
    const milliseconds waited = gap_behind("AT+QUIMSLOT=2");
    EXPECT_EQ(waited < real(4500ms), is_quectel == 14) << waited.count(); // else six silent seconds
    EXPECT_EQ(word(selected_card), 2);
    EXPECT_TRUE(wire("AT+QNWPREFCFG=\"mode_pref\",LTE", 40s));
    expect_ready();
    EXPECT_STREQ(record().iccid, "89490200005554443332");
    EXPECT_STREQ(record().imsi, "262019876543210");
    wire("AT+QENG*", 20s);

    // Of the second card.
    ASSERT_TRUE(eventually([] { return cellular_reload() == 0; }, within(3s)));
    ASSERT_TRUE(wire("AT+QCCID", 40s, 2));
    EXPECT_EQ(modem.count("AT+QUIMSLOT=*"), 1u);
    EXPECT_SOON(record().iccid == modem.get("iccid"));
}

INSTANTIATE_TEST_SUITE_P(Family, SimSlot, testing::Values(0, 14));
