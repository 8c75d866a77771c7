// SPDX-License-Identifier: MIT
// Who module and SIM are: manufacturer, serial number, IMSI, ICCID, own number, service centre.
#include "handlers/handlers.h"

#include "at/answers.h"
#include "support/diag.h"

namespace kelo
{

event* cgmi_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (finish_on_final(rec, line, filled(rec->mfrs)))
        return nullptr;
    text_set(rec->mfrs, line, "\n");
    diag_at(plain, __func__, "manufacturer='%s'\n", rec->mfrs);
    return nullptr;
}

namespace
{

// The answer of a command that says digits alone: an echo and a line with a prefix begin with
// something else. Whether the line was the answer.
// The caller holds record_lock.
template <std::size_t size> bool take_digits(gsm_mobile* rec, const char* line, char (&field)[size])
{
    if (finish_on_final(rec, line, filled(field)))
        return false;
    const char* const number = line + std::strspn(line, "\n");
    if (*number < '0' || *number > '9')
        return false;
    text_set(field, number, "\n");
    return true;
}

} // namespace

event* cgsn_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (take_digits(rec, line, rec->sn))
        diag_at(debug, __func__, "sn='%s'\n", rec->sn);
    return nullptr;
}

event* cimi_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (take_digits(rec, line, rec->imsi))
        diag_at(plain, __func__, "imsi='%s'\n", rec->imsi);
    return nullptr;
}

namespace
{

struct iccid_prefix {
    const char* needle;
    std::size_t offset; // from its start to the value; an echo is shorter
};

constexpr iccid_prefix iccid_prefixes[] = {
    {"+QCCID", 8}, {"^SCID", 7}, {"#CCID", 7}, {"ICCID", 7}, {"+CCID", 7},
};

} // namespace

event* qccid_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    // Ahead of the final lines: this one leaves the command to its time-out.
    if (text_has(line, "+CME ERROR: SIM failure"))
        return raise_event(GSM_EVENT_SIM_FAILED);
    if (finish_on_final(rec, line, filled(rec->iccid)))
        return nullptr;
    for (const iccid_prefix& prefix : iccid_prefixes) {
        const char* const match = text_find(line, prefix.needle);
        if (match != nullptr) {
            text_set(rec->iccid, text_skip(match, prefix.offset), "\n");
            diag_at(plain, __func__, "iccid='%s'\n", rec->iccid);
            return nullptr;
        }
    }
    return nullptr;
}

event* cnum_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    const char* const match = text_find(line, "+CNUM");
    if (match == nullptr) {
        finish_on_error(rec, line);
        return nullptr;
    }
    // The first column is a name, often empty and then without quotes.
    const char* const quote = text_find(match, ",\"");
    text_set(rec->number, quote == nullptr ? "" : quote + 2, "\"\n");
    diag_at(plain, __func__, "number='%s'\n", rec->number);
    finish_command(rec);
    return nullptr;
}

event* csca_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (finish_on_final(rec, line, answer_seen(rec)))
        return nullptr;
    const char* const match = text_find(line, "+CSCA");
    if (match == nullptr)
        return nullptr;
    const char* const quote = text_find(match, "\"");
    text_set(rec->smscenter, quote == nullptr ? "" : quote + 1, "\"\n");
    diag_at(plain, __func__, "sms_center='%s'\n", rec->smscenter);
    rec->reg_seen = 1;
    return nullptr;
}

} // namespace kelo
