#include "handlers/handlers.h"

#include "at/gsm_at.h"
#include "handlers/common.h"
#include "support/diag.h"

namespace kelo
{

namespace
{

// Tried in this order, whatever the order in the line.
constexpr const char* model_tokens[] = {
    "E9720", "EC20", "EC21", "EC25",  "EG25",  "EP06",  "Quectel_M35", "U9300C", "LE910",
    "UC15",  "UC20", "EG95", "RM500", "RM510", "RG500", "RG510",       "MH5000", "V1.0.1-B7",
};

// The final line ends a command only once its field is filled: an answer that has not come yet is
// waited for, and asked for again. The caller holds record_lock.
bool take_final_line(gsm_mobile* rec, const char* line, const char* field)
{
    if (!is_final_line(line))
        return false;
    if (field[0] != '\0')
        finish_command(rec);
    return true;
}

// A line of digits: an echo and a line with a prefix begin with something else.
const char* bare_number(const char* line)
{
    while (*line == '\n')
        line++;
    return *line >= '0' && *line <= '9' ? line : nullptr;
}

} // namespace

event* cgmm_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (take_final_line(rec, line, rec->model))
        return nullptr;
    for (const char* token : model_tokens) {
        const char* const match = text_find(line, token);
        if (match != nullptr) {
            text_set_until(rec->model, match, "\n");
            diag_plain("%s:%d model='%s'\n", "cgmm_handler", __LINE__, rec->model);
            return nullptr;
        }
    }
    return nullptr;
}

event* cgmi_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (take_final_line(rec, line, rec->mfrs))
        return nullptr;
    text_set_until(rec->mfrs, line, "\n");
    diag_plain("%s:%d manufacturer='%s'\n", "cgmi_handler", __LINE__, rec->mfrs);
    return nullptr;
}

namespace
{

// Where the revision starts in a line of this model; null for a line that has none.
const char* revision_start(const char* model, const char* line)
{
    if (std::strcmp(model, "V1.0.1-B7") != 0)
        return line;
    const char* const match = text_find(line, "BASE  Version:");
    if (match == nullptr)
        return nullptr;
    const char* const value = text_skip(match, 18);
    return value + std::strspn(value, " "); // some builds pad with a blank more
}

} // namespace

event* cgmr_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (take_final_line(rec, line, rec->revision))
        return nullptr;
    const char* const start = revision_start(rec->model, line);
    if (start == nullptr)
        return nullptr;
    text_set_until(rec->revision, start, "\n ");
    // An echo or a line with a prefix is no revision. Nor is nothing: it would use up the one
    // chance to complete the flows.
    if (rec->revision[0] == '\0' || std::strpbrk(rec->revision, "+:\",") != nullptr) {
        text_clear(rec->revision);
        return nullptr;
    }
    diag_plain("%s:%d revision='%s'\n", "cgmr_handler", __LINE__, rec->revision);
    if (rec->custom_cfg != 0)
        return nullptr;
    char model[sizeof rec->model];
    char revision[sizeof rec->revision];
    text_set(model, rec->model);
    text_set(revision, rec->revision);
    guard.release();
    at_compose_flows(rec, model, revision);
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
    diag_debug("%s:%d sn='%s'\n", "cgsn_handler", __LINE__, rec->sn);
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
    diag_plain("%s:%d imsi='%s'\n", "cimi_handler", __LINE__, rec->imsi);
    return nullptr;
}

event* gps_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (take_final_line(rec, line, rec->gps_loc))
        return nullptr;
    const char* const match = text_find(line, "+QGPSLOC");
    if (match == nullptr)
        return nullptr;
    text_set_until(rec->gps_loc, text_skip(match, 10), "\n");
    diag_plain("%s:%d gps='%s'\n", "gps_handler", __LINE__, rec->gps_loc);
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
            diag_plain("%s:%d iccid='%s'\n", "qccid_handler", __LINE__, rec->iccid);
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
    diag_plain("%s:%d number='%s'\n", "cnum_handler", __LINE__, rec->number);
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
    diag_plain("%s:%d sms_center='%s'\n", "csca_handler", __LINE__, rec->smscenter);
    rec->reg_seen = 1;
    return nullptr;
}

} // namespace kelo
