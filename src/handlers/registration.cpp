#include "handlers/handlers.h"

#include "at/answers.h"
#include "at/at.h"
#include "core/family.h"
#include "support/diag.h"

#include <cstdlib>

namespace kelo
{

namespace
{

// One layout of a registration line, told by its prefix and its number of commas.
struct reg_form {
    const char* prefix;
    int commas;
    bool (*only)(); // the modules that have it; null means all
    bool n_first;   // the columns start with <n>, as they do in the answer to a query
    bool follows;   // a change of the cell is followed up
    const char* format;
};

// The stat columns are read as hexadecimal too. Only "+CREG" has a decimal technology. The first
// row that fits counts.
// clang-format off
constexpr reg_form reg_forms[] = {
    // prefix commas only n_first follows format
    {"+CGREG", 5, nullptr, true,  false, "+CGREG: %x,%x,\"%[^\"]\",\"%lx\",%x,\"%x\""},
    {"+CGREG", 4, nullptr, true,  false, "+CGREG: %x,%x,\"%[^\"]\",\"%lx\",%x"},
    {"+CGREG", 3, nullptr, false, false, "+CGREG: %x,\"%[^\"]\",\"%lx\",%x"},
    {"+CGREG", 1, nullptr, true,  false, "+CGREG: %x,%x"},
    {"+CGREG", 0, nullptr, false, false, "+CGREG: %x"},
    {"+CREG",  4, nullptr, true,  true,  "+CREG: %x,%x,\"%[^\"]\",\"%lx\",%d"},
    {"+CREG",  3, nullptr, false, true,  "+CREG: %x,\"%[^\"]\",\"%lx\",%d"},
    {"+CREG",  1, nullptr, true,  false, "+CREG: %x,%x"},
    {"+CREG",  0, nullptr, false, false, "+CREG: %x"},
    {"+CEREG", 4, nullptr, true,  false, "+CEREG: %x,%x,\"%[^\"]\",\"%lx\",%x"},
    {"+CEREG", 3, cereg_begins_with_n, true,  false, "+CEREG: %x,%x,\"%[^\"]\",\"%lx\""},
    {"+CEREG", 3, nullptr, false, false, "+CEREG: %x,\"%[^\"]\",\"%lx\",%x"},
    {"+CEREG", 1, nullptr, true,  false, "+CEREG: %x,%x"},
    {"+CEREG", 0, nullptr, false, false, "+CEREG: %x"},
};
// clang-format on

const reg_form* find_form(const char* prefix, int commas)
{
    for (const reg_form& form : reg_forms)
        if (std::strcmp(form.prefix, prefix) == 0 && form.commas == commas &&
            (form.only == nullptr || form.only()))
            return &form;
    return nullptr;
}

// A new cell seen behind the flow asks the modem, once, what cell it is.
void follow_cell(gsm_mobile* rec, std::uint64_t cell)
{
    constexpr int en_dc = 13; // 3GPP TS 27.007 <AcT>
    const int old_cid = rec->cid;
    store_cell_id(rec, cell);
    if (rec->tech == en_dc) {
        text_set(rec->act, "5G NR");
        return;
    }
    if (at_flow_finished() == 0 || rec->cid == old_cid)
        return;
    char* const query = text_duplicate("AT+QENG=\"servingcell\"");
    if (query == nullptr)
        return;
    std::free(rec->pending_at);
    rec->pending_at = query;
}

void read_form(gsm_mobile* rec, const reg_form& form, const char* text)
{
    std::uint64_t cell = 0;
    gsm_mobile& to = *rec;
    const int values = form.n_first ? text_scan(text, form.format, &to.reg_n, &to.reg_stat, to.lac,
                                                sizeof to.lac, &cell, &to.tech, &to.rac)
                                    : text_scan(text, form.format, &to.reg_stat, to.lac,
                                                sizeof to.lac, &cell, &to.tech);
    if (form.follows)
        follow_cell(rec, cell);
    else if (values >= (form.n_first ? 4 : 3))
        store_cell_id(rec, cell);
}

// Whether the modem is registered, as an event. While it is not and the command has tries left, the
// answer does not count as seen, so that the query is repeated.
event* judge_registration(gsm_mobile* rec)
{
    switch (rec->reg_status) {
    case 1:
    case 5:
        rec->reg_seen = 1;
        return raise_event(GSM_EVENT_SIM_UP);
    case 0:
    case 2:
    case 3:
    case 4:
        if (rec->cur_at != nullptr && rec->cur_at->retries_left == 0)
            rec->reg_seen = 1;
        return raise_event(GSM_EVENT_SIM_DOWN);
    default:
        return nullptr;
    }
}

} // namespace

event* creg_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (ends_if_seen(rec, line))
        return nullptr;
    const char* prefix = nullptr;
    const char* match = nullptr;
    for (const char* candidate : {"+CGREG", "+CREG", "+CEREG"}) {
        const char* const found = text_find(line, candidate);
        if (found != nullptr) {
            prefix = candidate;
            match = found;
        }
    }
    if (match == nullptr)
        return nullptr;
    const reg_form* const form = find_form(prefix, text_commas(match));
    if (form != nullptr)
        read_form(rec, *form, match);
    if (rec->reg_stat >= 0 && rec->reg_stat <= 5)
        rec->reg_status = rec->reg_stat;
    return judge_registration(rec);
}

event* csq_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (ends_if_seen(rec, line))
        return nullptr;
    const char* const match = text_find(line, "+CSQ:");
    if (match != nullptr) {
        text_scan(match, "+CSQ: %d,%d", &rec->rssi, &rec->ber);
        rec->reg_seen = 1;
    }
    return nullptr;
}

namespace
{

// A numeric operator of five digits, by its length and first character.
bool is_short_plmn(const char* name)
{
    return std::strlen(name) == 5 && name[0] >= '0' && name[0] <= '9';
}

void read_qnwinfo(gsm_mobile* rec, char* line, const char* match)
{
    text_clear(rec->act);
    text_clear(rec->plmn);
    text_clear(rec->band);
    if (text_has(match, "No Service"))
        return;
    if (text_scan(match, "+QNWINFO: \"%[^\"]\",\"%[^\"]\",\"%[^\"]\",%d", rec->act, sizeof rec->act,
                  rec->plmn, sizeof rec->plmn, rec->band, sizeof rec->band, &rec->channel) == 4)
        return;
    // Early EC20 firmware prints the operator without quotes: what is readable is read.
    char* columns[4];
    const std::size_t count = text_columns(line, columns, std::size(columns));
    if (count > 0)
        text_scan(columns[0], "+QNWINFO: \"%[^\"]\"", rec->act, sizeof rec->act);
    if (count > 1)
        text_scan(columns[1], "\"%[^\"]\"", rec->plmn, sizeof rec->plmn);
    if (count > 2)
        text_scan(columns[2], "\"%[^\"]\"", rec->band, sizeof rec->band);
    if (count > 3)
        text_scan(columns[3], "%d", &rec->channel);
}

void read_psrat(gsm_mobile* rec, const char* match)
{
    text_clear(rec->act);
    text_clear(rec->plmn);
    text_clear(rec->band);
    if (!text_has(match, "NONE"))
        text_set_until(rec->act, text_skip(match, 8), "\n");
}

void read_zpas(gsm_mobile* rec, const char* match)
{
    text_clear(rec->act);
    text_clear(rec->plmn);
    text_clear(rec->band);
    if (!text_has(match, "No Service"))
        text_scan(match, "+ZPAS: \"%[^\"]\"", rec->act, sizeof rec->act);
}

struct technology_word {
    const char* needle;
    const char* act;
};

// Tried from the top: "NR" may stand in other words.
constexpr technology_word hcsq_words[] = {
    {"GSM", "GSM"},
    {"WCDMA", "WCDMA"},
    {"LTE", "LTE"},
    {"NR", "5G NR"},
};

void read_hcsq(gsm_mobile* rec, const char* match)
{
    text_clear(rec->act);
    if (text_has(match, "NOSERVICE"))
        return;
    for (const technology_word& word : hcsq_words)
        if (text_has(match, word.needle)) {
            text_set(rec->act, word.act);
            return;
        }
}

} // namespace

} // namespace kelo

using namespace kelo;

struct gsm_event* cops_handler(struct gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (ends_if_seen(rec, line))
        return nullptr;
    const char* const match = text_find(line, "+COPS");
    if (match == nullptr)
        return nullptr;
    rec->reg_seen = 1;
    switch (text_commas(match)) {
    case 3: {
        int mode = 0;
        int format = 0;
        int tech = 0;
        char name[128] = "";
        text_scan(match, "+COPS: %d,%d,\"%[^\"]\",%d", &mode, &format, name, sizeof name, &tech);
        if (is_short_plmn(name))
            text_set(rec->plmn, name);
        else
            text_set(rec->oper, name);
        rec->reg_status = 1;
        return raise_event(GSM_EVENT_SIM_UP);
    }
    case 0:
        rec->reg_status = 0;
        return raise_event(GSM_EVENT_SIM_DOWN);
    default:
        diag_at(plain, "cops_handler", "unexpected error(%s)!\n", line);
        return nullptr;
    }
}

struct gsm_event* nwinfo_handler(struct gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (ends_if_seen(rec, line))
        return nullptr;
    const char* match = nullptr;
    if ((match = text_find(line, "+QNWINFO")) != nullptr)
        read_qnwinfo(rec, line, match);
    else if ((match = text_find(line, "+PSRAT")) != nullptr)
        read_psrat(rec, match);
    else if ((match = text_find(line, "+ZPAS")) != nullptr)
        read_zpas(rec, match);
    else if ((match = text_find(line, "^HCSQ")) != nullptr)
        read_hcsq(rec, match);
    if (match != nullptr)
        rec->reg_seen = 1;
    return nullptr;
}

long long libgsm_get_cid64(void)
{
    if (modem_record() == nullptr)
        return -1;
    lock_scope guard(record_lock);
    return static_cast<long long>(full_cell_id);
}
