// SPDX-License-Identifier: MIT
// A command of the host's and its answer, line by line; tests/task has the way of both through the
// task.
#include "tests/testing.h"

// The answer of a modem that says these lines to AT+A, and all of what was taken.
static std::string answer_of(const std::vector<std::string>& says)
{
    int timeout_s = 0;
    EXPECT_GT(kelo_ask("AT+A", 7), 0);
    EXPECT_STREQ(ask_next(timeout_s), "AT+A");
    EXPECT_EQ(timeout_s, 7);
    bool ended = false;
    for (const std::string& line : says) {
        EXPECT_FALSE(ended) << line;
        ended = ask_hear(line.c_str());
        EXPECT_EQ(modem_at_work, ended ? 0 : 1) << line;
    }
    EXPECT_TRUE(ended);
    kelo_answer answer{};
    std::string text(KELO_ANSWER_LONGEST + 1, 'x');
    EXPECT_EQ(kelo_take_answer(&answer, sizeof answer, text.data(), text.size()), 1);
    EXPECT_EQ(std::strlen(text.c_str()), static_cast<std::size_t>(answer.length));
    text.resize(static_cast<std::size_t>(answer.length));
    return in_words(kelo_ask_end_name(answer.end), ' ', answer.error_number, ' ', answer.cut, ' ',
                    answer.last, '|', text.size() < 100 ? text : std::to_string(text.size()));
}

// Catches: a number that loses a digit, a line beyond the place of an answer, a part of a long
// line, what came ahead of the echo.
TEST(Ask, Answers)
{
    const std::string longest(KELO_ANSWER_LONGEST, 'a'), nearly(KELO_ANSWER_LONGEST - 2, 'a');
    const std::string whole = std::to_string(longest.size()), less = std::to_string(nearly.size());
    const std::string last = "+CME ERROR: " + std::string(100, 'w');
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"AT+A", "+A: 1", "+A: 2", "OK"}, "ok -1 0 OK|+A: 1\n+A: 2"},
        {{"AT+A", "OK"}, "ok -1 0 OK|"},
        {{"AT+A", "+CME ERROR:14"}, "CME error 14 0 +CME ERROR:14|"},
        {{"AT+A", "+CMS ERROR: 500"}, "CMS error 500 0 +CMS ERROR: 500|"},
        {{"AT+A", "+CME ERROR: 14 x"}, "CME error -1 0 +CME ERROR: 14 x|"},
        {{"AT+A", last}, "CME error -1 0 " + last.substr(0, 79) + "|"},
        {{"AT+A", longest, "OK"}, "ok -1 0 OK|" + whole},
        {{"AT+A", longest + "b", "OK"}, "ok -1 1 OK|"},
        {{"AT+A", nearly, "b", "OK"}, "ok -1 0 OK|" + whole},
        {{"AT+A", nearly, "bc", "d", "OK"}, "ok -1 1 OK|" + less},
    };
    ask_task_begins();
    for (const auto& [says, told] : rows)
        EXPECT_EQ(answer_of(says), told);
    // Of a modem that repeats commands nothing counts ahead of that; of another one everything.
    EXPECT_GT(kelo_ask("AT+A", 7), 0);
    int timeout_s = 0;
    ask_next(timeout_s);
    EXPECT_FALSE(ask_hear("OK"));
    ask_over();
    EXPECT_GT(kelo_ask("AT+A", 7), 0);
    ask_next(timeout_s);
    EXPECT_TRUE(ask_hear("OK")) << "it has not repeated the one before";
}

TEST(Ask, FaultsHaveTheirWords)
{
    ask_task_begins();
    EXPECT_EQ(kelo_ask(nullptr, 1), KELO_ASK_NO_COMMAND);
    EXPECT_EQ(kelo_ask("AT", KELO_ASK_MOST_TIME + 1), KELO_ASK_NO_COMMAND);
    EXPECT_EQ(kelo_ask("AT", KELO_ASK_MOST_TIME), 1);
    for (const int fault :
         {KELO_ASK_NO_COMMAND, KELO_ASK_UNFIT, KELO_ASK_FULL, KELO_ASK_STOPPED, KELO_ASK_NO_MEMORY})
        EXPECT_GT(std::string(kelo_ask_fault_text(fault)).size(), 1u) << fault;
    EXPECT_STREQ(kelo_ask_fault_text(1), "?");
}
