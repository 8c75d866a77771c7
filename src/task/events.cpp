// SPDX-License-Identifier: MIT
// Event dispatch: what the mobile task does with each event.

#include "task/task.h"

#include "core/family.h"
#include "sms/sms.h"
#include "support/diag.h"
#include "support/shell.h"
#include "support/sleeps.h"
#include "support/text.h"

#include <iterator>

namespace kelo
{

namespace
{

constexpr int sim_failed_limit = 3;
constexpr int sim_cpin_limit = 3;
constexpr int no_signal_limit = 3;

void sim_up(gsm_mobile*)
{
    set_sim_status(KELO_SIM_UP);
    sim_failed_count_reset();
    sim_cpin_count_reset();
    cellular_clear_status(CELL_STATUS_NO_SIM | CELL_STATUS_PIN_ERROR | CELL_STATUS_PIN_REQUIRED |
                          CELL_STATUS_PUK_REQUIRED | CELL_STATUS_USSD_FAILED);
    cellular_set_status(CELL_STATUS_READY | CELL_STATUS_UP);
}

// Registration comes and goes: only the third loss in a row asks for more.
void sim_down(gsm_mobile*)
{
    if (get_sim_status() != KELO_SIM_FAILED)
        set_sim_status(KELO_SIM_DOWN);
    diag_plain("GSM Event: SIM %d is down!\n", word_get(selected_card));
    if (word_add(sim_failed_count, 1) < sim_failed_limit)
        return;
    sim_failed_count_reset();
    seconds_sleep(1);
    if (restarts_when_down())
        cell_start_flag_set();
    else
        cell_reload_flag_set();
}

void sim_failed(gsm_mobile* rec)
{
    word_set(is_pin_ready, 0);
    set_sim_status(KELO_SIM_FAILED);
    const int count = word_add(sim_cpin_count, 1);
    shell_run("echo \"\" > /tmp/network5Gmess.txt");
    {
        lock_scope<record_lock> guard;
        text_clear(rec->iccid);
        text_clear(rec->oper);
    }
    if (!sim_failures_escalate())
        return;
    if (count < sim_cpin_limit) {
        cell_reload_flag_set();
        return;
    }
    sim_cpin_count_reset();
    seconds_sleep(1);
    cell_start_flag_set();
}

// The report that a SIM is ready, outside any flow: a SIM was put in, or the modem has started
// anew. Either way it has to be walked again.
void sim_inserted(gsm_mobile*)
{
    set_sim_status(KELO_SIM_UP);
    if (cell_restart_flag_get() != 0)
        cell_restart_flag_reset();
    else
        cell_start_flag_set();
    word_set(is_pin_ready, 1);
    diag_plain("GSM Event: sim inserted!");
    cellular_module_restart_extern();
}

// Every incoming call is hung up.
void ring(gsm_mobile* rec)
{
    cellular_set_status(CELL_STATUS_RINGING);
    libgsm_hangup(rec);
}

void call_over(gsm_mobile*)
{
    cellular_clear_status(CELL_STATUS_RINGING);
}

void ringing(gsm_mobile*)
{
    cellular_set_call_received(1);
}

void message_sent(gsm_mobile*)
{
    cellular_clear_status(CELL_STATUS_SMS_FAILED);
    word_count_down(sms_pending_count);
}

void message_failed(gsm_mobile*)
{
    cellular_set_status(CELL_STATUS_SMS_FAILED);
    word_count_down(sms_pending_count);
}

void no_signal(gsm_mobile*)
{
    const int count = word_add(no_signal_count, 1);
    diag_plain("GSM Event: [%d/3] no signal!\n", count);
    if (count >= no_signal_limit)
        word_set(no_signal_count, 0);
}

void log_sim_up(gsm_mobile* rec)
{
    diag_plain("GSM Event: SIM %d is up!\n", word_get(selected_card));
    sim_up(rec);
}

void message_received(gsm_mobile*)
{
    sms_log_received(&::gsm_event);
}

struct event_row {
    int code;
    const char* name;             // for kelo_event_name
    const char* text;             // null: the action logs for itself, or there is nothing to say
    void (*act)(gsm_mobile* rec); // null: nothing to do
};

constexpr event_row event_rows[] = {
    {GSM_EVENT_SIM_UP, "SIM up", nullptr, log_sim_up},
    {2, "?", nullptr, nullptr},
    {GSM_EVENT_SIM_DOWN, "SIM down", nullptr, sim_down},
    {GSM_EVENT_RESTART, "restart", "restart!", nullptr},
    {GSM_EVENT_CONFIG_ERR, "configuration error", "config err!", nullptr},
    {GSM_EVENT_RING, "caller", "ring!", ring},
    {GSM_EVENT_HANGUP, "call over", "hangup!", call_over},
    {GSM_EVENT_RINGING, "call", "ringing!", ringing},
    {GSM_EVENT_MO_RINGING, "own call rings", "mo ringing!", nullptr},
    {GSM_EVENT_ANSWER, "call answered", "answer!", call_over},
    {GSM_EVENT_HANGUP_ACK, "hangup confirmed", "hangup ack!", nullptr},
    {GSM_EVENT_RESTART_ACK, "restart confirmed", "restart ack!", nullptr},
    {GSM_EVENT_FACNAME, "facility name", "facname!", nullptr},
    {GSM_EVENT_INFO_RECEIVED, "information", "info received!", nullptr},
    {GSM_EVENT_PROCESSING, "processing", "processing!", nullptr},
    {GSM_EVENT_SETUP_ACK, "setup confirmed", "setup ack!", nullptr},
    {GSM_EVENT_HANGUP_REQ, "hangup wanted", "hangup req!", nullptr},
    {GSM_EVENT_NODIFY, "notification", "nodify!", nullptr},
    {GSM_EVENT_PROCESS, "process", "process!", nullptr},
    {GSM_EVENT_KEYPAD_DIGIT, "keypad digit", "keypad digit!", nullptr},
    {GSM_EVENT_SMS_RECEIVED, "SMS received", "sms received!", message_received},
    {GSM_EVENT_SIM_FAILED, "SIM failed", "sim failed!", sim_failed},
    {GSM_EVENT_PIN_REQUIRED, "PIN required", "pin required!", nullptr},
    {GSM_EVENT_PIN_ERROR, "PIN error", "pin error!", nullptr},
    {GSM_EVENT_PUK_REQUIRED, "PUK required", "puk required!", nullptr},
    {GSM_EVENT_SIM_NOT_INSERTED, "no SIM", "sim failed!", sim_failed},
    {GSM_EVENT_SIM_INSERTED, "SIM inserted", nullptr, sim_inserted},
    {GSM_EVENT_SIM_BUSY, "SIM busy", "sim busy!", nullptr},
    {GSM_EVENT_SMS_SEND_OK, "SMS sent", "sms send ok!", message_sent},
    {GSM_EVENT_SMS_SEND_FAILED, "SMS failed", "sms send failed!", message_failed},
    {GSM_EVENT_USSD_RECEIVED, "USSD received", "ussd received!", nullptr},
    {GSM_EVENT_USSD_SEND_FAILED, "USSD failed", "ussd send failed!", nullptr},
    {GSM_EVENT_NO_SIGNAL, "no signal", nullptr, no_signal},
    {GSM_EVENT_POWER_RESTART, "power restart", "power restart!", nullptr},
    {GSM_EVENT_SMSCENTER_REQUIRED, "SMS centre required", "smscenter required!", nullptr},
    {GSM_EVENT_SMSCENTER_OK, "SMS centre confirmed", "smscenter ok!", nullptr},
    {GSM_EVENT_SIM_REGISTERED, "SIM registered", "sim card registered!", nullptr},
};

const event_row* find_event(int code)
{
    for (const event_row& row : event_rows)
        if (row.code == code)
            return &row;
    return nullptr;
}

} // namespace

int mobile_handle_event(gsm_mobile* rec, event* what)
{
    if (rec == nullptr)
        return -1;
    if (what == nullptr)
        return 0;
    const event_row* const row = find_event(what->code);
    if (row == nullptr) {
        diag_plain("GSM Event: unknow!");
        return 0;
    }
    if (row->text != nullptr)
        diag_plain("GSM Event: %s", row->text);
    if (row->act != nullptr)
        row->act(rec);
    return 0;
}

} // namespace kelo

using namespace kelo;

const char* kelo_event_name(int code)
{
    const event_row* const row = find_event(code);
    return row != nullptr ? row->name : "?";
}

int libgsm_hangup(gsm_mobile* rec)
{
    cellular_clear_status(CELL_STATUS_RINGING);
    return exec_at_command(rec, "ATH");
}
