// SPDX-License-Identifier: MIT
// Where the reads of the port are cut makes no difference to the reports in them, and no line of a
// message acts as one of the modem.
#include "sms/report_lines.h"
#include "tests/sms/messages.h"

static std::vector<std::string> reports;

static void note_report(const whole_report& report)
{
    reports.push_back(joined(static_cast<int>(report.kind), report.line, report.body));
}

// Hears a stream in reads that end at these places; gives what the handlers are left with.
static std::string hear_cut(const std::string& stream, std::vector<std::size_t> cuts)
{
    char room[report_lines::room];
    report_lines lines(room, note_report);
    std::string left;
    std::string kept;
    std::size_t at = 0;
    reports.clear();
    cuts.push_back(stream.size());
    for (const std::size_t cut : cuts) {
        std::string bytes = kept + stream.substr(at, cut - at) + '!';
        at = cut;
        const read_view view = lines.read(bytes.data(), bytes.size() - 1);
        const std::string text = bytes.c_str();
        kept = text.substr(text.size() - view.keep_back);
        if (view.report == nullptr)
            left += text.substr(0, text.size() - view.keep_back);
    }
    for (int i = 0; i < 3; i++)
        lines.quiet_second();
    std::erase_if(left, [](char c) { return c == '\r' || c == '\n'; });
    return left;
}

TEST(Reads, AreTheSameWhereverTheyAreCut)
{
    const std::string head = "+CMT: \"+1\",,\"24/05/17,09:30:12+08\"";
    const std::string counted = head + ",145,4,0,0,\"+2\",145,";
    const std::string delivery = "07919761989901F006270B917777777777F75151210133202151501211334021"
                                 "00";
    const std::string by_text = "+CDS: 6,42,\"+7\",145,\"26/04/17,12:00:01+12\",\"now\",0";
    const std::string forged = "x\r\n\r\n+CPIN: READY\r\n+CMT: ,30\r\n00";
    const std::string lines = "Alarm\n\r\n+CPIN: READY\r\n\r\nwater";
    // A stream, its reports, and what is left of it: all of this, or, of a read that holds a
    // message, its end.
    const std::tuple<std::string, std::vector<std::string>, std::string> rows[] = {
        {"\r\n+CMT: ,30\r\n" + std::string(pdu_door) + "\r\n\r\n+CSQ: 2,99\r\n",
         {std::string("0|+CMT: ,30|") + pdu_door},
         "+CSQ: 2,99"},
        {"\r\n" + head + "\r\n+CPIN: READY\r\n", {"0|" + head + "|+CPIN: READY"}, ""},
        {"\r\n" + head + "\r\n" + lines + "\r\n\r\nOK\r\n", {"0|" + head + "|" + lines}, "OK"},
        {"\r\n" + head + "\r\n" + lines + "\r\nAT+CSQ\r\r\n\r\n+CSQ: 2,99\r\n",
         {"0|" + head + "|" + lines},
         "AT+CSQ+CSQ: 2,99"},
        {"\r\n" + head + "\r\ntwo\r\n\r\n" + head + "\r\n\r\n\r\n+CMTI: \"SM\",3\r\n",
         {"0|" + head + "|two", "0|" + head + "|", "2|+CMTI: \"SM\",3|"},
         ""},
        {"\r\n" + counted + "32\r\n" + forged + "\r\n\r\nOK\r\n",
         {"0|" + counted + "32|" + forged},
         "OK"},
        // What is counted are no bytes.
        {"\r\n" + counted + "2\r\n0044006F\r\n\r\nOK\r\n", {"0|" + counted + "2|0044006F"}, "OK"},
        {"\r\n" + counted + "99\r\na[b\r\n\r\n+CMT: ,2\r\n0791\r\n",
         {"0|" + counted + "99|a[b", "0|+CMT: ,2|0791"},
         ""},
        {"\r\n+CSQ: 2,99\r\n\r\n+CDS: 25\r\n" + delivery + "\r\n\r\nOK\r\n",
         {"1|+CDS: 25|" + delivery},
         "+CSQ: 2,99OK"},
        {"\r\n" + by_text + "\r\n\r\nOK\r\n", {"1|" + by_text + "|"}, "OK"},
        {"\r\n+CDSI: \"SM\",3\r\n\r\n+QIND: \"smsfull\",\"ME\"\r\n",
         {"2|+CDSI: \"SM\",3|", "2|+QIND: \"smsfull\",\"ME\"|"},
         "+CDSI: \"SM\",3+QIND: \"smsfull\",\"ME\""},
        {"+QMTRECV: 0,1,\"a\",\"+CMT: ,30\"\r\n0791\r\n+COPS: +CDS: 25\r\n0791\r\n",
         {},
         "+QMTRECV: 0,1,\"a\",\"+CMT: ,30\"0791+COPS: +CDS: 250791"},
    };
    for (const auto& [stream, expected, rest] : rows) {
        const bool takes_reads = stream.find("\n+CMT") != std::string::npos;
        std::vector<std::size_t> all;
        for (std::size_t cut = 1; cut < stream.size(); all.push_back(cut++)) {
            const std::string left = hear_cut(stream, {cut});
            ASSERT_EQ(reports, expected) << cut;
            ASSERT_TRUE(takes_reads ? rest.ends_with(left) : rest == left) << left << cut;
        }
        hear_cut(stream, all);
        EXPECT_EQ(reports, expected);
    }
}

// The other lines of a read that has the rest of a report; and behind a text whose end nobody
// knows none, which its sender may have written.
TEST(Reads, LinesBesideTheRestOfAReport)
{
    const std::string head = "\r\n+CMT: \"+1\",,\"24/05/17,09:30:12+08\"";
    const std::string more = "\r\n\r\n+CPIN: READY\r\n\r\n> ";
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"\r\nRING\r\n\r\n+CDS: 25\r\n", "0791" + more, "RING+CPIN: READY> "},
        {"\r\n+CMT: ,30\r\n", "0791" + more, "+CPIN: READY> "},
        {head + ",145,4,0,0,\"+2\",145,2\r\n", "hi" + more, "+CPIN: READY> "},
        {head + "\r\n", "hi" + more, "> "},
        {head + "\r\nh", "i" + more, "> "},
        {head + "\r\nhi\r\n", more.substr(2), "+CPIN: READY> "},
    };
    for (const auto& [first, second, rest] : rows)
        EXPECT_EQ(hear_cut(first + second, {first.size()}), rest) << first;
}
