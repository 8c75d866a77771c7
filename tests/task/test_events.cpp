// SPDX-License-Identifier: MIT
#include "tests/testing.h"

static void handle(int code)
{
    lock_scope<record_lock> guard;
    event* const raised = raise_event(code);
    guard.release();
    mobile_handle_event(&g_mobile, raised);
}

// What an event, or the last one of a row, made of the flags that ask for more.
static std::string wanted()
{
    const std::string flags =
        in_words(cell_reload_flag != 0 ? "reload" : "", cell_start_flag_get() != 0 ? "start" : "");
    cell_reload_flag_unset();
    cell_start_flag_unset();
    return flags;
}

// The status word after one event: what it sets, what it clears, and what it must leave.
TEST(Events, DispatchLogsAndChangesTheStatusWord)
{
    constexpr unsigned all = 0x165ff;
    constexpr unsigned failures = CELL_STATUS_NO_SIM | CELL_STATUS_PIN_ERROR |
                                  CELL_STATUS_PIN_REQUIRED | CELL_STATUS_PUK_REQUIRED |
                                  CELL_STATUS_USSD_FAILED;
    constexpr std::tuple<int, unsigned, unsigned, const char*> rows[] = {
        {GSM_EVENT_SIM_UP, 0, CELL_STATUS_READY | CELL_STATUS_UP, "GSM Event: SIM 1 is up!\n"},
        {GSM_EVENT_SIM_UP, all, all & ~failures, "GSM Event: SIM 1 is up!\n"},
        {GSM_EVENT_SIM_DOWN, all, all, "GSM Event: SIM 1 is down!\n"},
        {GSM_EVENT_RING, all, all & ~CELL_STATUS_RINGING, "GSM Event: ring!\n"},
        {GSM_EVENT_RINGING, all, all, "GSM Event: ringing!\n[Cellular]---> Call received\n"},
        {GSM_EVENT_SIM_FAILED, all, all, "GSM Event: sim failed!\n"},
        {GSM_EVENT_SMS_SEND_OK, all, all & ~CELL_STATUS_SMS_FAILED, "GSM Event: sms send ok!\n"},
        {GSM_EVENT_SMS_SEND_FAILED, 0, CELL_STATUS_SMS_FAILED, "GSM Event: sms send failed!\n"},
        {GSM_EVENT_NO_SIGNAL, all, all, "GSM Event: [1/3] no signal!\n"},
        {GSM_EVENT_NO_SIGNAL, all, all, "GSM Event: [2/3] no signal!\n"},
        {GSM_EVENT_NO_SIGNAL, all, all, "GSM Event: [3/3] no signal!\n"},
        {GSM_EVENT_NO_SIGNAL, all, all, "GSM Event: [1/3] no signal!\n"},
        {2, all, all, ""},
        {0, all, all, "GSM Event: unknow!\n"}};
    modem_port port;
    for (const auto& [code, before, after, log] : rows) {
        captured out;
        gsm_dchan_status = before;
        handle(code);
        EXPECT_EQ(gsm_dchan_status, after) << code;
        EXPECT_EQ(out.text(), log) << code;
    }
    EXPECT_EQ(cellular_is_call_received(), 1);
    EXPECT_EQ(port.heard(), "ATH\r\n"); // every call is hung up
}

// Which flag the third loss raises decides between a reload and a whole restart; a SIM that comes
// up in between starts the counts again.
TEST(Events, SimDownAsksForMoreAtTheThirdInARow)
{
    for (const int family : {0, 15, 13}) {
        is_quectel = family;
        sim_cpin_count = 2;
        for (const int code : {GSM_EVENT_SIM_DOWN, GSM_EVENT_SIM_DOWN, GSM_EVENT_SIM_UP,
                               GSM_EVENT_SIM_DOWN, GSM_EVENT_SIM_DOWN}) {
            handle(code);
            ASSERT_EQ(wanted(), "");
        }
        handle(GSM_EVENT_SIM_DOWN);
        EXPECT_EQ(wanted(), family == 13 ? "start" : "reload") << family;
        EXPECT_EQ(in_words(sim_failed_count, sim_cpin_count, get_sim_status()), "000");
        EXPECT_EQ(mobile_is_ready(), CELL_STATUS_READY); // a loss alone takes nothing away
    }
    set_sim_status(-1);
    handle(GSM_EVENT_SIM_DOWN);
    EXPECT_EQ(get_sim_status(), -1);
}

TEST(Events, SimFailedEscalatesForTwoFamiliesOnly)
{
    for (const int family : {0, 13, 15}) {
        is_quectel = family;
        sim_cpin_count_reset();
        for (const int code :
             {GSM_EVENT_SIM_FAILED, GSM_EVENT_SIM_NOT_INSERTED, GSM_EVENT_SIM_FAILED}) {
            const int count = sim_cpin_count + 1;
            is_pin_ready = 1;
            text_set(g_mobile.iccid, "8986");
            text_set(g_mobile.oper, "Kelo");
            handle(code);
            EXPECT_EQ(wanted(), family == 0 ? "" : count < 3 ? "reload" : "start") << family;
            EXPECT_EQ(sim_cpin_count, family != 0 && count == 3 ? 0 : count) << family;
            EXPECT_EQ(in_words(is_pin_ready, get_sim_status(), g_mobile.iccid, g_mobile.oper),
                      "0-1");
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
    EXPECT_EQ(wanted(), "");
    EXPECT_EQ(in_words(cell_restart_flag_get(), get_sim_status(), is_pin_ready), "011");
    EXPECT_EQ(out.text(), "GSM Event: sim inserted!\n");
    handle(GSM_EVENT_SIM_INSERTED);
    EXPECT_EQ(wanted(), "start");
}

TEST(Events, MessagesCountDownToZero)
{
    for (const int code : {GSM_EVENT_SMS_SEND_FAILED, GSM_EVENT_SMS_SEND_OK})
        for (const auto& [before, after] : {std::pair(2, 1), {0, 0}, {-3, 0}}) {
            sms_pending_count = before;
            handle(code);
            EXPECT_EQ(sms_pending_count, after);
        }
}

// Catches: a position or a confirmed subscription that comes while a command runs, or none, and is
// handed to nobody.
TEST(Events, EachLineIsReadForPositionAndSubscription)
{
    const at_info running{};
    const mqtt_config wanted = {0, 0, "mq", "1883", "", "", "", "t", "", "", "", 60, nullptr};
    for (const at_info* command : {&running, static_cast<const at_info*>(nullptr)}) {
        char position[] = "+QGPSLOC: 1,2", subscribed[] = "+QMTSUB: 0,1,0,0";
        char found[KELO_GPS_LOCATION_SIZE] = "";
        kelo_start_gps_location();
        kelo_set_cellular_wake(&wanted);
        for (char* line : {position, subscribed})
            task_hooks.each_line(&g_mobile, command, line);
        EXPECT_EQ(in_words(kelo_get_gps_location(found), found, kelo_check_mqtt_update()), "11,20");
    }
}

// Catches: the answer to the keeper's question for the network that comes among those of a message
// and is lost, so that what was dialed meanwhile is waited for; one that ends the message's step,
// or takes the place of its event.
TEST(Events, OperatorBesideAMessageIsHeard)
{
    at_info message{}, other{};
    message.handler = sms_send_handler;
    const std::tuple<const at_info*, const char*, int> rows[] = {
        {&message, "+COPS: 0", KELO_REGISTRATION_NONE},
        {&message, "+COPS: 0,0,\"Net\",7", KELO_REGISTRATION_HOME},
        {&message, "Re: +COPS: 0", KELO_REGISTRATION_ROAMING}, // the echo of a text
        {&other, "+COPS: 0", KELO_REGISTRATION_ROAMING}};      // its own handler reads it
    const auto hear = [&](const at_info* running, std::string line) {
        g_mobile.reg_status = KELO_REGISTRATION_ROAMING;
        g_mobile.reg_seen = 0;
        gsm_event.code = GSM_EVENT_SMS_SEND_FAILED;
        task_hooks.each_line(&g_mobile, running, line.data());
        return g_mobile.reg_status;
    };
    EXPECT_EQ(hear(&message, "+COPS: 0"), KELO_REGISTRATION_ROAMING); // nobody asks beside it
    word_set(keeper_on, 1);
    for (const auto& [running, text, registration] : rows) {
        EXPECT_EQ(hear(running, text), registration) << text;
        EXPECT_EQ(in_words(g_mobile.reg_seen, gsm_event.code == GSM_EVENT_SMS_SEND_FAILED), "01");
    }
}
