#include "handlers/handlers.h"

#include "at/answers.h"
#include "at/at.h"

#include <cstring>

namespace kelo
{

namespace
{

struct mode_word {
    const char* word;
    int mode;
};

constexpr mode_word mode_prefs[] = {
    {"AUTO", 0}, {"WCDMA", 2}, {"LTE", 3}, {"LTE:NR5G", 9}, {"NR5G", 10},
};

// With their quotes: a list of several systems means automatic.
constexpr mode_word syscfg_orders[] = {{"\"02\"", 2}, {"\"03\"", 3}, {"\"08\"", 9}};

void read_nwscanmode(gsm_mobile* rec, const char*, const char* match)
{
    text_scan(match, "+QCFG: \"nwscanmode\",%d", &rec->currscanmode);
}

void read_mododr(gsm_mobile* rec, const char*, const char* match)
{
    text_scan(match, "+MODODR: %d", &rec->currscanmode);
}

void read_mode_pref(gsm_mobile* rec, const char*, const char* match)
{
    char word[32] = "";
    text_scan(match, "+QNWPREFCFG: \"mode_pref\",%s", word, sizeof word);
    for (const mode_word& pref : mode_prefs)
        if (std::strcmp(word, pref.word) == 0)
            rec->currscanmode = pref.mode;
}

void read_syscfgex(gsm_mobile* rec, const char* line, const char*)
{
    rec->currscanmode = 0;
    for (const mode_word& order : syscfg_orders)
        if (text_has(line, order.word)) {
            rec->currscanmode = order.mode;
            return;
        }
}

void read_gtrat(gsm_mobile* rec, const char*, const char* match)
{
    int rat = -1;
    text_scan(match, "+GTRAT: %d", &rat);
    switch (rat) {
    case 2:
    case 3:
        rec->currscanmode = rat;
        break;
    case 16:
    case 17:
        rec->currscanmode = 9;
        break;
    case 14:
        rec->currscanmode = 10;
        break;
    default:
        rec->currscanmode = 0;
        break;
    }
}

struct scanmode_report {
    const char* needle;
    void (*read)(gsm_mobile* rec, const char* line, const char* match);
};

constexpr scanmode_report scanmode_reports[] = {
    {"+QCFG: \"nwscanmode\"", read_nwscanmode},
    {"+MODODR", read_mododr},
    {"+QNWPREFCFG: \"mode_pref\"", read_mode_pref},
    {"^SYSCFGEX:", read_syscfgex},
    {"+GTRAT:", read_gtrat},
};

} // namespace

event* scanmode_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (ends_if_seen(rec, line))
        return nullptr;
    for (const scanmode_report& report : scanmode_reports) {
        const char* const match = text_find(line, report.needle);
        if (match != nullptr) {
            report.read(rec, line, match);
            rec->reg_seen = 1;
            return nullptr;
        }
    }
    return nullptr;
}

namespace
{

// Copies one mask, without its "0x", and gives what stands behind the character that ended it.
template <std::size_t size>
const char* read_mask(char (&field)[size], const char* text, const char* ends)
{
    if (text_begins(text, "0x"))
        text += 2;
    text_set_until(field, text, ends);
    text += std::strcspn(text, ends);
    return text_skip(text, 1);
}

} // namespace

event* band_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (ends_if_seen(rec, line))
        return nullptr;
    const char* masks = nullptr;
    if (const char* const qcfg = text_find(line, "+QCFG: \"band\""))
        masks = text_skip(qcfg, 14);
    else if (const char* const bndprf = text_find(line, "+BNDPRF:"))
        masks = text_skip(bndprf, 9);
    else
        return nullptr;
    rec->reg_seen = 1;
    masks = read_mask(rec->band_gsm, masks, ",");
    masks = read_mask(rec->band_lte, masks, ",");
    read_mask(rec->band_tds, masks, "\n");
    return nullptr;
}

event* netseq_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    // Once per process, whatever the answer was.
    at_flag_current(rec, AT_FLAG_ONCE_DONE);
    if (is_final_line(line)) {
        lock_scope guard(record_lock);
        finish_command(rec);
    }
    return nullptr;
}

event* mbn_list_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    lock_scope guard(record_lock);
    if (text_has(line, "OK")) {
        finish_if_seen(rec);
        return nullptr;
    }
    if (text_has(line, "+QMBNCFG:"))
        rec->reg_seen = 1;
    const char* const list = text_find(line, "\"List\",");
    if (list == nullptr || strcasestr(line, "hVoLTE-Verizon") == nullptr)
        return nullptr;
    // The positions fit an index of one digit.
    int selected = 0;
    int activated = 0;
    text_scan(text_skip(list, 9), "%d", &selected);
    text_scan(text_skip(list, 11), "%d", &activated);
    word_set(verizon_flag, selected & activated);
    return nullptr;
}

int libgsm_update_version_code(const char* text)
{
    gsm_mobile* const record = modem_record();
    if (record == nullptr || text == nullptr)
        return -1;
    lock_scope guard(record_lock);
    record->version_code_new = 1;
    text_set(record->version_code, text);
    return 0;
}

int libgsm_update_qmbncfg_code(const char* text)
{
    gsm_mobile* const record = modem_record();
    if (record == nullptr || text == nullptr)
        return -1;
    lock_scope guard(record_lock);
    record->qmbn_code_new = 1;
    text_set(record->qmbn_code, text);
    return 0;
}

event* qmbncfg_list_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    char* const match = text_find(line, "0,0,0,");
    if (match == nullptr)
        return nullptr;
    // Behind the opening quote of the name, in a line that goes that far.
    char* const name = match + strnlen(match, 7);
    name[std::strcspn(name, "\",\n")] = '\0';
    libgsm_update_qmbncfg_code(name);
    lock_scope guard(record_lock);
    finish_command(rec);
    return nullptr;
}

event* ati_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    const char* const match = text_find(line, "EG95");
    if (match == nullptr)
        return nullptr;
    libgsm_update_version_code(match + 4);
    lock_scope guard(record_lock);
    finish_command(rec);
    return nullptr;
}

} // namespace kelo
