// SPDX-License-Identifier: MIT
// A modem writes a report in pieces, and a read can end between any two bytes of it. The lines are
// gathered here until the report is whole.
//
// A PDU is one line, and a text whose length the header announces is known to its last byte. Where
// it is not, nobody can tell with certainty where the text ends and the modem speaks again. Such a
// text ends ahead of a mark, of an echo, of a blank line with a word of the modem behind it, and
// with the first silent second. And since its sender can write all of these, no line behind it in
// the same read reaches a handler.
#include "sms/report_lines.h"

#include "support/diag.h"
#include "support/scan.h"

#include <algorithm>

namespace kelo
{

namespace
{

using std::string_view;

constexpr int longest_wait_s = 3; // for what a read broke off

// clang-format off
constexpr report_mark marks[] = {
    {"+CMT:",                report_kind::message,  true},
    {"+CDS:",                report_kind::delivery, true},
    {"+CMTI:",               report_kind::notice,   true},
    {"+CDSI:",               report_kind::notice,   true},
    // A full memory, by Quectel, Huawei, Telit and twice SIMCom.
    {"+QIND: \"smsfull\"",   report_kind::notice,   false},
    {"^SMMEMFULL:",          report_kind::notice,   false},
    {"#SMOV:",               report_kind::notice,   false},
    {"+SMS FULL",            report_kind::notice,   false},
    {"+CIEV: \"SMSFULL\"",   report_kind::notice,   false},
};
// clang-format on
constexpr const report_mark* message_mark = &marks[0];
constexpr const report_mark* stored_mark = &marks[2];

const report_mark* mark_of(string_view line)
{
    const auto* const found = std::ranges::find_if(
        marks, [&](const report_mark& mark) { return line.starts_with(mark.text); });
    return found != std::end(marks) ? found : nullptr;
}

// The head of a mark, with more of it to come.
bool begins_mark(string_view piece, bool one_that_ends_texts)
{
    return std::ranges::any_of(marks, [&](const report_mark& mark) {
        return (mark.ends_text || !one_that_ends_texts) && mark.text.starts_with(piece);
    });
}

string_view without_line_end(string_view text)
{
    if (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
    if (!text.empty() && text.back() == '\r')
        text.remove_suffix(1);
    return text;
}

// A command comes back with the CR that ended it.
bool is_echo(string_view line)
{
    return line.starts_with("AT") && line.ends_with("\r\r\n");
}

// Whether a line reads as one of a modem's own.
bool is_spoken(string_view line)
{
    if (line.size() > 1 && string_view("+^#$*").find(line[0]) != string_view::npos)
        return line[1] >= 'A' && line[1] <= 'Z';
    const string_view word = without_line_end(line);
    return word == "OK" || word == "ERROR" || word == "RING" || word == "NO CARRIER" ||
           word == "RDY" || word.starts_with("> ");
}

bool is_blank(string_view line)
{
    return without_line_end(line).empty();
}

// The length of the text, where the header tells it.
std::optional<std::size_t> announced_length(const report_header& header)
{
    constexpr std::size_t col_length = 9;
    if (header.count <= col_length)
        return std::nullopt;
    return static_cast<std::size_t>(std::max(number_in(header.columns[col_length]), 0));
}

} // namespace

int number_in(string_view column)
{
    char digits[16];
    set_field(digits, column);
    int number = 0;
    scan(digits, dec(number));
    return number;
}

// Cuts at the commas that stand outside quotes.
report_header cut_header(string_view line)
{
    constexpr std::size_t col_time = 2;
    report_header header;
    while (header.count < report_header::room) {
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        const bool quoted = !line.empty() && line[0] == '"';
        string_view value;
        if (quoted) {
            value = ahead(behind(line, 1), line.find('"', 1) - 1);
            line.remove_prefix(std::min(value.size() + 2, line.size()));
        }
        const std::size_t comma = std::min(line.find(','), line.size());
        if (!quoted)
            value = ahead(line, comma);
        header.quoted_time |= quoted && header.count == col_time;
        header.columns[header.count++] = value;
        if (comma == line.size())
            break;
        line.remove_prefix(comma + 1);
    }
    return header;
}

// NUL bytes are line noise, and would hide what stands behind them. In a text they are "@", which
// is 0 in the GSM alphabet, unless they are all of a line behind the first.
std::size_t report_lines::clean(char* piece, std::size_t size) const
{
    char* const end = piece + size;
    const bool of_text = announced || length == body_at || (in_line && is_report) ||
                         std::any_of(piece, end, [](unsigned char c) { return c > '\r'; });
    if (now == part::text && of_text)
        std::replace(piece, end, '\0', '@');
    return static_cast<std::size_t>(std::remove(piece, end, '\0') - piece);
}

// Only at the start of a line, and not in a text of known length.
bool report_lines::may_become_mark(string_view piece) const
{
    return !in_line && !announced && begins_mark(piece, true);
}

read_view report_lines::read(char* text, std::size_t size)
{
    muted = false;
    quiet_seconds = 0;
    char* out = text;
    char* message = nullptr;
    char* notice = nullptr;
    read_view view;
    for (std::size_t at = 0; at < size;) {
        char* const line = text + at;
        const auto* const end = static_cast<const char*>(std::memchr(line, '\n', size - at));
        const std::size_t width =
            end != nullptr ? static_cast<std::size_t>(end - line) + 1 : size - at;
        at += width;
        const string_view piece(line, clean(line, width));
        if (piece.empty())
            continue;
        begun = nullptr;
        const bool kept_back = end == nullptr && may_become_mark(piece);
        const bool of_report = !kept_back && take_piece(piece);
        if (!kept_back && !of_report && own != nullptr)
            own(piece);
        if (kept_back)
            view.keep_back = piece.size();
        else if (begun == message_mark && message == nullptr)
            message = out;
        else if (begun == stored_mark && notice == nullptr && !of_report)
            notice = out;
        // From the first of these on the text is the event's, which has it as it came.
        if (of_report && message == nullptr && notice == nullptr) {
            diag_debug("[SMS]<<<(%zu) %.*s\n", without_line_end(piece).size(),
                       static_cast<int>(without_line_end(piece).size()), piece.data());
            continue;
        }
        std::memmove(out, piece.data(), piece.size());
        out += piece.size();
    }
    *out = '\0';
    view.report = message != nullptr ? message : notice;
    return view;
}

void report_lines::take(string_view lines)
{
    while (!lines.empty()) {
        const std::size_t end = lines.find('\n');
        const std::size_t width = end == string_view::npos ? lines.size() : end + 1;
        take_piece(ahead(lines, width));
        lines.remove_prefix(width);
    }
}

// A line or what of one a read has; whether it is a report's.
bool report_lines::take_piece(string_view piece)
{
    const bool begins = !in_line;
    in_line = piece.back() != '\n';
    if (begins) {
        is_report = begin_line(piece);
        line_at = length;
    } else if (now == part::text && !announced && is_report) {
        muted = true;
    }
    const bool of_report = is_report;
    if (now != part::none)
        add(piece);
    if (now != part::none && !in_line)
        end_line();
    return of_report;
}

bool report_lines::begin_line(string_view piece)
{
    const bool first_of_text = now == part::text && length == body_at;
    const report_mark* const found = announced || first_of_text ? nullptr : mark_of(piece);
    if (found != nullptr && (now == part::none || found->ends_text)) {
        if (now != part::none)
            finish(behind_blank_line(length) ? length - 2 : length, true);
        begin_report(found);
        // Where the storage is read, a notice is for it alone, and takes no answer along.
        return found->kind != report_kind::notice || muted || sms_storage_mode() != 0;
    }
    if (now == part::text)
        return begin_text_line(piece);
    if (now == part::none && in_line && begins_mark(piece, false))
        begin_report(nullptr);
    return now == part::pdu || (muted && piece != "> ");
}

bool report_lines::begin_text_line(string_view piece)
{
    if (announced)
        return true;
    if (length > body_at) {
        if (in_line && piece == "> ")
            return false; // the modem waits behind it
        if (muted || is_blank(piece))
            return true;
        if (is_echo(piece) || (behind_blank_line(length) && is_spoken(piece)))
            return false;
    }
    return muted = true;
}

void report_lines::begin_report(const report_mark* which)
{
    now = part::header;
    mark = begun = which;
    announced.reset();
    length = body_at = line_at = 0;
}

// What has no room is no report of a modem: what is there is taken for all of it.
void report_lines::add(string_view piece)
{
    const std::size_t fits = std::min(piece.size(), room - length);
    std::memcpy(bytes + length, piece.data(), fits);
    length += fits;
    if (fits < piece.size()) {
        finish(length, false);
    } else if (now == part::header && mark == nullptr) {
        mark = begun = mark_of(from(0));
        if (mark == nullptr && !(in_line && begins_mark(from(0), false)))
            now = part::none;
    }
}

void report_lines::end_line()
{
    if (now == part::header)
        end_header();
    else if (now == part::pdu)
        finish(length, true);
    else
        end_text_line();
}

void report_lines::end_header()
{
    constexpr std::size_t columns_of_delivery = 7; // in text mode, where no body follows
    body_at = length;
    const report_header header =
        cut_header(behind(without_line_end({bytes, length}), mark->text.size()));
    if (mark->kind == report_kind::message && header.quoted_time) {
        now = part::text;
        announced = rereading ? std::nullopt : announced_length(header);
        if (announced && *announced + 2 > room - length)
            announced.reset();
        return;
    }
    now = part::pdu;
    if (mark->kind == report_kind::notice ||
        (mark->kind == report_kind::delivery && header.count >= columns_of_delivery))
        finish(length, true);
}

void report_lines::end_text_line()
{
    if (announced) {
        const std::size_t all = *announced + 2;
        if (length - body_at == all && from(0).ends_with("\r\n"))
            finish(length, true);
        else if (length - body_at >= all)
            read_again();
        return;
    }
    if (line_at == body_at)
        return;
    if (is_echo(from(line_at)))
        finish(line_at, true);
    else if (behind_blank_line(line_at) && is_spoken(from(line_at)))
        finish(line_at - 2, true);
}

// The modem's count is not one of bytes, or what it counted never came: the text ends as one
// without it.
void report_lines::read_again()
{
    char body[room];
    const std::string_view again = ahead(from(body_at), room);
    const std::size_t size = again.size();
    std::copy_n(again.data(), size, body);
    announced.reset();
    length = line_at = body_at;
    in_line = false;
    const report_mark* const begun_before = begun;
    rereading = true;
    take({body, size});
    rereading = false;
    begun = begun_before;
}

bool report_lines::behind_blank_line(std::size_t at) const
{
    return now == part::text && at >= body_at + 2 && string_view(bytes, at).ends_with("\r\n\r\n");
}

void report_lines::finish(std::size_t end, bool ended)
{
    const bool text = now == part::text;
    const bool headless = now == part::header;
    now = part::none;
    announced.reset();
    if (headless)
        return;
    const string_view line = without_line_end({bytes, body_at});
    const string_view body = without_line_end({bytes + body_at, end - body_at});
    whole({mark->kind, line, body, text, ended});
}

void report_lines::quiet_second()
{
    quiet_seconds = std::min(quiet_seconds + 1, longest_wait_s);
    // A text of unknown length may go on in the next read, a moment later.
    const bool settled =
        now == part::text && !announced && length > body_at && (!in_line || from(line_at) == "> ");
    if (settled || quiet_seconds >= longest_wait_s) {
        const bool goes_on = in_line && is_report;
        end();
        in_line = goes_on; // the rest of a report's line is never one of the modem's
    }
}

void report_lines::end()
{
    if (announced)
        read_again();
    if (now == part::text && in_line && from(line_at) == "> " && line_at > body_at)
        finish(behind_blank_line(line_at) ? line_at - 2 : line_at, true);
    else if (now != part::none)
        finish(length, !in_line);
    in_line = false;
}

} // namespace kelo
