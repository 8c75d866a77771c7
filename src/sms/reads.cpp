// SPDX-License-Identifier: MIT
// Reads of the port: what they hold of reports is taken ahead of the line by line way of everything
// else.
#include "sms/storage.h"

#include "at/answers.h"
#include "at/at.h"
#include "core/family.h"
#include "support/text.h"

#include <algorithm>

namespace kelo
{

namespace
{

// Of the port; the mobile task's own.
char room_of_reports[report_lines::room];
constinit report_lines lines(room_of_reports, sms_report_is_whole, sms_own_piece);

constexpr std::size_t longest_line = 2048;

// A line of the modem's own that its reads have cut, and its end.
made<char, longest_line + 1> begun;
bool too_long = false;

void hear_begun()
{
    const std::string_view line = storage::trimmed({begun.items, begun.count - 1});
    char* const text = begun.items + (line.data() - begun.items);
    text[line.size()] = '\0';
    if (line.empty() || is_foreign(text))
        return;
    sms_watch_answer(text);
    if (ask_hear(text)) {
        const lock_scope<record_lock> guard;
        finish_command(&g_mobile);
    }
    sms_storage_line(&g_mobile, text);
}

} // namespace

void sms_own_piece(std::string_view rest)
{
    while (!rest.empty()) {
        // What the modem repeats of a command ends with a CR, and the next may stand behind it.
        const std::size_t end = rest.find_first_of("\r\n");
        const std::string_view piece = ahead(rest, end);
        too_long |= !begun.add({piece.data(), piece.size()});
        if (end == std::string_view::npos)
            return;
        if (std::exchange(too_long, false) || !begun.add('\0'))
            ask_line_is_lost();
        else
            hear_begun();
        begun.count = 0;
        rest = behind(rest, end + 1);
    }
}

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
    begun.count = 0;
    too_long = false;
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
