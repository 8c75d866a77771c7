// SPDX-License-Identifier: MIT
// What the modem says of its own settings: scan mode, bands, carrier profile, version.
#include "handlers/handlers.h"

#include "at/answers.h"
#include "at/at.h"
#include "handlers/parse.h"
#include "support/scan.h"

namespace kelo
{

event* scanmode_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (finish_on_final(rec, line, answer_seen(rec)))
        return nullptr;
    std::optional<int> mode;
    if (!read_scan_mode(line, mode))
        return nullptr;
    rec->reg_seen = 1;
    rec->currscanmode = mode.value_or(rec->currscanmode);
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
    text_set(field, text, ends);
    text += std::strcspn(text, ends);
    return text_skip(text, 1);
}

} // namespace

event* band_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (finish_on_final(rec, line, answer_seen(rec)))
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
    // Once per process, whatever the answer was.
    at_flag_current(rec, AT_FLAG_ONCE_DONE);
    lock_scope<record_lock> guard;
    finish_on_final(rec, line);
    return nullptr;
}

event* mbn_list_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (finish_on_ok(rec, line, answer_seen(rec)))
        return nullptr;
    if (text_has(line, "+QMBNCFG:"))
        rec->reg_seen = 1;
    const char* const list = text_find(line, "\"List\",");
    if (list == nullptr || strcasestr(line, "hVoLTE-Verizon") == nullptr)
        return nullptr;
    // The positions fit an index of one digit.
    int selected = 0;
    int activated = 0;
    scan(text_skip(list, 9), dec(selected));
    scan(text_skip(list, 11), dec(activated));
    word_set(verizon_flag, selected & activated);
    return nullptr;
}

namespace
{

// A text for the host to fetch, and the word that says that it is new.
template <std::size_t size>
int update_code(char (gsm_mobile::*field)[size], int gsm_mobile::*is_new, const char* text)
{
    gsm_mobile* const record = modem_record();
    if (record == nullptr || text == nullptr)
        return -1;
    lock_scope<record_lock> guard;
    record->*is_new = 1;
    text_set(record->*field, text);
    return 0;
}

} // namespace

int libgsm_update_version_code(const char* text)
{
    return update_code(&gsm_mobile::version_code, &gsm_mobile::version_code_new, text);
}

int libgsm_update_qmbncfg_code(const char* text)
{
    return update_code(&gsm_mobile::qmbn_code, &gsm_mobile::qmbn_code_new, text);
}

event* qmbncfg_list_handler(gsm_mobile* rec, char* line)
{
    const char* const match = text_find(line, "0,0,0,");
    if (match == nullptr)
        return nullptr;
    char name[sizeof rec->qmbn_code];
    text_set(name, text_skip(match, 7), "\",\n"); // behind the opening quote
    libgsm_update_qmbncfg_code(name);
    lock_scope<record_lock> guard;
    finish_command(rec);
    return nullptr;
}

event* ati_handler(gsm_mobile* rec, char* line)
{
    const char* const match = text_find(line, "EG95");
    if (match == nullptr)
        return nullptr;
    libgsm_update_version_code(match + 4);
    lock_scope<record_lock> guard;
    finish_command(rec);
    return nullptr;
}

} // namespace kelo
