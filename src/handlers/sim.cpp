// SPDX-License-Identifier: MIT
// The SIM: its state, its slot, and the radio that goes down and up with it.
#include "handlers/handlers.h"

#include "at/answers.h"
#include "at/at.h"
#include "core/family.h"
#include "handlers/sim_guard.h"
#include "support/rows.h"

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
    if (word_get(keeper_on) != 0 && sim_guard_answer(rec, line))
        return nullptr;
    {
        lock_scope<record_lock> guard;
        if (finish_on_ok(rec, line, answer_seen(rec)))
            return nullptr;
        if (text_has(line, "+CPIN"))
            rec->reg_seen = 1;
    }
    // Of the second PIN, which no data link needs: the same words begin so.
    if (word_get(keeper_on) != 0 && (text_has(line, "SIM PIN2") || text_has(line, "SIM PUK2")))
        return nullptr;
    const auto* const answer =
        find_row(sim_answers, [&](const auto& row) { return text_has(line, row.needle); });
    if (answer != nullptr) {
        if (answer->ends_flow)
            at_flow_skip_rest();
        return say_event(answer->code);
    }
    if (text_has(line, "+CPIN: READY"))
        word_set(is_pin_ready, 1);
    return nullptr;
}

// The radio is up when the SIM reports, not when the command is accepted.
event* cfun_full_handler(gsm_mobile* rec, char* line)
{
    if (text_has(line, "+CPIN: READY") || text_has(line, "+QUSIM:")) {
        lock_scope<record_lock> guard;
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
    lock_scope<record_lock> guard;
    if (!finish_on_ok(rec, line, answer_seen(rec) || slot_ends_on_ok()) && text_has(line, "+QUSIM"))
        rec->reg_seen = 1;
    return nullptr;
}

event* ok_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    finish_on_ok(rec, line);
    return nullptr;
}

} // namespace kelo
