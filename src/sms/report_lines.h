// SPDX-License-Identifier: MIT
// The lines of the modem, wherever its reads are cut: which of them are a report of a message, and
// the whole report once its last line is there.
#pragma once

#include "sms/sms.h"

namespace kelo
{

enum class report_kind {
    message,  // "+CMT:", a message
    delivery, // "+CDS:", a status report
    notice    // one line that tells of the storage
};

struct report_mark {
    std::string_view text;
    report_kind kind;
    bool ends_text; // also where the length of a text in front of it is not known
};

// The columns of a header line, TS 27.005 3.4.1, without their quotes.
struct report_header {
    static constexpr std::size_t room = 10;
    std::string_view columns[room];
    std::size_t count = 0;
    bool quoted_time = false; // text mode
};
report_header cut_header(std::string_view line); // behind its mark
int number_in(std::string_view column);          // 0 for none

struct whole_report {
    report_kind kind = report_kind::notice;
    std::string_view line; // without its line end
    std::string_view body; // what stands behind it; of a PDU one line
    bool text = false;     // the body is a text, not a PDU
    bool ended = false;    // its last line was whole
};

// What becomes of a whole report (receive.cpp), and of what a read has of a line that is none's.
void sms_report_is_whole(const whole_report& report);
void sms_own_piece(std::string_view piece);

class report_lines
{
  public:
    using report_taker = void (*)(const whole_report&);
    using piece_taker = void (*)(std::string_view);

    // A report and its text are at most this; 160 characters take 1024 bytes at most.
    static constexpr std::size_t room = 2048;

    // It keeps what it reads in bytes of its user's.
    constexpr report_lines(char (&there)[room], report_taker is_whole, piece_taker is_own = nullptr)
        : bytes(there), whole(is_whole), own(is_own)
    {
    }

    // A read of the port, or what of one a host hands in: takes NUL bytes and the lines of reports
    // out of the bytes, and leaves a text.
    read_view read(char* bytes, std::size_t length);
    void take(std::string_view lines);

    void quiet_second(); // nothing came for a second
    void end();          // nothing more will come

  private:
    enum class part { none, header, pdu, text };

    char (&bytes)[room];
    report_taker whole;
    piece_taker own;
    part now = part::none;
    const report_mark* mark = nullptr;  // of the report; null: its line may still become one
    const report_mark* begun = nullptr; // by the last line
    bool in_line = false;               // the last piece has not ended its line,
    bool is_report = false;             // which is one of a report
    bool muted = false;                 // this read held lines of a text of unknown length
    bool rereading = false;
    int quiet_seconds = 0;
    std::optional<std::size_t> announced; // the length of the text
    std::size_t length = 0, body_at = 0, line_at = 0;

    std::string_view from(std::size_t at) const { return {bytes + at, length - at}; }
    bool take_piece(std::string_view piece);
    bool begin_line(std::string_view piece);
    bool begin_text_line(std::string_view piece);
    void begin_report(const report_mark* which);
    void add(std::string_view piece);
    void end_line();
    void end_header();
    void end_text_line();
    void finish(std::size_t end, bool ended);
    void read_again();
    bool behind_blank_line(std::size_t at) const;
    std::size_t clean(char* piece, std::size_t size) const;
    bool may_become_mark(std::string_view piece) const;
};

} // namespace kelo
