// SPDX-License-Identifier: MIT
// What the rooms that the task stands on make of the exchange.
#include "task/task.h"

#include "at/answers.h"
#include "handlers/handlers.h"
#include "handlers/sim_guard.h"
#include "modules/modules.h"
#include "services/services.h"
#include "sms/sms.h"
#include "support/diag.h"
#include "support/text.h"

namespace kelo
{

namespace
{

bool sends_message(const at_info* at)
{
    return at->handler == sms_send_handler;
}

event* foreign_line(gsm_mobile*, char* line)
{
    if (!text_begins(line, "+QMTRECV:"))
        return say_event(GSM_EVENT_USSD_RECEIVED);
    cellular_set_mqtt_received(1);
    return nullptr;
}

void each_line(gsm_mobile* rec, const at_info* running, char* line)
{
    if (text_has(line, "+CPIN: READY")) {
        diag_plain("[Cell]----> READY !!!!");
        word_set(is_pin_ready, 1);
    } else if (text_has(line, "+QMTRECV")) {
        cellular_set_mqtt_received(1);
    }
    sim_guard_hear(line);
    libgsm_check_gps_location(line);
    libgsm_check_mqtt_sub(line);
    ask_watch_prompt(rec, line);
    const bool of_message = running != nullptr && sends_message(running);
    if (!of_message)
        sms_watch_prompt(rec, line);
    else if (word_get(keeper_on) != 0)
        note_operator(rec, line); // its step reads its own answers alone; the keeper asks beside it
}

// A command that sends a message draws a prompt, which may come at once.
bool before_command(gsm_mobile* rec, const at_info* at, bool custom)
{
    if (!custom && !at_may_go(at))
        return false;
    sms_command_goes_out();
    if (sends_message(at) && (custom || at->cmd != nullptr))
        sms_send_begins(rec);
    return true;
}

void tick(bool idle)
{
    libgsm_send_gps_location();
    ask_tick(modem_record());
    if (idle)
        libgsm_set_cellular_wake();
}

} // namespace

const exchange_hooks task_hooks = {
    .idle_line = general_handler,
    .foreign_line = foreign_line,
    .each_line = each_line,
    .each_read = sms_each_read,
    .report = sms_take_read,
    .before_command = before_command,
    .instead = sms_command_instead,
    .tick = tick,
};

} // namespace kelo
