// SPDX-License-Identifier: MIT
// Commands of the host's, each with its answer: kelo/command.h.
//
// A command and its answer have one place from the call until the host has taken the answer, so
// none is ever lost, and there are never more than the places. The answer begins behind the echo:
// where the modem is known to echo, nothing that comes ahead of it counts, since it may be the late
// end of another command.
#include "at/at.h"
#include "support/diag.h"
#include "support/scan.h"
#include "support/seldom.h"
#include "support/sleeps.h"
#include "support/text.h"
#include "support/wakeup.h"
#include <kelo/command.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace kelo
{

namespace
{

using std::string_view;

constexpr std::int64_t turn_within_ms = 120000;
constexpr char escape[] = "\x1b";    // leaves a prompt,
constexpr char to_command[] = "+++"; // and data mode, behind a second of silence
constexpr int write_attempts = 2;

struct asked_command {
    enum { unused, waiting, running, over } state = unused;
    int number = 0;
    int timeout_s = 0;
    std::int64_t since_ms = 0;
    char *command = nullptr, *lines = nullptr; // its own
    std::size_t length = 0;                    // of the lines
    bool echoed = false, heard = false, cut = false;
    bool data = false;        // a prompt came, or data,
    bool leaves_data = false; // which is to be left at the next tick
    int end = 0, error = 0;
    char last[sizeof kelo_answer::last] = "";
};

// A leaf: nothing is taken under it. It guards all that follows, but for `echoes`.
lock ask_lock;
KELO_SELDOM asked_command places[KELO_ASKS];
int last_number = 0;
bool open = false; // a task runs that will send them

bool echoes = false; // the modem repeats commands; the mobile task's

asked_command* find(auto state)
{
    asked_command* found = nullptr;
    for (asked_command& one : places)
        if (one.state == state && (found == nullptr || one.number < found->number))
            found = &one;
    return found;
}

void end_with(asked_command& one, int end, string_view last = {})
{
    one.state = asked_command::over;
    one.end = end;
    const std::size_t length = std::min(last.size(), sizeof one.last - 1);
    std::copy_n(last.data(), length, one.last);
    one.last[length] = '\0';
    text_replace(one.command, {});
    word_set(modem_at_work, 0);
    wake_host();
}

void end_running()
{
    asked_command* const one = find(asked_command::running);
    if (one == nullptr)
        return;
    if (!one->echoed)
        echoes = false; // or it has not heard the command
    end_with(*one, one->data ? KELO_ASK_DATA : KELO_ASK_TIMED_OUT);
}

void add_line(asked_command& one, string_view line)
{
    const std::size_t needed = line.size() + (one.length > 0 ? 1 : 0);
    if (one.cut || needed > KELO_ANSWER_LONGEST - one.length) {
        one.cut = true;
        return;
    }
    char* const text = one.lines;
    if (one.length > 0)
        text[one.length++] = '\n';
    std::copy_n(line.data(), line.size(), text + one.length);
    one.length += line.size();
    text[one.length] = '\0';
}

int final_of(const char* line)
{
    constexpr struct {
        const char* text;
        bool whole;
        int end;
    } finals[] = {{"OK", true, KELO_ASK_OK},
                  {"ERROR", true, KELO_ASK_ERROR},
                  {"+CME ERROR:", false, KELO_ASK_CME_ERROR},
                  {"+CMS ERROR:", false, KELO_ASK_CMS_ERROR}};
    for (const auto& [text, whole, end] : finals)
        if (whole ? std::strcmp(line, text) == 0 : text_begins(line, text))
            return end;
    return 0;
}

// "+CME ERROR: 10"; -1 for words.
int number_behind_colon(const char* line)
{
    const char* at = std::strchr(line, ':') + 1;
    at += std::strspn(at, " ");
    const std::size_t digits = std::strspn(at, "0123456789");
    int number = -1;
    return digits < 7 && at[digits] == '\0' && scan(at, dec(number)) ? number : -1;
}

// ---- What may go out

// Commands that draw a prompt or data, or whose answer is a text of others, which could speak for
// the modem; but for their test and read forms.
constexpr char unfit[] =
    "+CGDATA +CMGC +CMGL +CMGR +CMGS +CMGW +CMUX +CNMA +QCMGR +QCMGS +QFDWL +QFREAD +QFTPGET "
    "+QFTPPUT +QFUPL +QFWRITE +QHTTPGET +QHTTPPOST +QHTTPPUT +QHTTPREAD +QHTTPURL +QIOPEN +QIRD "
    "+QISEND +QISWTMD +QMTPUB +QMTPUBEX +QMTRECV +QSMTPBODY +QSSLOPEN +QSSLRECV +QSSLSEND ";

bool is_unfit(string_view name)
{
    for (const char* at = unfit; *at != '\0'; at += std::strcspn(at, " ") + 1)
        if (name == string_view(at, std::strcspn(at, " ")))
            return true;
    return false;
}

// One command of a line, in capitals, without its "AT", blanks and quoted texts.
bool is_fit(string_view command)
{
    constexpr string_view extended = "+^$#%*";
    if (command.empty() || command == "&V")
        return true;
    if (command.front() == 'I')
        return command.find_first_not_of("0123456789", 1) == string_view::npos;
    if (extended.find(command.front()) == string_view::npos)
        return false;
    const std::size_t name_end = std::min(command.find_first_of("=?"), command.size());
    const string_view name(command.data(), name_end);
    const string_view rest(command.data() + name_end, command.size() - name_end);
    return !is_unfit(name) || rest == "?" || rest == "=?";
}

int fault_of(const char* command)
{
    char bare[KELO_COMMAND_LONGEST + 1];
    std::size_t length = 0;
    bool quoted = false;
    for (const char* at = command; *at != '\0'; at++) {
        if (at - command >= KELO_COMMAND_LONGEST || *at < ' ' || *at > '~')
            return KELO_ASK_NO_COMMAND;
        if (*at == '"')
            quoted = !quoted;
        else if (!quoted && *at != ' ')
            bare[length++] = static_cast<char>(*at >= 'a' && *at <= 'z' ? *at - 'a' + 'A' : *at);
    }
    string_view rest(bare, length);
    if (quoted || !rest.starts_with("AT") || *command == ' ')
        return KELO_ASK_NO_COMMAND;
    rest.remove_prefix(2);
    for (;;) {
        const std::size_t end = std::min(rest.find(';'), rest.size());
        if (!is_fit({rest.data(), end}))
            return KELO_ASK_UNFIT;
        if (end == rest.size())
            return 0;
        rest.remove_prefix(end + 1);
    }
}

} // namespace

void ask_task_begins()
{
    const lock_scope<ask_lock> hold;
    open = true;
    echoes = false;
}

void ask_task_ends()
{
    const lock_scope<ask_lock> hold;
    open = false;
    for (asked_command& one : places)
        if (one.state == asked_command::waiting || one.state == asked_command::running)
            end_with(one, KELO_ASK_PORT_LOST);
}

void ask_look_at_clock(std::int64_t now_ms)
{
    const lock_scope<ask_lock> hold;
    for (asked_command& one : places)
        if (one.state == asked_command::waiting && now_ms - one.since_ms >= turn_within_ms)
            end_with(one, KELO_ASK_NOT_SENT);
}

void ask_over()
{
    const lock_scope<ask_lock> hold;
    end_running();
}

const char* ask_next(int& timeout_s)
{
    const lock_scope<ask_lock> hold;
    asked_command* const next = find(asked_command::waiting);
    if (next == nullptr)
        return nullptr;
    next->state = asked_command::running;
    timeout_s = next->timeout_s;
    return next->command; // nobody else ends what runs
}

bool ask_hear(const char* line)
{
    const lock_scope<ask_lock> hold;
    echoes |= text_begins(line, "AT+");
    asked_command* const one = find(asked_command::running);
    if (one == nullptr)
        return false;
    if (!one->echoed && std::strcmp(line, one->command) == 0) {
        one->echoed = true;
        one->length = 0;
        one->lines[0] = '\0';
        one->cut = false;
        word_set(modem_at_work, 1);
        return false;
    }
    if (echoes && !one->echoed)
        return false;
    if (const int end = final_of(line); end != 0) {
        if (end == KELO_ASK_CME_ERROR || end == KELO_ASK_CMS_ERROR)
            one->error = number_behind_colon(line);
        end_with(*one, one->data ? KELO_ASK_DATA : end, line);
        return true;
    }
    one->leaves_data |= text_begins(line, "CONNECT");
    one->data |= one->leaves_data;
    add_line(*one, line);
    return false;
}

void ask_line_is_lost()
{
    const lock_scope<ask_lock> hold;
    if (asked_command* const one = find(asked_command::running); one != nullptr)
        one->cut = true;
}

void ask_watch_prompt(gsm_mobile* rec, const char* line)
{
    line += std::strspn(line, "\r");
    if (line[0] != '>' || (line[1] != '\0' && std::strcmp(line, "> ") != 0))
        return;
    lock_scope<ask_lock> hold;
    asked_command* const one = find(asked_command::running);
    if (one == nullptr)
        return;
    one->data = true;
    hold.release();
    port_write(rec, escape, 1, write_attempts, __func__, "<ESC>");
}

void ask_tick(gsm_mobile* rec)
{
    lock_scope<ask_lock> hold;
    asked_command* const one = find(asked_command::running);
    if (one == nullptr || !std::exchange(one->leaves_data, false))
        return;
    hold.release();
    port_write(rec, to_command, sizeof to_command - 1, write_attempts, __func__, to_command);
}

} // namespace kelo

using namespace kelo;

int kelo_ask(const char* command, unsigned int timeout_s)
{
    if (refused_in_fork(__func__))
        return KELO_ASK_STOPPED;
    if (command == nullptr || timeout_s > KELO_ASK_MOST_TIME)
        return KELO_ASK_NO_COMMAND;
    if (const int fault = fault_of(command); fault != 0)
        return fault;
    text_pointer text = text_duplicate(command), lines = text_room(KELO_ANSWER_LONGEST);
    if (text == nullptr || lines == nullptr)
        return KELO_ASK_NO_MEMORY;
    const std::int64_t now_ms = monotonic_ms();
    const lock_scope<ask_lock> hold;
    if (!open)
        return KELO_ASK_STOPPED;
    asked_command* const one = find(asked_command::unused);
    if (one == nullptr)
        return KELO_ASK_FULL;
    last_number = last_number == INT_MAX ? 1 : last_number + 1;
    *one = {.state = asked_command::waiting,
            .number = last_number,
            .timeout_s = static_cast<int>(timeout_s == 0 ? KELO_ASK_TIME : timeout_s),
            .since_ms = now_ms,
            .command = text.release(),
            .lines = lines.release(),
            .error = -1};
    return one->number;
}

int kelo_take_answer(struct kelo_answer* answer, size_t size, char* text, size_t text_size)
{
    if (answer == nullptr || text == nullptr)
        return 0;
    const lock_scope<ask_lock> hold;
    asked_command* const one = find(asked_command::over);
    if (one == nullptr)
        return 0;
    kelo_answer whole = {.size = sizeof whole,
                         .number = one->number,
                         .end = one->end,
                         .error_number = one->error,
                         .cut = one->cut,
                         .length = static_cast<int>(one->length),
                         .last = ""};
    text_set(whole.last, one->last);
    std::memcpy(answer, &whole, std::min(size, sizeof whole));
    if (text_size <= one->length)
        return -1;
    std::memcpy(text, one->lines, one->length + 1);
    text_replace(one->lines, {});
    *one = {};
    return 1;
}

const char* kelo_ask_fault_text(int fault)
{
    switch (fault) {
    case KELO_ASK_NO_COMMAND:
        return "it is no AT command of one line in printable ASCII";
    case KELO_ASK_UNFIT:
        return "a command that draws a prompt, data or texts of others, or changes the form of "
               "answers, can't be sent this way";
    case KELO_ASK_FULL:
        return "too many commands wait";
    case KELO_ASK_STOPPED:
        return "no modem task runs";
    case KELO_ASK_NO_MEMORY:
        return "no memory";
    default:
        return "?";
    }
}

const char* kelo_ask_end_name(int end)
{
    static constexpr const char* names[] = {"ok",   "error",     "CME error", "CMS error",
                                            "data", "timed out", "not sent",  "port lost"};
    return end >= KELO_ASK_OK && end <= KELO_ASK_PORT_LOST ? names[end - KELO_ASK_OK] : "?";
}
