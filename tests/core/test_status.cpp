// What a host reads of the modem's state, what a SIM that comes up puts right, and a port that is
// gone.
#include "testing.h"

namespace
{

using namespace kelo;

// The gravest state names the status: with all of the rows set, each hides those behind it.
TEST(Status, TheFirstOfTheBitsThatAreSetNamesIt)
{
    constexpr std::pair<unsigned int, const char*> rows[] = {
        {CELL_STATUS_NO_SIM, "No SIM Card"},
        {CELL_STATUS_SIM_ERROR, "SIM Card Error"},
        {CELL_STATUS_DIAL_REQUIRED, "Dial Number Required"},
        {CELL_STATUS_PIN_ERROR, "Pin Error"},
        {CELL_STATUS_PIN_REQUIRED, "Pin Required"},
        {CELL_STATUS_PUK_REQUIRED, "PUK Required"},
        {CELL_STATUS_SMSC_REQUIRED, "SMS Center Number Required"},
        {CELL_STATUS_USSD_FAILED, "USSD Send Failed"},
        {CELL_STATUS_NO_SIGNAL, "No Signal"},
        {CELL_STATUS_RINGING, "Ringing"},
        {CELL_STATUS_SMS_FAILED, "SMS Send Failed"},
        {CELL_STATUS_READY, "Ready"},
        {CELL_STATUS_UP, "Down"},
    };
    unsigned int left = ~0u;
    for (const auto& [bit, text] : rows) {
        char name[64] = "";
        libgsm_get_modem_status(name, sizeof name, left);
        EXPECT_STREQ(name, text);
        left &= ~bit;
    }
    char cut[6] = "xxxxx";
    EXPECT_EQ(libgsm_get_modem_status(cut, sizeof cut, CELL_STATUS_RINGING), 7);
    EXPECT_STREQ(cut, "Ringi");
}

TEST(Status, ASimThatComesUpStartsBothCountsAnew)
{
    sim_failed_count = sim_cpin_count = 2;
    event up = {};
    up.code = GSM_EVENT_SIM_UP;
    mobile_handle_event(&g_mobile, &up);
    EXPECT_EQ(sim_failed_count, 0);
    EXPECT_EQ(sim_cpin_count, 0);
}

// A pipe without a writer hangs up as a port does.
TEST(Status, AHangUpIsSaidOnceUntilThePortIsBack)
{
    test::modem_port port;
    libgsm_mobile_close_usb(&g_mobile);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    g_mobile.fd = ends[0];
    const test::captured out;
    const auto said_behind_passes = [&] {
        static task_state state;
        for (int i = 0; i < 3; i++) {
            state.last_us = 0;
            EXPECT_TRUE(task_pass(&g_mobile, state));
        }
        return test::count_of(out.text(), "the AT port has hung up\n");
    };
    EXPECT_EQ(write(ends[1], "x\nx\nx\n", 6), 6);
    close(ends[1]);
    EXPECT_EQ(said_behind_passes(), 1);
}

} // namespace
