#include "handlers/handlers.h"

#include "at/answers.h"
#include "at/at.h"
#include "core/family.h"

namespace kelo
{

namespace
{

struct sim_answer {
    const char* needle;
    int code;
    bool ends_flow; // without a SIM the rest of the flow has no point
};

// Tried from the top, the first that matches decides. "+CME ERROR: 10" takes longer numbers that
// begin so as well; every error that is none of those above is one of the PIN that was sent.
// clang-format off
constexpr sim_answer sim_answers[] = {
    {"+CME ERROR: SIM failure",      GSM_EVENT_SIM_FAILED,       true},
    {"+CPIN: NOT READY",             GSM_EVENT_SIM_FAILED,       true},
    {"+CME ERROR: SIM not inserted", GSM_EVENT_SIM_NOT_INSERTED, true},
    {"+CME ERROR: SIM busy",         GSM_EVENT_SIM_BUSY,         false},
    {"+CPIN: SIM PIN",               GSM_EVENT_PIN_REQUIRED,     false},
    {"+CME ERROR: 10",               GSM_EVENT_SIM_NOT_INSERTED, false},
    {"+CME ERROR",                   GSM_EVENT_PIN_ERROR,        false},
    {"+CPIN: SIM PUK",               GSM_EVENT_PUK_REQUIRED,     false},
};
// clang-format on

} // namespace

event* cpin_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    {
        lock_scope guard(record_lock);
        if (text_has(line, "OK")) {
            finish_if_seen(rec);
            return nullptr;
        }
        if (text_has(line, "+CPIN"))
            rec->reg_seen = 1;
    }
    for (const sim_answer& answer : sim_answers)
        if (text_has(line, answer.needle)) {
            if (answer.ends_flow)
                at_flow_skip_rest();
            return say_event(answer.code);
        }
    if (text_has(line, "+CPIN: READY"))
        word_set(is_pin_ready, 1);
    return nullptr;
}

// The radio is up when the SIM reports, not when the command is accepted.
event* cfun_full_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    if (text_has(line, "+CPIN: READY") || text_has(line, "+QUSIM:")) {
        lock_scope guard(record_lock);
        finish_command(rec);
    }
    return nullptr;
}

// Nothing that the modem says ends this command: its time-out gives the radio time to go down.
event* cfun_mini_handler(gsm_mobile*, char*)
{
    return nullptr;
}

event* selslot_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (text_has(line, "OK")) {
        if (rec->reg_seen != 0 || slot_ends_on_ok())
            finish_command(rec);
    } else if (text_has(line, "+QUSIM")) {
        rec->reg_seen = 1;
    }
    return nullptr;
}

event* ok_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    if (text_has(line, "OK")) {
        lock_scope guard(record_lock);
        finish_command(rec);
    }
    return nullptr;
}

} // namespace kelo
