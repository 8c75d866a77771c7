// SPDX-License-Identifier: MIT
// The last step of sending a message: the body behind the modem's "> " prompt, and the answer.
// 3GPP TS 27.005 3.5.1 and 4.3 (AT+CMGS).
//
// A part is in hand from the outbox until its body is out. From its command to its prompt the body
// is due, and nothing else is written: it would become part of the message. The step that waits for
// the prompt can be over before it comes, ended by a late answer to the message before or by its
// own second of silence; the prompt then gets the body all the same, whatever runs. With its body
// out a part waits for its answer. A modem answers in order, so the first that waits has the next
// answer, whatever runs.
#include "sms/sms.h"

#include "at/answers.h"
#include "at/at.h"
#include "support/diag.h"
#include "support/scan.h"
#include "support/seldom.h"
#include "support/sleeps.h"
#include "support/text.h"

namespace kelo
{

namespace
{

constexpr char body_end[] = "\x1a\r\n"; // Ctrl-Z ends the message for the modem
constexpr char give_up[] = "\x1b";      // Escape ends the modem's wait for a message
constexpr int write_attempts = 4;

constexpr std::int64_t prompt_limit_ms = 30000;  // a modem that is busy may have it so late
constexpr std::int64_t answer_limit_ms = 120000; // the longest that a network takes
constexpr std::int64_t late_limit_ms = 120000;   // a prompt after this is nobody's
constexpr int most_tries = 10;
constexpr unsigned most_unanswered = 16;

// A body that is out, and whose it is.
struct unanswered_part {
    sms_job* job = nullptr;
    int part = 0;
    std::int64_t since_ms = 0;
};

// Guarded by record_lock, but for body_due.
struct way_out {
    sms_part* in_hand = nullptr;
    std::int64_t begun_ms = 0;
    int echoed_prompts = 0;    // prompts still to come that its lines draw, or its echo shows
    bool text_mode = false;    // the modem was left in it
    bool last_command = false; // of the task's was one that sends a message

    unsigned first = 0, count = 0; // of unanswered

    int late_prompts = 0; // of our commands, may still come though their bodies are not due
    std::int64_t late_until_ms = 0;
};
way_out out;
KELO_SELDOM char due_body[sizeof(gsm_mobile::sms_text)]; // or went out last
KELO_SELDOM unanswered_part unanswered[most_unanswered];

enum class answer { none, body, escape };

// A modem prints a prompt inside a body for each of its line ends, and echoes lines that look like
// one.
int prompts_in(const char* body)
{
    int count = 0;
    for (const char* at = body; *at != '\0'; at++)
        if (*at == '\r' || *at == '\n' || (at[0] == '>' && at[1] == ' '))
            count++;
    return count;
}

// Caller holds record_lock.
answer answer_to(const char* line, bool own_step)
{
    line += std::strspn(line, "\r");
    if (word_get(body_due) != 0 && (own_step ? text_has(line, "> ") : text_begins(line, "> ")))
        return answer::body;
    if (std::strcmp(line, "> ") != 0)
        return answer::none;
    if (out.echoed_prompts > 0) {
        out.echoed_prompts--;
        return answer::none;
    }
    // Any other prompt is for a command of the host's, which gives its own text.
    if (out.late_prompts == 0 || monotonic_ms() >= out.late_until_ms)
        return answer::none;
    out.late_prompts--;
    return answer::escape;
}

// What ends a part, for use without record_lock.
struct part_end {
    sms_part* part = nullptr; // it was in hand, or
    sms_job* job = nullptr;   // its body was out
    int number = 0;
};

// True when the fate of the whole message is known with it.
bool finish(const part_end& end, part_fate fate, sms_error error = {})
{
    sms_job* const job = end.part != nullptr ? end.part->job : end.job;
    if (job == nullptr)
        return false;
    // The rest of a message that is lost costs money and shows as rubbish.
    if (fate != part_fate::confirmed && fate != part_fate::unknown &&
        sms_job_wishes(job).number != 0)
        sms_outbox_drop(job);
    if (end.part != nullptr)
        return sms_part_ends(end.part, fate, error);
    return sms_job_part_ends(job, end.number, fate, error);
}

// Caller holds record_lock.
part_end take_unanswered()
{
    const unanswered_part first = unanswered[out.first];
    out.first = (out.first + 1) % most_unanswered;
    out.count--;
    return {nullptr, first.job, first.part};
}

// Takes what is in hand; nothing is due any more. Caller holds record_lock.
part_end take_in_hand()
{
    word_set(body_due, 0);
    return {std::exchange(out.in_hand, nullptr)};
}

// The prompt of a command that went out may still come. Caller holds record_lock.
void expect_late_prompt()
{
    out.late_prompts++;
    out.late_until_ms = monotonic_ms() + late_limit_ms;
}

// A part whose body is not out has its turn again, or has had enough of them.
void put_back(const part_end& end, bool counts)
{
    if (end.part == nullptr)
        return;
    end.part->tries += counts;
    if (end.part->tries < most_tries)
        return sms_outbox_return(end.part);
    if (finish(end, part_fate::not_written))
        diag_plain("a message is given up: the modem does not ask for it\n");
}

// From here on nobody knows whether the network has the part, until it answers.
void body_is_out()
{
    part_end too_many;
    sms_part* done = nullptr;
    {
        const lock_scope<record_lock> hold;
        if (out.in_hand == nullptr)
            return;
        if (out.count == most_unanswered)
            too_many = take_unanswered();
        done = take_in_hand().part;
        out.text_mode = done->sms_mode == 1;
        unanswered[(out.first + out.count++) % most_unanswered] = {done->job, done->number,
                                                                   monotonic_ms()};
    }
    done->job = nullptr; // goes on without it
    sms_part_ends(done, part_fate::unknown);
    finish(too_many, part_fate::unknown);
}

// False when not all of it went out.
bool write_whole(gsm_mobile* rec, const char* text)
{
    char bytes[sizeof due_body + sizeof body_end];
    const std::size_t length = std::strlen(text);
    if (length >= sizeof due_body)
        return false;
    std::memcpy(bytes, text, length);
    std::memcpy(bytes + length, body_end, sizeof body_end);
    const std::size_t all = length + sizeof body_end - 1;
    for (std::size_t done = 0; done < all;) {
        const long written = port_write(rec, bytes + done, all - done, write_attempts,
                                        "write_sms_msg", text + std::min(done, length));
        if (written <= 0)
            return false;
        done += static_cast<std::size_t>(written);
    }
    return true;
}

void write_body(gsm_mobile* rec)
{
    char body[sizeof due_body];
    sms_part* part = nullptr;
    {
        const lock_scope<record_lock> hold;
        text_set(body, due_body);
        part = out.in_hand;
    }
    if (part != nullptr) {
        const sms_job_wish& wish = sms_job_wishes(part->job);
        if (wish.going_out != nullptr)
            wish.going_out(wish.number, part->number, wish.context);
    }
    if (write_whole(rec, body)) {
        body_is_out();
    } else {
        // Without its Ctrl-Z the modem sends nothing of it.
        port_write(rec, give_up, 1, write_attempts, __func__, "<ESC>");
        lock_scope<record_lock> hold;
        const part_end end = take_in_hand();
        hold.release();
        put_back(end, true);
    }
    word_set(body_due, 0);
}

void answer_prompt(gsm_mobile* rec, const char* line, bool own_step)
{
    lock_scope<record_lock> hold;
    const answer what = answer_to(line, own_step);
    if (what == answer::body)
        out.echoed_prompts = prompts_in(due_body);
    hold.release();
    if (what == answer::body)
        write_body(rec);
    else if (what == answer::escape)
        // Nothing is due: without this, the modem would take the next commands for a text.
        port_write(rec, give_up, 1, write_attempts, __func__, "<ESC>");
}

} // namespace

sms_part* sms_send_next(std::int64_t now_ms)
{
    sms_look_at_clock(now_ms);
    if (word_get(body_due) != 0)
        return nullptr;
    lock_scope<record_lock> hold;
    const part_end passed = take_in_hand();
    const bool answered = out.count == 0;
    hold.release();
    if (finish(passed, part_fate::refused))
        diag_plain("a message is refused: this module's flow has no commands for it\n");
    sms_part* const part = sms_outbox_take(answered);
    const lock_scope<record_lock> take;
    return out.in_hand = part;
}

void sms_send_begins(gsm_mobile* rec)
{
    const lock_scope<record_lock> hold;
    out.begun_ms = monotonic_ms();
    out.echoed_prompts = 0;
    out.last_command = true;
    text_set(due_body, rec->sms_text);
    word_set(body_due, 1);
}

void sms_send_interrupted()
{
    if (word_get(body_due) != 0)
        return; // the flow waits for its prompt
    lock_scope<record_lock> hold;
    const part_end end = take_in_hand();
    hold.release();
    put_back(end, false);
}

void sms_port_lost()
{
    part_end ends[most_unanswered];
    unsigned count = 0;
    lock_scope<record_lock> hold;
    while (out.count > 0)
        ends[count++] = take_unanswered();
    const part_end in_hand = take_in_hand();
    out.late_prompts = 0;
    out.text_mode = false;
    hold.release();
    for (unsigned i = 0; i < count; i++)
        finish(ends[i], part_fate::unknown);
    put_back(in_hand, false);
}

// A process before may have ended between a command and its body.
void sms_port_fresh(gsm_mobile* rec)
{
    sms_port_lost();
    lock_scope<record_lock> hold;
    expect_late_prompt();
    hold.release();
    // Not every modem shows its prompt again. One that waits for none passes this over.
    if (word_get(keeper_on) != 0)
        port_write(rec, give_up, 1, 1, __func__, "<ESC>");
}

void sms_look_at_clock(std::int64_t now_ms)
{
    for (;;) {
        lock_scope<record_lock> hold;
        part_end end;
        if (word_get(body_due) != 0 && now_ms - out.begun_ms >= prompt_limit_ms) {
            end = take_in_hand();
            expect_late_prompt();
            hold.release();
            put_back(end, true);
        } else if (out.count > 0 && now_ms - unanswered[out.first].since_ms >= answer_limit_ms) {
            end = take_unanswered();
            hold.release();
            finish(end, part_fate::unknown);
        } else {
            return;
        }
    }
}

bool sms_sending()
{
    const lock_scope<record_lock> hold;
    return out.in_hand != nullptr || out.count > 0;
}

const char* sms_mode_to_restore()
{
    const lock_scope<record_lock> hold;
    if (out.in_hand != nullptr || out.count > 0 || !out.text_mode)
        return nullptr;
    out.text_mode = false;
    return "AT+CMGF=0";
}

namespace
{

// What a line answers: a part whose body is out, or that the modem has not asked for.
struct read_answer {
    bool confirmed = false;
    sms_error error;
};

// `alone`: no other command has gone out since, which any error could be the answer to.
std::optional<read_answer> read_answer_of(const char* line, bool alone)
{
    int number = -1;
    if (text_begins(line, "+CMGS:")) {
        scan(line, "+CMGS:", dec(number));
        return read_answer{true, {KELO_SMS_NO_ERROR, number}};
    }
    if (text_begins(line, "+CMS ERROR")) {
        scan(line, "+CMS ERROR:", dec(number));
        return read_answer{false, {KELO_SMS_CMS_ERROR, number}};
    }
    if (alone && text_begins(line, "+CME ERROR")) {
        scan(line, "+CME ERROR:", dec(number));
        return read_answer{false, {KELO_SMS_CME_ERROR, number}};
    }
    if (alone && std::strcmp(line, "ERROR") == 0)
        return read_answer{false, {KELO_SMS_ERROR, -1}};
    return std::nullopt;
}

} // namespace

void sms_command_goes_out()
{
    sms_errand_interrupted();
    const lock_scope<record_lock> hold;
    out.last_command = false;
}

void sms_watch_answer(const char* line)
{
    if (!read_answer_of(line, true))
        return; // nearly every line: no lock is taken for it
    lock_scope<record_lock> hold;
    const auto read = read_answer_of(line, out.last_command);
    if (!read)
        return;
    part_end end;
    if (out.count > 0)
        end = take_unanswered();
    else if (!read->confirmed && word_get(body_due) != 0)
        end = take_in_hand();
    hold.release();
    finish(end, read->confirmed ? part_fate::confirmed : part_fate::failed, read->error);
}

void sms_watch_prompt(gsm_mobile* rec, const char* line)
{
    if (text_has(line, "> "))
        answer_prompt(rec, line, false);
}

event* sms_send_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> hold;
    // An "OK" ahead of the prompt belongs to something else and does not end the step.
    if (finish_on_ok(rec, line, answer_seen(rec)))
        return nullptr;
    if (text_has(line, "+CMGS:")) {
        rec->reg_seen = 1;
        return raise_event(GSM_EVENT_SMS_SEND_OK);
    }
    if (text_has(line, "+CMS ERROR")) {
        finish_command(rec);
        return raise_event(GSM_EVENT_SMS_SEND_FAILED);
    }
    hold.release();
    if (text_has(line, "> "))
        answer_prompt(rec, line, true);
    return nullptr;
}

int write_sms_msg(gsm_mobile* rec, const char* text)
{
    if (rec == nullptr || text == nullptr || std::strlen(text) >= sizeof due_body)
        return -1;
    return write_whole(rec, text) || port_descriptor(rec) != -1 ? 0 : -1;
}

} // namespace kelo
