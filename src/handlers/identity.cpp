#include "handlers/handlers.h"

#include "at/answers.h"
#include "support/diag.h"

namespace kelo
{

namespace
{

// A line of digits: an echo and a line with a prefix begin with something else.
const char* bare_number(const char* line)
{
    while (*line == '\n')
        line++;
    return *line >= '0' && *line <= '9' ? line : nullptr;
}

} // namespace

event* cgmi_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (take_final_line(rec, line, rec->mfrs))
        return nullptr;
    text_set_until(rec->mfrs, line, "\n");
    diag_at(plain, "cgmi_handler", "manufacturer='%s'\n", rec->mfrs);
    return nullptr;
}

event* cgsn_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (take_final_line(rec, line, rec->sn))
        return nullptr;
    const char* const number = bare_number(line);
    if (number == nullptr)
        return nullptr;
    text_set_until(rec->sn, number, "\n");
    diag_at(debug, "cgsn_handler", "sn='%s'\n", rec->sn);
    return nullptr;
}

event* cimi_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (take_final_line(rec, line, rec->imsi))
        return nullptr;
    const char* const number = bare_number(line);
    if (number == nullptr)
        return nullptr;
    text_set_until(rec->imsi, number, "\n");
    diag_at(plain, "cimi_handler", "imsi='%s'\n", rec->imsi);
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
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    // Ahead of the final lines: this one leaves the command to its time-out.
    if (text_has(line, "+CME ERROR: SIM failure"))
        return raise_event(GSM_EVENT_SIM_FAILED);
    if (take_final_line(rec, line, rec->iccid))
        return nullptr;
    for (const iccid_prefix& prefix : iccid_prefixes) {
        const char* const match = text_find(line, prefix.needle);
        if (match != nullptr) {
            text_set_until(rec->iccid, text_skip(match, prefix.offset), "\n");
            diag_at(plain, "qccid_handler", "iccid='%s'\n", rec->iccid);
            return nullptr;
        }
    }
    return nullptr;
}

event* cnum_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    const char* const match = text_find(line, "+CNUM");
    if (match == nullptr) {
        if (text_has(line, "ERROR"))
            finish_command(rec);
        return nullptr;
    }
    // The first column is a name, often empty and then without quotes.
    const char* const quote = text_find(match, ",\"");
    text_set_until(rec->number, quote == nullptr ? "" : quote + 2, "\"\n");
    diag_at(plain, "cnum_handler", "number='%s'\n", rec->number);
    finish_command(rec);
    return nullptr;
}

event* csca_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (ends_if_seen(rec, line))
        return nullptr;
    const char* const match = text_find(line, "+CSCA");
    if (match == nullptr)
        return nullptr;
    const char* const quote = text_find(match, "\"");
    text_set_until(rec->smscenter, quote == nullptr ? "" : quote + 1, "\"\n");
    diag_at(plain, "csca_handler", "sms_center='%s'\n", rec->smscenter);
    rec->reg_seen = 1;
    return nullptr;
}

} // namespace kelo
