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

#include <algorithm>

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
    sms_watch_answer(line, running == nullptr || sends_message(running));
    if (running == nullptr || !sends_message(running))
        sms_watch_prompt(rec, line);
}

// The storage has the lines that are the modem's own: a message in the read may say anything.
read_view each_read(char* bytes, std::size_t length)
{
    const read_view view = sms_each_read(bytes, length);
    std::string_view own = bytes;
    if (view.report != nullptr && text_begins(view.report, "+CMT:"))
        own = own.substr(0, static_cast<std::size_t>(view.report - bytes));
    else
        own.remove_suffix(std::min(view.keep_back, own.size()));
    if (gsm_mobile* const rec = modem_record())
        sms_storage_read(rec, own);
    return view;
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
    if (idle)
        libgsm_set_cellular_wake();
}

} // namespace

const exchange_hooks task_hooks = {
    .idle_line = general_handler,
    .foreign_line = foreign_line,
    .each_line = each_line,
    .each_read = each_read,
    .report = sms_take_read,
    .before_command = before_command,
    .instead = sms_command_instead,
    .tick = tick,
};

} // namespace kelo
