// Reads of the port: what they hold of reports is taken ahead of the line by line way of everything
// else.
#include "sms/report_lines.h"

#include "core/family.h"
#include "support/text.h"

namespace kelo
{

namespace
{

constinit report_lines lines(sms_report_is_whole); // of the port; the mobile task's own

} // namespace

read_view sms_each_read(char* bytes, std::size_t length)
{
    return lines.read(bytes, length);
}

void sms_quiet_second()
{
    lines.quiet_second();
}

void sms_reads_end()
{
    lines.end();
}

event* sms_take_read(gsm_mobile* rec, char* text, char* report)
{
    cellular_set_sms_received(1);
    event* const raised = sms_report_event(rec, report);
    // The other lines of the read go by, but the modem waits behind its prompt, which is the last
    // line of the read or stands ahead of the report.
    const char* const last_end = std::strrchr(text, '\n');
    if (last_end != nullptr)
        sms_watch_prompt(rec, last_end + 1);
    report[0] = '\0';
    for (char *rest = nullptr, *line = strtok_r(text, "\r\n", &rest); line != nullptr;
         line = strtok_r(nullptr, "\r\n", &rest))
        sms_watch_prompt(rec, line);
    if (acknowledges_sms())
        libgsm_send_at("AT+CNMA");
    return raised;
}

} // namespace kelo
