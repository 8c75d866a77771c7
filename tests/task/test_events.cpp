#include "link/link.h"
#include "sms/sms.h"
#include "task/task.h"
#include "tests/testing.h"

namespace
{

using namespace kelo;
using kelo::test::captured;

void handle(int code)
{
    event* raised = nullptr;
    {
        lock_scope guard(record_lock);
        raised = raise_event(code);
    }
    mobile_handle_event(&g_mobile, raised);
}

// The status word after one event: what it sets, what it clears, and what it must leave.
TEST(Events, DispatchLogsAndChangesTheStatusWord)
{
    constexpr unsigned all = 0x165ff;
    constexpr unsigned failures = CELL_STATUS_NO_SIM | CELL_STATUS_PIN_ERROR |
                                  CELL_STATUS_PIN_REQUIRED | CELL_STATUS_PUK_REQUIRED |
                                  CELL_STATUS_USSD_FAILED;
    struct row {
        int code;
        unsigned before, after;
        const char* log;
    };
    constexpr row rows[] = {
        {GSM_EVENT_SIM_UP, 0, CELL_STATUS_READY | CELL_STATUS_UP, "GSM Event: SIM 1 is up!\n"},
        {GSM_EVENT_SIM_UP, all, all & ~failures, "GSM Event: SIM 1 is up!\n"},
        {GSM_EVENT_SIM_DOWN, all, all, "GSM Event: SIM 1 is down!\n"},
        {GSM_EVENT_RING, all, all & ~CELL_STATUS_RINGING, "GSM Event: ring!\n"},
        {GSM_EVENT_RINGING, all, all, "GSM Event: ringing!\n[Cellular]---> Call received\n"},
        {GSM_EVENT_SIM_FAILED, all, all, "GSM Event: sim failed!\n"},
        {GSM_EVENT_SMS_SEND_OK, all, all & ~CELL_STATUS_SMS_FAILED, "GSM Event: sms send ok!\n"},
        {GSM_EVENT_SMS_SEND_FAILED, 0, CELL_STATUS_SMS_FAILED, "GSM Event: sms send failed!\n"},
        {GSM_EVENT_NO_SIGNAL, all, all, "GSM Event: [1/3] no signal!\n"},
        {2, all, all, ""},
        {0, all, all, "GSM Event: unknow!\n"}};
    kelo::test::modem_port port;
    for (const row& r : rows) {
        captured out;
        gsm_dchan_status = r.before;
        handle(r.code);
        EXPECT_EQ(gsm_dchan_status, r.after) << r.code;
        EXPECT_EQ(out.text(), r.log) << r.code;
    }
    EXPECT_EQ(cellular_is_call_received(), 1);
    EXPECT_EQ(port.heard(), "ATH\r\n"); // every call is hung up
}

// Which flag the third loss raises decides between a reload and a whole restart; a registration in
// between starts the count again.
TEST(Events, SimDownAsksForMoreAtTheThirdInARow)
{
    for (const int family : {0, 15, 13}) {
        cell_reload_flag_unset();
        cell_start_flag_unset();
        is_quectel = family;
        for (const int code : {GSM_EVENT_SIM_DOWN, GSM_EVENT_SIM_DOWN, GSM_EVENT_SIM_UP,
                               GSM_EVENT_SIM_DOWN, GSM_EVENT_SIM_DOWN}) {
            handle(code);
            ASSERT_EQ(cell_reload_flag + cell_start_flag_get(), 0);
        }
        handle(GSM_EVENT_SIM_DOWN);
        EXPECT_EQ(cell_reload_flag, family != 13) << family;
        EXPECT_EQ(cell_start_flag_get(), family == 13) << family;
        EXPECT_EQ(sim_failed_count, 0);
        EXPECT_EQ(get_sim_status(), 0);
        EXPECT_EQ(mobile_is_ready(), CELL_STATUS_READY); // a loss alone takes nothing away
    }
    set_sim_status(-1);
    handle(GSM_EVENT_SIM_DOWN);
    EXPECT_EQ(get_sim_status(), -1);
}

TEST(Events, ASimThatComesUpStartsBothCountsAnew)
{
    sim_failed_count = sim_cpin_count = 2;
    handle(GSM_EVENT_SIM_UP);
    EXPECT_EQ(sim_failed_count, 0);
    EXPECT_EQ(sim_cpin_count, 0);
}

TEST(Events, SimFailedEscalatesForTwoFamiliesOnly)
{
    for (const int family : {0, 13, 15}) {
        const bool escalates = family != 0;
        is_quectel = family;
        sim_cpin_count_reset();
        for (int i = 0; i < 3; i++) {
            cell_reload_flag_unset();
            cell_start_flag_unset();
            is_pin_ready = 1;
            text_set(g_mobile.iccid, "8986");
            text_set(g_mobile.oper, "Kelo");
            handle(i == 1 ? GSM_EVENT_SIM_NOT_INSERTED : GSM_EVENT_SIM_FAILED);
            EXPECT_EQ(cell_reload_flag, escalates && i < 2) << family << " " << i;
            EXPECT_EQ(cell_start_flag_get(), escalates && i == 2) << family << " " << i;
            EXPECT_EQ(sim_cpin_count, escalates && i == 2 ? 0 : i + 1) << family << " " << i;
            EXPECT_EQ(is_pin_ready, 0);
            EXPECT_EQ(get_sim_status(), -1);
            EXPECT_STREQ(g_mobile.iccid, "");
            EXPECT_STREQ(g_mobile.oper, "");
        }
    }
    EXPECT_EQ(access("/tmp/network5Gmess.txt", F_OK), 0);
}

// The first report of a process belongs to its own start; a later one is a new SIM.
TEST(Events, SimInsertedTellsItsOwnRestartFromANewSim)
{
    cell_repower_lock = 1; // a restart under way: no second one, so nothing runs beside the test
    captured out;
    handle(GSM_EVENT_SIM_INSERTED);
    EXPECT_EQ(cell_start_flag_get(), 0);
    EXPECT_EQ(cell_restart_flag_get(), 0);
    EXPECT_EQ(get_sim_status(), 1);
    EXPECT_EQ(is_pin_ready, 1);
    EXPECT_EQ(out.text(), "GSM Event: sim inserted!\n");
    handle(GSM_EVENT_SIM_INSERTED);
    EXPECT_EQ(cell_start_flag_get(), 1);
}

TEST(Events, CountsOfMessagesAndOfLostSignal)
{
    sms_pending_count = 2;
    handle(GSM_EVENT_SMS_SEND_FAILED);
    EXPECT_EQ(sms_pending_count, 1);
    handle(GSM_EVENT_SMS_SEND_OK);
    EXPECT_EQ(sms_pending_count, 0);
    handle(GSM_EVENT_SMS_SEND_FAILED);
    EXPECT_EQ(sms_pending_count, 0);
    sms_pending_count = -3;
    handle(GSM_EVENT_SMS_SEND_OK);
    EXPECT_EQ(sms_pending_count, 0);

    captured out;
    for (int i = 0; i < 4; i++)
        handle(GSM_EVENT_NO_SIGNAL);
    EXPECT_TRUE(out.text().ends_with("[3/3] no signal!\nGSM Event: [1/3] no signal!\n"));
}

} // namespace
