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

// Some modules put a prefix and quotes around their answer. Those of a file may; the others' are
// read as they stand.
constexpr const char* frames[] = {"+CGMM:", "+CGMR:", "+GMR:", "Revision:"};

template <std::size_t size> char* without_frame(char (&text)[size], const char* line)
{
    for (const char* const frame : frames)
        if (text_begins(line, frame))
            line += std::strlen(frame);
    text_set(text, line + std::strspn(line, " \""), "\r\n\"");
    return text;
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

// Whether the line is the model of a module that a file brings; `name` is the answer then.
bool is_of_file(char (&name)[64], const char* line)
{
    return is_bare_answer(without_frame(name, line), name) && module_file(name) != nullptr;
}

void compose(gsm_mobile* rec, lock_scope<record_lock>& guard)
{
    char model[sizeof rec->model];
    char revision[sizeof rec->revision];
    text_set(model, rec->model);
    text_set(revision, rec->revision);
    guard.release();
    at_compose_flows(rec, model, revision);
}

// With the whole answer alone: a flow of the library's own may go by the next line of it.
void compose_of_file(gsm_mobile* rec, lock_scope<record_lock>& guard)
{
    if (filled(rec->revision) && module_brought(rec->model, rec->revision) != nullptr)
        compose(rec, guard);
}

} // namespace

const char* module_unlisted()
{
    return unlisted;
}

event* cgmm_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (finish_on_final(rec, line, filled(rec->model)))
        return nullptr;
    char brought[64];
    const char* model = module_in(line);
    if (model == nullptr && !filled(rec->model) && is_of_file(brought, line))
        model = brought;
    if (model != nullptr) {
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
    lock_scope<record_lock> guard;
    if (finish_on_final(rec, line, filled(rec->revision))) {
        compose_of_file(rec, guard);
        return nullptr;
    }
    char framed[sizeof rec->revision];
    if (module_file(rec->model) != nullptr)
        line = without_frame(framed, line);
    const char* const start = revision_start(rec->model, line);
    if (start == nullptr)
        return nullptr;
    text_set(rec->revision, start, "\n ");
    if (!is_bare_answer(rec->revision, line)) {
        text_clear(rec->revision);
        return nullptr;
    }
    diag_at(plain, "cgmr_handler", "revision='%s'\n", rec->revision);
    if (module_brought(rec->model, rec->revision) == nullptr)
        compose(rec, guard);
    return nullptr;
}

void at_compose_flows_of_file(gsm_mobile* rec)
{
    lock_scope<record_lock> guard;
    compose_of_file(rec, guard);
}

} // namespace kelo
