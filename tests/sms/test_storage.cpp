// SPDX-License-Identifier: MIT
// The errand to the modem's storage: its commands, and what it makes of made-up answers.
#include "sms/report_lines.h"
#include "tests/sms/messages.h"

#include <iterator>

namespace
{

// SMS-DELIVER of one letter, from a number that ends in it.
std::string pdu_of(char letter)
{
    char text[64];
    std::snprintf(text, sizeof text, "00040491%02d2100004250719003218001%02X", letter, letter);
    return text;
}
constexpr const char* pdu_report = "0006270B917777777777F7515012113320215150121133402100";
constexpr const char* begin = "+CNMI=2,1,0,1,0 +CMGF=0 +CPMS? ";

// The answer to AT+CMGR, with something in the middle of the PDU.
std::string stored(const std::string& pdu, const char* stat = "0,", const std::string& torn = "")
{
    const std::size_t octets = pdu.size() / 2 - 1, half = pdu.size() / 2;
    return "+CMGR: " + std::string(stat) + "," + std::to_string(octets) + "\r\n" +
           pdu.substr(0, half) + torn + pdu.substr(half) + "\r\n\r\nOK";
}
std::string stored(char letter)
{
    return stored(pdu_of(letter));
}
std::string in_use(int used, int total = 5, const char* name = "ME", const char* arriving = "ME")
{
    const std::string sizes = std::to_string(used) + "," + std::to_string(total);
    const std::string one = "\"" + std::string(name) + "\"," + sizes + ",";
    return "+CPMS: " + one + one + "\"" + arriving + "\"," + sizes + "\r\n\r\nOK";
}

std::vector<std::string> split(const std::string& text)
{
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

struct Storage : testing::Test {
    Storage()
    {
        flow_walked = 1;
        EXPECT_EQ(kelo_set_sms_storage(2), 0);
    }
    // The commands up to the first that is `last`, or none; the modem answers from the table.
    std::string run(int most = 60)
    {
        std::string all;
        for (int i = 0; i < most; i++) {
            const char* const next = sms_errand_next(now);
            if (next == nullptr && ++quiet > 1)
                break;
            if (next == nullptr)
                continue;
            quiet = 0;
            const std::string command = next;
            all += (all.empty() ? "" : " ") + command.substr(2);
            g_mobile.at_done = 0;
            const std::string answer = answer_to(command);
            say((echo && !answer.empty() && !text_has(answer.c_str(), command.c_str())
                     ? command + "\r\r\n"
                     : "") +
                answer);
        }
        quiet = 0;
        return all;
    }
    std::string answer_to(const std::string& command)
    {
        const auto found = answers.find(command.substr(2));
        if (found != answers.end())
            return found->second;
        if (command.starts_with("AT+CMGR="))
            return "+CMS ERROR: 321";
        return "OK";
    }
    // In reads of so many bytes, each line as a modem writes it.
    void say(const std::string& answer)
    {
        const std::string text = answer.empty() ? "" : "\r\n" + answer + "\r\n";
        for (std::size_t at = 0; at < text.size(); at += piece)
            sms_own_piece(std::string_view(text).substr(at, piece));
    }
    // What the host takes: the text, and "*" where it lay there before.
    static std::string taken()
    {
        std::string all;
        kelo_message message;
        char text[500];
        while (kelo_take_message(&message, sizeof message, text, sizeof text) == 1)
            all += std::string(text) + (message.stored != 0 ? "*" : "") + " ";
        return all;
    }

    std::map<std::string, std::string> answers;
    std::int64_t now = monotonic_ms();
    std::size_t piece = 4096;
    bool echo = false;
    int quiet = 0;
};

} // namespace

// How many there are, and where, each modem tells in its own way; what it can't give stays.
TEST_F(Storage, LooksThroughTheMemory)
{
    const std::string in_text =
        "+CMGR: \"REC READ\",\"+49\",,\"24/05/17,09:30:12+08\"\r\nA\r\n\r\nOK";
    const std::string torn = "\r\n+CSQ: 3,99\r\n", broken = "+CMGR: 0,,16\r\n00040491\r\nOK";
    // clang-format off
    const struct {
        int used; // of five
        const char* list;
        std::map<std::string, std::string> places;
        std::string commands, taken, said;
        std::size_t piece = 4096;
    } rows[] = {
        {4, "+CMGD: (1,2,3,5),(0-4)\r\n\r\nOK", {{"1", stored('A')}, {"2", stored(pdu_of('B'), "3,\"a,b\"")},
            {"3", stored("0002")}, {"5", stored('C')}}, "?? 1 2 3 5", "A* C* ", "at 3 of ME can't be read"},
        {0, "", {}, "", "", ""},
        {2, "+CMGD: (0-254),(0-4)\r\nOK", {{"0", "OK"}, {"1", stored('D')}, {"3", stored(pdu_of('E'), "1,")}},
            "?? 0 1 2 3", "D E ", "", 1},
        {2, "ERROR", {{"5", stored('F')}}, "?? 0 1 2 3 4 5", "F ", "", 3},
        {1, "OK", {{"0", stored(pdu_of('G'), "0,", torn)}}, "?? 0", "G ", ""},
        {1, "OK", {{"0", stored(pdu_of('H'), "0,", "^BOOT:1,0\r\n")}}, "?? 0", "H ", "", 7},
        // Each of these is tried again, and in the end left alone.
        {1, "+CMGD: (2)\r\nOK", {{"2", in_text}}, "?? 2 PDU 2 PDU 2", "", "at 2 of ME"},
        {1, "+CMGD: (3)\r\nOK", {{"3", broken}}, "?? 3 3 3", "", "at 3 of ME"},
        {1, "+CMGD: (4)\r\nOK", {{"4", "OK"}}, "?? 4 4", "", ""},
        {5, "+CMGD: (0,1,2,3,4),(0-4)\r\nOK", {}, "?? 0 1 2 3 4", "", "storage is full, 5 of 5 in ME"},
    };
    // clang-format on
    for (const auto& row : rows) {
        answers = {{"+CPMS?", in_use(row.used)}, {"+CMGD=?", row.list}};
        for (const auto& [place, answer] : row.places)
            answers["+CMGR=" + place] = answer;
        std::string commands = begin;
        for (const std::string& word : split(row.commands))
            commands += (word == "??"    ? "+CMGD=?"
                         : word == "PDU" ? "+CMGF=0"
                                         : "+CMGR=" + word) +
                        " ";
        piece = row.piece;
        sms_storage_forget();
        const captured output;
        EXPECT_EQ(run() + " ", commands);
        EXPECT_EQ(g_mobile.at_done, 1);
        EXPECT_EQ(output.has("sms: "), !row.said.empty()) << output.text();
        EXPECT_TRUE(output.has(row.said)) << row.said;
        EXPECT_EQ(taken(), row.taken);
    }
    // What comes goes to another memory, and one of the two is selected in the end.
    answers = {{"+CPMS?", in_use(1, 5, "ME", "SM")},
               {"+CMGR=0", stored('I')},
               {"+CPMS=\"SM\"", "+CPMS: 1,9,1,9,1,9\r\nOK"},
               {"+CPMS=\"ME\"", "+CPMS: 1,5,1,5,1,9\r\nOK"}};
    sms_storage_forget();
    EXPECT_EQ(run(),
              std::string(begin) + "+CMGD=? +CMGR=0 +CPMS=\"SM\" +CMGD=? +CMGR=0 +CPMS=\"ME\"");
    EXPECT_EQ(taken(), "I I* ");
    int used = 0, total = 0;
    EXPECT_EQ(kelo_get_sms_storage(&used, &total), 1);
    EXPECT_EQ(std::pair(used, total), std::pair(1, 5));
}

// Catches: a place that is left for good since the SIM was not ready, one that is tried for ever,
// an empty one that is.
TEST_F(Storage, ErrorsOfAPlace)
{
    // How often it is read in six quarters of an hour.
    constexpr std::pair<const char*, int> rows[] = {
        {"+CME ERROR: 10", 6},  {"+CME ERROR: 15", 6},  {"+CMS ERROR: 310", 6},
        {"+CMS ERROR: 318", 6}, {"+CMS ERROR: 512", 6}, {"+CME ERROR: 9", 3},
        {"+CME ERROR: 16", 3},  {"+CMS ERROR: 309", 3}, {"+CMS ERROR: 319", 3},
        {"+CMS ERROR: 511", 3}, {"+CMS ERROR: 320", 3}, {"+CME ERROR: 20", 3},
        {"+CME ERROR: 22", 3},  {"+CME ERROR: 21", 1},  {"+CMS ERROR: 321", 1}};
    const captured unheard;
    for (const auto& [error, times] : rows) {
        answers = {{"+CPMS?", in_use(1)}, {"+CMGD=?", "+CMGD: (4)\r\nOK"}, {"+CMGR=4", error}};
        sms_storage_forget();
        std::string commands;
        for (int quarter = 0; quarter < 6; quarter++, now += 900000)
            commands += run();
        EXPECT_EQ(count_of(commands, "+CMGR=4"), times) << error;
    }
}

// Catches: a message that comes without its place, or into a full memory, and is not looked for.
TEST_F(Storage, NoticesWithoutAPlace)
{
    answers = {{"+CPMS?", in_use(1)}, {"+CMGD=?", "+CMGD: (4)\r\nOK"}, {"+CMGR=4", stored('A')}};
    run();
    taken();
    for (const char* const notice :
         {"+CMTI: \"ME\",-1", "+CMTI: \"ME\",99999", "+CMTI: \"ME\"", "^SMMEMFULL: \"ME\""}) {
        sms_storage_hear(notice);
        now += 5000;
        EXPECT_NE(run().find("?"), std::string::npos) << notice;
    }
}

// What was handed out is deleted once it is kept, and never by a number that may be another's.
TEST_F(Storage, NothingTwiceAndNothingOfAnotherDeleted)
{
    answers = {{"+CPMS?", in_use(3)},
               {"+CMGD=?", "+CMGD: (0,1,2)\r\nOK"},
               {"+CMGR=0", stored('A')},
               {"+CMGR=1", stored('B')},
               {"+CMGR=2", stored(pdu_report)}};
    sms_storage_reported(pdu_of('B'));
    EXPECT_EQ(run(), begin + std::string("+CMGD=? +CMGR=0 +CMGR=1 +CMGD=1 +CMGR=2 +CMGD=2 +CPMS?"));
    answers["+CMGD=?"] = "+CMGD: (0,1),(0-4)\r\nOK";
    // Ahead of the host another epoch begins, where the message has another place.
    answers["+CPMS?"] = in_use(2);
    answers["+CMGR=1"] = stored('A');
    answers["+CMGR=0"] = stored('C');
    say("RDY");
    EXPECT_EQ(run(), begin + std::string("+CMGD=? +CMGR=0 +CMGR=1"));
    EXPECT_EQ(taken(), "A* C ");
    // The modem has deleted one, says nothing, and puts another message there.
    answers["+CMGD=1"] = "";
    EXPECT_EQ(run(1), "+CMGD=1");
    EXPECT_EQ(run(), "");
    answers["+CMGD=1"] = "OK";
    answers["+CMGR=1"] = stored('D');
    now += 60000;
    EXPECT_EQ(run(), "+CMGD=0 +CMGR=1 +CPMS?");
    EXPECT_EQ(taken(), "D ");
    // It is kept, and its place has another one: the modem has said so.
    answers["+CMGR=1"] = stored('E');
    sms_storage_hear("+CMTI: \"ME\",1");
    EXPECT_EQ(run(), "+CMGR=1");
    EXPECT_EQ(taken(), "E ");
    EXPECT_EQ(run(), "+CMGD=1 +CPMS?");
    // One that was kept, and that the modem has again.
    sms_storage_forget();
    EXPECT_EQ(kelo_set_sms_storage(1), 0);
    answers["+CPMS?"] = in_use(1);
    answers["+CMGD=?"] = "+CMGD: (4)\r\nOK";
    answers["+CMGR=4"] = stored('F');
    EXPECT_EQ(run(), begin + std::string("+CMGD=? +CMGR=4"));
    EXPECT_EQ(taken(), "F ");
    sms_storage_forget();
    EXPECT_EQ(run(), begin + std::string("+CMGD=? +CMGR=4"));
    EXPECT_EQ(taken(), "");
    EXPECT_EQ(kelo_set_sms_storage(2), 0);
    EXPECT_EQ(run(), "+CMGD=4 +CPMS?");
}

// Waits that grow, and answers of others.
TEST_F(Storage, GivesWay)
{
    answers = {{"+CNMI=2,1,0,1,0", "+CMS ERROR: 302"}, {"+CPMS?", "+CMS ERROR: 314"}};
    EXPECT_EQ(run(), "+CNMI=2,1,0,1,0 +CNMI=2,1,0,0,0 +CMGF=0 +CPMS?");
    for (const int wait_s : {60, 120, 240, 480, 600, 600}) {
        now += 1000 * wait_s - 1;
        EXPECT_EQ(run(), "") << wait_s;
        now++;
        EXPECT_EQ(run(), "+CPMS?") << wait_s;
        answers["+CPMS?"] = wait_s % 240 == 0 ? "" : "+CME ERROR: 14"; // or no answer at all
    }
    now += 600000;
    answers["+CPMS?"] = in_use(0);
    echo = true;
    EXPECT_EQ(run(), "+CPMS?");
    sms_storage_hear("+CMTI: \"ME\",3");
    flow_walked = 0;
    EXPECT_EQ(run(), "");
    flow_walked = 1;
    // A modem that repeats commands: an end ahead of that is somebody else's.
    answers["+CMGR=3"] = "OK\r\nAT+CMGR=3\r\n+CMGR: 0,,16\r\n" + pdu_of('A') + "\r\nOK";
    EXPECT_EQ(run(), "+CMGR=3");
    EXPECT_EQ(taken(), "A ");
    EXPECT_EQ(run(), "+CMGD=3 +CPMS?");
    // The repeats of others on the same line, which no line feed ends.
    sms_storage_hear("+CMTI: \"ME\",4");
    answers["+CMGR=4"] = "at+qeng\rAT+CMGR=4\rATH\r\r\n+CMGR: 0,,16\r\n" + pdu_of('C') + "\r\nOK";
    EXPECT_EQ(run(), "+CMGR=4");
    EXPECT_EQ(taken(), "C ");
    EXPECT_EQ(run(), "+CMGD=4 +CPMS?");
    // Another memory, and a host that selects one itself.
    sms_storage_hear("+CMTI: \"SM\",8");
    answers["+CPMS=\"SM\""] = "+CPMS: 1,9,1,9,1,9\r\nOK";
    answers["+CMGR=8"] = stored('B');
    EXPECT_EQ(run(), "+CPMS=\"SM\" +CMGR=8 +CPMS=\"ME\"");
    say("AT+CPMS=\"SM\"\r\nOK");
    answers["+CPMS=\"SM\""] = "+CMS ERROR: 302";
    EXPECT_EQ(run(), "+CMGF=0 +CPMS? +CPMS=\"SM\"");
    EXPECT_EQ(taken(), "B ");
}

// A host that takes nothing is not given more than it has room for, and the rest stays.
TEST_F(Storage, StopsWhereThereIsNoRoom)
{
    std::string list;
    for (int place = 0; place < KELO_MESSAGES + 2; place++) {
        list += std::to_string(place) + ",";
        answers["+CMGR=" + std::to_string(place)] = stored(static_cast<char>(' ' + 1 + place));
    }
    answers["+CPMS?"] = in_use(KELO_MESSAGES + 2, 99);
    answers["+CMGD=?"] = "+CMGD: (" + list + "),(0-4)\r\nOK";
    EXPECT_NE(run(200).find("+CMGR=63"), std::string::npos);
    EXPECT_EQ(run(), "");
    EXPECT_EQ(std::ranges::count(taken(), ' '), KELO_MESSAGES);
    answers["+CPMS?"] = in_use(2, 99);
    EXPECT_TRUE(run(200).ends_with("+CMGR=64 +CMGR=65 +CPMS?"));
    EXPECT_EQ(kelo_messages_lost(), 0);
}

TEST_F(Storage, WhatAFlowSaysOfMessages)
{
    constexpr std::pair<const char*, const char*> rows[] = {
        {"AT+CMGF=0;+CNMI=2,2,0,0,0", "AT+CMGF=0;+CNMI=2,1,0,1,0"},
        {"AT+CNMI=2,2;+CSQ", "AT+CNMI=2,1,0,1,0;+CSQ"},
        {"AT+CNMI=2,2", "AT+CNMI=2,1,0,1,0"},
        {"AT+CNMI=2,1,0,0,0", nullptr},
        {"AT+CNMI=2,20", nullptr},
        {"AT", nullptr},
        {nullptr, nullptr}};
    answers["+CPMS?"] = in_use(0);
    for (const int mode : {1, 2, 0})
        for (const auto& [command, instead] : rows) {
            kelo_set_sms_storage(mode);
            sms_storage_forget();
            EXPECT_STREQ(sms_command_instead(command), mode != 0 ? instead : nullptr);
            say("OK");
            EXPECT_EQ(run(), mode == 0            ? ""
                             : instead != nullptr ? "+CMGF=0 +CPMS?"
                                                  : std::string(begin, 30));
        }
    // Without a storage a message may want a report of its delivery: that alone is told, and once.
    sms_reports_wanted = 1;
    for (int i = 0; i < 2; i++, sms_storage_forget()) {
        EXPECT_TRUE(sms_reports_due());
        answers["+CNMI=2,2,0,1,0"] = "+CMS ERROR: 500";
        EXPECT_EQ(run(), "+CNMI=2,2,0,1,0");
        EXPECT_FALSE(sms_reports_due());
    }
}

// Catches: the end of somebody else's command taken for that of the errand's, whose own answer then
// counts for the next one, so that nothing is read for a minute.
TEST_F(Storage, AnAnswerStandsBehindItsEcho)
{
    say("AT+COPS?\r\r\n+COPS: 0\r\n\r\nOK"); // the modem repeats what it hears
    for (const char* const command : {"AT+CNMI=2,1,0,1,0", "AT+CMGF=0", "AT+CPMS?"}) {
        ASSERT_STREQ(sms_errand_next(now), command);
        say("OK"); // of a command of before
        say(std::string(command) + "\r\r\n" +
            (std::string(command) == "AT+CPMS?" ? in_use(1) : "OK"));
    }
    EXPECT_STREQ(sms_errand_next(now), "AT+CMGD=?");
}

// Catches: a message shown in two halves, both of which were there.
TEST_F(Storage, APartThatIsStillToBeReadIsNotMissing)
{
    const auto part = [](const char* rest) {
        return stored("004404911221000425071900321800" + std::string("07050003AA02") + rest);
    };
    answers = {{"+CPMS?", in_use(2)},
               {"+CMGD=?", "+CMGD: (1,2)\r\nOK"},
               {"+CMGR=1", part("0141")},
               {"+CMGR=2", part("0242")}};
    EXPECT_EQ(kelo_set_sms_patience(1), 0);
    now = monotonic_ms() - 100000; // when the first is read
    EXPECT_EQ(run(5), begin + std::string("+CMGD=? +CMGR=1"));
    EXPECT_EQ(taken(), "");
    EXPECT_EQ(run(1), "+CMGR=2");
    EXPECT_EQ(taken(), "AB* ");
}
