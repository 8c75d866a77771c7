// SPDX-License-Identifier: MIT
// Which module it is: its model and its revision, and with the second the flows that it walks.
#include "modules/modules.h"

#include "at/answers.h"
#include "support/diag.h"
#include "support/rows.h"

namespace kelo
{

namespace
{

// The name that no row of the table is in; guarded by record_lock.
char unlisted[32] = "";

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

// What a modem says unasked, and without a prefix to tell it by.
constexpr const char* bare_reports[] = {"RING", "RDY", "NO CARRIER", "BUSY", "NORMAL POWER DOWN"};

// Nothing is no revision and no model, nor is an echo, nor a line with a prefix.
bool is_bare_answer(const char* text, const char* line)
{
    const auto* const report =
        find_row(bare_reports, [&](const char* one) { return text_begins(line, one); });
    return *text != '\0' && std::strpbrk(text, "+:\",") == nullptr && report == nullptr;
}

void note_unlisted(const char* line)
{
    char name[sizeof unlisted];
    text_set(name, line, "\r\n");
    const bool echo = text_begins(name, "AT"); // of a question for a word, which has no '+'
    if (!echo && is_bare_answer(name, line) && !text_has_control(name))
        text_set(unlisted, name);
}

} // namespace

const char* module_unlisted()
{
    return unlisted;
}

event* cgmm_handler(gsm_mobile* rec, char* line)
{
    lock_scope guard(record_lock);
    if (finish_on_final(rec, line, filled(rec->model)))
        return nullptr;
    if (const char* const model = module_in(line)) {
        text_clear(unlisted);
        text_set(rec->model, model, "\n");
        diag_at(plain, "cgmm_handler", "model='%s'\n", rec->model);
    } else if (!filled(rec->model)) {
        note_unlisted(line);
    }
    return nullptr;
}

event* cgmr_handler(gsm_mobile* rec, char* line)
{
    lock_scope guard(record_lock);
    if (finish_on_final(rec, line, filled(rec->revision)))
        return nullptr;
    const char* const start = revision_start(rec->model, line);
    if (start == nullptr)
        return nullptr;
    text_set(rec->revision, start, "\n ");
    if (!is_bare_answer(rec->revision, line)) {
        text_clear(rec->revision);
        return nullptr;
    }
    diag_at(plain, "cgmr_handler", "revision='%s'\n", rec->revision);
    char model[sizeof rec->model];
    char revision[sizeof rec->revision];
    text_set(model, rec->model);
    text_set(revision, rec->revision);
    guard.release();
    at_compose_flows(rec, model, revision);
    return nullptr;
}

} // namespace kelo
