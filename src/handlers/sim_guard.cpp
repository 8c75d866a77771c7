// SPDX-License-Identifier: MIT
#include "handlers/sim_guard.h"

#include "at/answers.h"
#include "handlers/handlers.h"
#include "support/diag.h"
#include "support/rows.h"
#include "support/scan.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <utility>

namespace kelo
{

namespace
{

constexpr int all_tries = 3; // of a card whose PIN was taken last

struct pin_guard {
    enum { quiet, asking, sending, accepted } dialogue = quiet; // accepted ahead of the OK
    sim_view sim;
    int slot = 0;             // that all of this is known of
    std::size_t question = 0; // the next to ask
    bool barred = false;      // a PIN was refused, or held back for want of tries
    char barred_pin[64] = "";
    char sent_pin[64] = "";
    bool in_doubt = false; // nobody answered it,
    int tries_before = -1; // and so many were left ahead of it
    int tries_least = 3;
};
pin_guard guard;

struct sim_word {
    const char* begin;
    sim_state state;
};

// The first that a line begins with decides. What asks for the PIN2 or the PUK2 asks for nothing
// that a data link needs.
// clang-format off
constexpr sim_word sim_words[] = {
    {"+CPIN: READY",                   sim_state::ready},
    {"+CPIN: SIM PIN2",                sim_state::ready},
    {"+CPIN: SIM PUK2",                sim_state::ready},
    {"+CPIN: SIM PIN",                 sim_state::pin},
    {"+CPIN: SIM PUK",                 sim_state::puk},
    {"+CPIN: NOT READY",               sim_state::missing},
    {"+CPIN: NOT INSERTED",            sim_state::missing},
    {"+CME ERROR: SIM not inserted",   sim_state::missing},
    {"+CME ERROR: SIM PIN required",   sim_state::pin},
    {"+CME ERROR: SIM PUK required",   sim_state::puk},
    {"+CME ERROR: SIM failure",        sim_state::failed},
    {"+CME ERROR: SIM wrong",          sim_state::failed},
    {"+SIM: Removed",                  sim_state::missing},
    {"+SIM DROP",                      sim_state::missing},
    {"^SIMST: 255",                    sim_state::missing},
};
// clang-format on

// 3GPP TS 27.007 9.2.1
constexpr const char* error_head = "+CME ERROR: ";
constexpr int not_allowed = 3;
constexpr int sim_busy = 14;

std::optional<int> error_number(const char* line)
{
    int number = 0;
    if (!text_begins(line, error_head) || !scan(line + std::strlen(error_head), dec(number)))
        return std::nullopt;
    return number;
}

std::optional<sim_state> state_in(const char* line)
{
    const auto* const word =
        find_row(sim_words, [&](const sim_word& row) { return text_begins(line, row.begin); });
    if (word != nullptr)
        return word->state;
    switch (error_number(line).value_or(0)) {
    case 10:
        return sim_state::missing;
    case 11:
        return sim_state::pin;
    case 12:
        return sim_state::puk;
    case 13:
    case 15:
        return sim_state::failed;
    default:
        return std::nullopt;
    }
}

// Another card has tries of its own, and may have the PIN that this one refuses.
void forget_card()
{
    guard.sim.tries = -1;
    guard.sim.refused = guard.barred = guard.in_doubt = false;
    guard.question = 0;
    guard.dialogue = pin_guard::quiet;
}

// Where the tries stand in the answer to each question. The first that is answered counts.
struct tries_question {
    const char* text;
    const char* answer; // how it begins
    bool (*read)(const char* rest, int& tries);
};

bool read_number(const char* rest, int& tries)
{
    return scan(rest, " ", dec(tries));
}

bool read_second(const char* rest, int& tries)
{
    char code[16];
    return scan(rest, " ", until(code, ","), ",", dec(tries)) && text_has(code, "SIM PIN") &&
           !text_has(code, "SIM PIN2");
}

bool read_facility(const char* rest, int& tries)
{
    char facility[8];
    return scan(rest, " ", until(facility, ","), ",", dec(tries)) && text_has(facility, "SC");
}

// The status words of an empty VERIFY, which costs no try: 3GPP TS 31.101 14.6, ETSI TS 102 221
// 11.1.9.
bool read_verify(const char* rest, int& tries)
{
    int length = 0;
    char words[8];
    if (!scan(rest, " ", dec(length), ",", quoted(words)))
        return false;
    if (std::strcmp(words, "6983") == 0) {
        tries = 0;
        return true;
    }
    return scan(words, "63C", hex(tries));
}

// clang-format off
constexpr tries_question questions[] = {
    {"AT+QPINC=\"SC\"",               "+QPINC:", read_facility}, // Quectel
    {"AT+CPINR",                      "+CPINR:", read_second},   // 3GPP TS 27.007 8.65
    {"AT#PCT",                        "#PCT:",   read_number},   // Telit
    {"AT^CPIN?",                      "^CPIN:",  read_second},   // Huawei
    {"AT+CSIM=10,\"0020000100\"",     "+CSIM:",  read_verify},   // any that lets the card be spoken to
};
// clang-format on

// It was right, or it never got there.
void lift_doubt()
{
    if (std::exchange(guard.in_doubt, false))
        guard.sim.refused = guard.barred = false;
}

void take_tries(const char* line)
{
    const tries_question& asked = questions[guard.question - 1];
    int tries = -1;
    if (text_begins(line, asked.answer) && asked.read(line + std::strlen(asked.answer), tries) &&
        tries >= 0) {
        guard.sim.tries = tries;
        if (tries >= (guard.tries_before > 0 ? guard.tries_before : all_tries))
            lift_doubt();
        guard.in_doubt = false;
    }
}

void pin_accepted()
{
    guard.sim = {.state = sim_state::ready, .tries = all_tries};
    guard.barred = false;
    word_set(is_pin_ready, 1);
}

void bar(const char* pin, bool refused)
{
    guard.barred = true;
    guard.sim.refused = refused;
    text_set(guard.barred_pin, pin);
}

void pin_refused()
{
    if (guard.sim.tries > 0)
        guard.sim.tries--;
    bar(guard.sent_pin, true);
    diag_plain("keeper: the SIM has refused the PIN, it is not sent again\n");
}

// The card has to say how many tries are left, or nothing goes. It is asked for as long as it
// takes.
void pin_unanswered()
{
    guard.tries_before = std::exchange(guard.sim.tries, -1);
    guard.question = 0;
    guard.dialogue = pin_guard::quiet;
    bar(guard.sent_pin, true);
    guard.in_doubt = true;
}

void judge_pin(const char* line)
{
    const int error = error_number(line).value_or(-1);
    if (text_has(line, "OK"))
        pin_accepted();
    else if (error == not_allowed || text_has(line, "operation not allowed"))
        guard.sim.state = sim_state::unknown; // it has asked for no PIN
    else if (error != sim_busy && !text_has(line, "SIM busy"))
        pin_refused();
}

bool is_barred(const char* pin)
{
    return guard.barred && std::strcmp(pin, guard.barred_pin) == 0;
}

// Whether so many tries are left that one may be spent on it. A PIN that the host has set since
// another was refused or held back is its word that one may; but never the last.
bool tries_suffice(const char* pin)
{
    constexpr int least_anew = 2;
    const bool anew = guard.barred && !is_barred(pin);
    const int least = anew ? std::min(guard.tries_least, least_anew) : guard.tries_least;
    return guard.sim.tries < 0 || guard.sim.tries >= least;
}

} // namespace

sim_view sim_guard_look()
{
    char pin[64];
    pin_of_slot(word_get(selected_card), pin);
    const lock_scope<record_lock> hold;
    sim_view view = guard.sim;
    view.refused = view.refused && is_barred(pin) && !guard.in_doubt;
    view.may_send =
        view.state == sim_state::pin && *pin != '\0' && !view.refused && tries_suffice(pin);
    return view;
}

void sim_guard_rule(int tries_least)
{
    const lock_scope<record_lock> hold;
    guard.tries_least = tries_least;
    guard.sim.refused = guard.barred = false;
}

void sim_guard_hear(const char* line)
{
    int fun = 0;
    if (text_begins(line, "+CFUN:") && scan(line, "+CFUN: ", dec(fun)) && fun >= 0)
        word_set(radio_answer, fun + 1);
    const std::optional<sim_state> state = state_in(line);
    if (!state)
        return;
    const lock_scope<record_lock> hold;
    if (*state == sim_state::missing)
        forget_card();
    guard.sim.state = *state;
    if (*state == sim_state::ready) {
        lift_doubt();
        if (guard.dialogue == pin_guard::sending) {
            pin_accepted();
            guard.dialogue = pin_guard::accepted; // what ends the command is still to come
        }
        if (word_get(keeper_on) != 0)
            word_set(is_pin_ready, 1);
    } else if (guard.dialogue == pin_guard::sending && text_begins(line, "+CPIN: SIM")) {
        pin_unanswered(); // a question has been, and the OK behind this is its own
    }
    if (*state == sim_state::puk)
        guard.in_doubt = false; // it was the last try
}

pin_step sim_guard_next(char (&text)[64])
{
    char pin[64];
    const int slot = word_get(selected_card);
    pin_of_slot(slot, pin);
    const lock_scope<record_lock> hold;
    if (guard.slot != slot)
        forget_card();
    guard.slot = slot;
    if (guard.dialogue == pin_guard::sending)
        pin_unanswered();
    guard.dialogue = pin_guard::quiet;
    if (guard.sim.state != sim_state::pin)
        return pin_step::pass;
    if (guard.sim.tries < 0 && guard.question < std::size(questions)) {
        text_set(text, questions[guard.question++].text);
        guard.dialogue = pin_guard::asking;
        return pin_step::ask;
    }
    if (guard.in_doubt && is_barred(pin)) { // nothing has told: the next walk asks again
        guard.question = 0;
        return pin_step::pass;
    }
    if (*pin == '\0' || (guard.sim.refused && is_barred(pin)))
        return pin_step::pass;
    if (!tries_suffice(pin)) {
        bar(pin, false);
        diag_plain("keeper: the PIN is held back, the SIM has %d tries left\n", guard.sim.tries);
        return pin_step::pass;
    }
    text_set(text, pin);
    text_set(guard.sent_pin, pin);
    guard.in_doubt = false;
    guard.dialogue = pin_guard::sending;
    return pin_step::send;
}

bool sim_guard_answer(gsm_mobile* rec, const char* line)
{
    const lock_scope<record_lock> hold;
    if (guard.dialogue == pin_guard::quiet)
        return false;
    if (guard.dialogue == pin_guard::asking)
        take_tries(line);
    // What some modules say of a command that they do not have, without a word of error.
    const bool unknown = guard.dialogue == pin_guard::asking && text_has(line, "NOT SUPPORT");
    if (unknown)
        finish_command(rec);
    if (!unknown && (text_begins(line, "AT") || !finish_on_final(rec, line)))
        return true;
    if (guard.dialogue == pin_guard::sending)
        judge_pin(line);
    guard.dialogue = pin_guard::quiet;
    return true;
}

} // namespace kelo
