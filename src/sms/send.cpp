// The last step of sending a message: the body behind the modem's "> " prompt, and the result.
// 3GPP TS 27.005 3.5.1 and 4.3 (AT+CMGS).
#include "sms/sms.h"

#include "at/gsm_at.h"
#include "support/text.h"

#include <cstdlib>

namespace kelo
{

namespace
{

constexpr char body_end[] = "\x1a\r\n"; // Ctrl-Z ends the message for the modem
constexpr int write_attempts = 4;
constexpr long port_closed = -2; // what port_write says of it

void answer_prompt(gsm_mobile* rec)
{
    char text[sizeof rec->sms_text];
    lock_scope hold(record_lock);
    text_set(text, rec->sms_text);
    hold.release();
    write_sms_msg(rec, text);
}

} // namespace

event* sms_send_handler(gsm_mobile* rec, char* line)
{
    if (rec == nullptr || line == nullptr)
        return nullptr;
    lock_scope hold(record_lock);
    if (text_has(line, "OK")) {
        // One ahead of the prompt belongs to something else and does not end the step.
        if (rec->reg_seen != 0)
            rec->at_done = 1;
        return nullptr;
    }
    if (text_has(line, "+CMGS:")) {
        rec->reg_seen = 1;
        return raise_event(GSM_EVENT_SMS_SEND_OK);
    }
    if (text_has(line, "+CMS ERROR")) {
        rec->at_done = 1;
        return raise_event(GSM_EVENT_SMS_SEND_FAILED);
    }
    hold.release();
    if (text_has(line, "> "))
        answer_prompt(rec);
    return nullptr;
}

int write_sms_msg(gsm_mobile* rec, const char* text)
{
    if (rec == nullptr || text == nullptr)
        return -1;
    const std::size_t length = std::strlen(text);
    auto* const bytes = static_cast<char*>(std::malloc(length + sizeof body_end));
    if (bytes == nullptr)
        return -1;
    std::memcpy(bytes, text, length);
    std::memcpy(bytes + length, body_end, sizeof body_end);
    const long written =
        port_write(rec, bytes, length + sizeof body_end - 1, write_attempts, __func__, text);
    std::free(bytes);
    return written == port_closed ? -1 : 0;
}

} // namespace kelo
