// SPDX-License-Identifier: MIT
// Messages as files, as lines and as JSON, and what becomes of those that the user sends.
#include "host/messages/message_file.h"
#include "tests/host/fakes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace kelo_host;

// clang-format off

// Catches: a habit of those who write such files that is not known, and a bad file that goes out.
TEST(MessageFile, IsReadAsScriptsWriteIt)
{
    // content; number, text, validity, flash, report and resend; or a part of what is wrong
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"To: +4915\n\nhi\n", "+4915 hi 7 000", ""},
        {"to:  4915 \r\nX-Mine: a\r\nplain\r\n\r\nhi\r\n\r\n", "4915 hi\r\n 7 000", ""},
        {"To: 1\nFlash: YES\nReport: on\nResend: 1\nValidity: 635040\n\nTo: 2\n\nx", "1 To: 2\n\nx 635040 111", ""},
        {"To: 1\nFlash: no\nAlphabet: utf-8\n\n\xe2\x82\xac", "1 \xe2\x82\xac 7 000", ""},
        {"To: 1\nAlphabet: iso\n\n\xa4 \xe4\xb8\xff", "1 \xe2\x82\xac \xc3\xa4\xc5\xbe\xc3\xbf 7 000", ""},
        {"", "", "no header To"}, {"hello\nthere", "", "no header To"}, {"\nTo: 1\n", "", "no header To"},
        {"To: 1", "", "empty"}, {"To: 1\n\n\n", "", "empty"}, {"To: 1\n\na\xe4", "", "UTF-8"},
        {"To: +\n\nx", "", "a number"}, {"To: 1;2\n\nx", "", "a number"}, {std::string("To: 1\n\na\0b", 10), "", "NUL"},
        {"To: 1\nFlash: maybe\n\nx", "", "yes or no"}, {"To: 1\nValidity: 4\n\nx", "", "minutes"},
        {"To: 1\nValidity: 5 h\n\nx", "", "minutes"}, {"To: 1\nAlphabet: UCS\n\nx", "", "UTF-8 or ISO"}};
    for (const auto& [content, read, wrong] : rows) {
        outgoing_file file{};
        kelo_sms_options_defaults(&file.options);
        const std::string fault = parse_outgoing(content, file);
        EXPECT_EQ(fault.empty(), wrong.empty()) << content << ": " << fault;
        EXPECT_NE(fault.find(wrong), fault.npos) << content << ": " << fault;
        if (!wrong.empty())
            continue;
        EXPECT_EQ(file.number + " " + file.text + " " + std::to_string(file.options.validity) + " " +
                  std::to_string(file.options.flash) + std::to_string(file.options.report) +
                  std::to_string(file.resend), read);
    }
}

// Catches: a result of an earlier run that stays beside the new one, and a text that is changed.
TEST(MessageFile, GetsItsResultBehindItsHeaders)
{
    EXPECT_EQ(with_headers("To: 1\nFailed: then\nX: y\nfail_reason: z\n\nSent: 1\n\nb", "Sent: now\n"),
              "To: 1\nX: y\nSent: now\n\nSent: 1\n\nb");
    EXPECT_EQ(with_headers("To: 1", "Failed: now\n"), "To: 1\nFailed: now\n\n");
    EXPECT_EQ(with_line("To: 1\nSent: now\n\na\n\nb", "Delivered: x"), "To: 1\nSent: now\nDelivered: x\n\na\n\nb");
}

// Catches: a sender's name that adds a header, octets shown as they are, and a field that is told wrongly.
TEST(Messages, AreToldInWholeAndSafely)
{
    whole_message text, data;
    text.head = {sizeof text.head, "Te\nst\x1b", "+49171", "2024-05-17 09:30:12", -14, 0, 0, 0, -1, -1, 3, 1, 0, 1, 0};
    text.text = "a\x1b[2J\r\nb";
    data.head = {sizeof data.head, "+49", "", "", 0, -1, 4, 1, 5000, 16, 1, 0, 0, 1, 0};
    data.text = std::string("\0\x9b", 2);
    EXPECT_EQ(lines_of(text), (std::vector<std::string>{"message from Te?st? of 2024-05-17 09:30:12 -03:30, 2 of 3 parts, class 0:",
                                                        "  | a?[2J", "  | b"}));
    EXPECT_EQ(lines_of(data), (std::vector<std::string>{"message from +49, to port 5000, data:", "  | 009b"}));
    EXPECT_EQ(to_text(json_of(text)), R"({"sender":"Te\nst\u001b","sent":"2024-05-17T09:30:12-03:30",)"
                                      R"("text":"a\u001b[2J\r\nb","parts":2,"total":3,"class":0,"data":null,"ports":null})");
    EXPECT_EQ(to_text(json_of(data)), R"({"sender":"+49","sent":null,"text":null,"parts":1,"total":1,)"
                                      R"("class":null,"data":"009b","ports":{"to":5000,"from":16}})");
    EXPECT_EQ(incoming_content(text, "now"), "From: Te?st?\nFrom_SMSC: +49171\nSent: 2024-05-17 09:30:12 -03:30\nReceived: now\n"
                                             "Alphabet: UTF-8\nClass: 0\nParts: 2 of 3\n\na\x1b[2J\r\nb");
    EXPECT_EQ(incoming_content(data, "now"), "From: +49\nReceived: now\nAlphabet: binary\nPorts: to 5000, from 16\n"
                                             "Parts: 1 of 1\n\n" + data.text);
}

TEST(Messages, ResultsSayWhatHappened)
{
    constexpr std::tuple<int, int, int, int, const char*> rows[] = { // state, confirmed, error and its number
        {KELO_SMS_SENT, 3, 0, 0, "sent, 3 of 3 parts confirmed"},
        {KELO_SMS_FAILED, 0, KELO_SMS_CMS_ERROR, 38, "failed: +CMS ERROR: 38"},
        {KELO_SMS_FAILED, 1, KELO_SMS_CME_ERROR, 10, "failed: +CME ERROR: 10, with 1 of 3 parts confirmed"},
        {KELO_SMS_FAILED, 0, KELO_SMS_ERROR, -1, "failed: ERROR"},
        {KELO_SMS_UNKNOWN, 0, 0, 0, "unknown: the body went out and no answer came"}};
    for (const auto& [state, confirmed, error, number, told] : rows)
        EXPECT_EQ(lines_of(kelo_sms_result{0, 9, "t\n", "+49", state, 3, confirmed, error, number, {}}),
                  std::vector{std::string("message 9 (t?) to +49: ") + told});
    EXPECT_EQ(to_text(json_of(kelo_sms_result{0, 9, "", "+49", KELO_SMS_SENT, 2, 2, 0, 0, {41, 42, 43}})),
              R"({"number":9,"tag":"","destination":"+49","state":"sent","parts":2,"confirmed":2,"reason":null,)"
              R"("references":[41,42]})");
}

// Catches: a buffer that stays too small for ever, and the rest of a longer text behind a shorter one.
TEST(Messages, AreTakenWhateverTheirLength)
{
    fake_sms.waiting = {{{}, std::string(100000, 'x')}, {{}, ""}, {{}, std::string("a\0b", 3)}};
    whole_message one;
    for (const std::string& text : {std::string(100000, 'x'), std::string(), std::string("a\0b", 3)}) {
        EXPECT_TRUE(take_message(one));
        EXPECT_EQ(one.text, text);
    }
    EXPECT_FALSE(take_message(one));
}

// Catches: a host that was started for one message and waits for ever for its network, a message given up while the
// network is there or while it goes out, and an exit status that hides one.
TEST(Messages, OfTheUserEnd)
{
    fresh_library();
    outgoing messages{note};
    const auto pass = [&](moment now) { messages.pass(now); };
    const kelo_sms_options options{};
    fake_sms.refuse = 1;
    for (const char* number : {"+490", "+491", "+492", "+493"})
        messages.add(number, "x", options);
    cellular_set_status(CELL_STATUS_READY);
    walk(pass, {{0, nullptr, "message to +490: refused by the library;"}, {400000, nullptr, ""}});
    cellular_clear_status(CELL_STATUS_READY);
    fake_sms.cancel = 0;
    walk(pass, {{699999, nullptr, ""}, {700000, nullptr, ""}});
    messages.note({sizeof(kelo_sms_result), 1, "", "", KELO_SMS_UNKNOWN, 1, 0, 0, 0, {}});
    messages.note({sizeof(kelo_sms_result), 0, "", "", KELO_SMS_UNKNOWN, 1, 0, 0, 0, {}});
    fake_sms.cancel = 1;
    walk(pass, {{700250, nullptr, ""}, {1000249, nullptr, ""},
                {1000250, nullptr, "message to +492: not sent: the modem was not registered in 300 s;"}});
    messages.note({sizeof(kelo_sms_result), 3, "", "", KELO_SMS_SENT, 1, 1, 0, 0, {}});
    EXPECT_EQ(std::pair(messages.busy(), messages.not_sent()), std::pair(false, 3));
}
