// Reads of the port that hold a report of a message: they are taken whole, ahead of the line by
// line way of everything else.
#include "sms/sms.h"

#include "at/at.h"
#include "core/family.h"
#include "support/sleeps.h"
#include "support/text.h"

namespace kelo
{

// NUL bytes are line noise, and would hide what stands behind them. In the body of a message in
// text mode they are text: "@" is 0 in the GSM alphabet.
void sms_clean_read(char* text, std::size_t length)
{
    bool in_message = std::memchr(text, '\0', length) != nullptr && sms_text_follows({}, true);
    std::size_t kept = 0;
    std::size_t line = 0;
    for (std::size_t i = 0; i < length; i++) {
        if (text[i] != '\0')
            text[kept++] = text[i];
        else if (in_message)
            text[kept++] = '@';
        if (text[i] == '\n') {
            in_message = in_message || sms_text_follows({text + line, kept - line}, line == 0);
            line = kept;
        }
    }
    text[kept] = '\0';
    sms_continue_report(text, monotonic_ms());
}

char* sms_find_report(char* text)
{
    char* const report = find_spoken(text, "+CMT:");
    return report != nullptr ? report : find_spoken(text, "+CMTI:");
}

event* sms_take_read(gsm_mobile* rec, char* text, char* report)
{
    // Looked for ahead of the parser, which cuts the text.
    const bool acknowledge = text_has(text, "+CMT");
    cellular_set_sms_received(1);
    event* const raised = sms_check_read(rec, report);
    // The other lines of the read go by, but the modem waits behind its prompt, which is the last
    // line of the read or stands ahead of the report.
    const char* const last_end = std::strrchr(text, '\n');
    if (last_end != nullptr)
        sms_watch_prompt(rec, last_end + 1);
    report[0] = '\0';
    for (char *rest = nullptr, *line = strtok_r(text, "\r\n", &rest); line != nullptr;
         line = strtok_r(nullptr, "\r\n", &rest))
        sms_watch_prompt(rec, line);
    if (acknowledge && acknowledges_sms())
        libgsm_send_at("AT+CNMA");
    return raised;
}

} // namespace kelo
