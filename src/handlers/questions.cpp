// SPDX-License-Identifier: MIT
// Questions: when each is due, and what is read of its answer.
#include "handlers/questions.h"

#include "handlers/handlers.h"
#include "handlers/parse.h"
#include "support/diag.h"
#include "support/rows.h"
#include "support/scan.h"
#include "support/seldom.h"
#include "support/text.h"
#include "support/waits.h"

#include <algorithm>

namespace kelo
{

namespace
{

struct question {
    char command[KELO_QUESTION_SIZE];
    std::int64_t due_ms; // 0: at once
    int unanswered;      // asked in a row without an OK
};

// A leaf: nothing is taken under it.
lock questions_lock;

KELO_SELDOM question all[KELO_QUESTIONS];
struct {
    int count = 0;
    std::int64_t pause_ms = 0;
    question* asked = nullptr; // last, while it is unanswered
} questions;

void note_answer()
{
    const lock_scope<questions_lock> hold;
    if (questions.asked != nullptr)
        questions.asked->unanswered = 0;
    questions.asked = nullptr;
}

// ---- What is read of the answers, without an event: a question is no news of the registration

void take_signal(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    scan(line, "+CSQ: ", dec(rec->rssi), ",", dec(rec->ber));
}

void take_technology(gsm_mobile* rec, char* line)
{
    nwinfo_handler(rec, line);
}

void take_serving_cell(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    rec->qeng_net_stem = classify_net_stem(line);
    parse_qeng_info(rec, line);
}

void take_rfsts(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    parse_rfsts_info(rec, line);
}

void take_operator(gsm_mobile* rec, char* line)
{
    const std::optional<network_operator> oper = read_operator(line);
    if (!oper || oper->kind != network_operator::named)
        return;
    const std::size_t digits = std::strspn(oper->name, "0123456789");
    lock_scope<record_lock> guard;
    if ((digits == 5 || digits == 6) && oper->name[digits] == '\0')
        text_set(rec->plmn, oper->name);
    else
        text_set(rec->oper, oper->name);
}

struct figure {
    const char* begin;
    void (*take)(gsm_mobile* rec, char* line);
};
// clang-format off
constexpr figure figures[] = {
    {"+CSQ:",     take_signal},
    {"+QNWINFO:", take_technology},
    {"+ZPAS:",    take_technology},
    {"+QENG:",    take_serving_cell},
    {"#RFSTS:",   take_rfsts},
    {"+COPS:",    take_operator},
};
// clang-format on

bool may_be_asked(const char* command)
{
    return command != nullptr && text_begins(command, "AT") && !text_has_control(command) &&
           std::strlen(command) < KELO_QUESTION_SIZE;
}

} // namespace

const char* question_next(std::int64_t now_ms)
{
    constexpr int rarest = 64;
    KELO_SELDOM static char command[KELO_QUESTION_SIZE]; // the mobile task's own
    const lock_scope<questions_lock> hold;
    question* const end = all + questions.count;
    // The one that has waited longest, or a slow modem would never come to the last.
    question* const due =
        std::min_element(all, end, [](const question& one, const question& other) {
            return one.due_ms < other.due_ms;
        });
    const bool none = due == end || due->due_ms > now_ms;
    questions.asked = none ? nullptr : due;
    if (none)
        return nullptr;
    due->due_ms =
        now_ms + doubled(questions.pause_ms, rarest * questions.pause_ms, due->unanswered);
    due->unanswered++;
    text_set(command, due->command);
    return command;
}

void questions_forget()
{
    const lock_scope<questions_lock> hold;
    std::for_each_n(all, questions.count, [](question& one) { one.due_ms = one.unanswered = 0; });
    questions.asked = nullptr;
}

event* question_line(gsm_mobile* rec, char* line)
{
    if (text_has(line, "OK"))
        note_answer();
    const auto* const known =
        find_row(figures, [&](const figure& row) { return text_begins(line, row.begin); });
    if (known == nullptr)
        return general_handler(rec, line);
    known->take(rec, line);
    return nullptr;
}

} // namespace kelo

using namespace kelo;

int kelo_set_questions(const char* const* commands, int count, int seconds)
{
    constexpr int longest_pause_s = 86400;
    const bool known = count == 0 || (count > 0 && count <= KELO_QUESTIONS && commands != nullptr &&
                                      seconds >= 1 && seconds <= longest_pause_s &&
                                      std::all_of(commands, commands + count, may_be_asked));
    if (!known) {
        diag_at(plain, __func__, "refused %d questions, every %d s\n", count, seconds);
        return -1;
    }
    const lock_scope<questions_lock> hold;
    questions.asked = nullptr;
    questions.count = count;
    questions.pause_ms = std::int64_t{1000} * seconds;
    for (int i = 0; i < count; i++) {
        all[i] = {};
        text_set(all[i].command, commands[i]);
    }
    return 0;
}
