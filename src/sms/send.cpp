// The last step of sending a message: the body behind the modem's "> " prompt, and the result.
// 3GPP TS 27.005 3.5.1 and 4.3 (AT+CMGS).
//
// A body goes out once for each command that draws a prompt. The step that waits for the prompt can
// be over before it comes, ended by a late answer to the message before or by its own second of
// silence; the prompt then gets the body all the same, whatever runs, until the next message
// begins.
#include "sms/sms.h"

#include "at/answers.h"
#include "at/at.h"
#include "support/sleeps.h"
#include "support/text.h"

namespace kelo
{

namespace
{

constexpr char body_end[] = "\x1a\r\n"; // Ctrl-Z ends the message for the modem
constexpr char give_up[] = "\x1b";      // Escape ends the modem's wait for a message
constexpr int write_attempts = 4;
constexpr long port_closed = -2; // what port_write says of it

// A prompt this late is not the answer to our command any more.
constexpr std::int64_t prompt_limit_ms = 120000;

// What others write between the command and its body becomes part of the message: they wait this
// long, which is the time that the step itself has.
constexpr int body_wait_ms = 1000;

// The message that waits for its prompt, or went out last; guarded by record_lock.
struct sending {
    bool due = false;
    std::int64_t begun_ms = 0;
    int echoed_prompts = 0; // prompts still to come that its lines draw, or its echo shows
    char body[sizeof(gsm_mobile::sms_text)] = {};
};
sending current;

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
    const bool due = current.due && monotonic_ms() - current.begun_ms < prompt_limit_ms;
    if (due && (own_step ? text_has(line, "> ") : text_begins(line, "> ")))
        return answer::body;
    if (std::strcmp(line, "> ") != 0)
        return answer::none;
    if (current.echoed_prompts > 0) {
        current.echoed_prompts--;
        return answer::none;
    }
    return answer::escape;
}

void answer_prompt(gsm_mobile* rec, const char* line, bool own_step)
{
    char body[sizeof current.body];
    lock_scope hold(record_lock);
    const answer what = answer_to(line, own_step);
    if (what == answer::body) {
        current.due = false;
        current.echoed_prompts = prompts_in(current.body);
        text_set(body, current.body);
    }
    hold.release();
    if (what == answer::body)
        write_sms_msg(rec, body);
    else if (what == answer::escape)
        // Nothing is due: without this, the modem would take the next commands for a text.
        port_write(rec, give_up, 1, write_attempts, __func__, "<ESC>");
}

} // namespace

void sms_send_begins(gsm_mobile* rec)
{
    const lock_scope hold(record_lock);
    current.due = true;
    current.begun_ms = monotonic_ms();
    current.echoed_prompts = 0;
    text_set(current.body, rec->sms_text);
}

void sms_let_body_pass()
{
    constexpr int look_ms = 20;
    for (int waited = 0; waited < body_wait_ms; waited += look_ms) {
        {
            const lock_scope hold(record_lock);
            if (!current.due || monotonic_ms() - current.begun_ms >= body_wait_ms)
                return;
        }
        microseconds_sleep(look_ms * 1000);
    }
}

void sms_watch_prompt(gsm_mobile* rec, const char* line)
{
    if (text_has(line, "> "))
        answer_prompt(rec, line, false);
}

event* sms_send_handler(gsm_mobile* rec, char* line)
{
    lock_scope hold(record_lock);
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
    if (rec == nullptr || text == nullptr)
        return -1;
    char bytes[sizeof current.body + sizeof body_end];
    const std::size_t length = std::strlen(text);
    if (length >= sizeof current.body)
        return -1;
    std::memcpy(bytes, text, length);
    std::memcpy(bytes + length, body_end, sizeof body_end);
    const long written =
        port_write(rec, bytes, length + sizeof body_end - 1, write_attempts, __func__, text);
    return written == port_closed ? -1 : 0;
}

} // namespace kelo
