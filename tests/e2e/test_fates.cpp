// SPDX-License-Identifier: MIT
// Messages on their way out, and what the host learns of them.
#include "tests/e2e/story.h"

#include <kelo/messages.h>
#include <kelo/settings.h>

#include <cstring>
#include <map>

using namespace kelo_story;

namespace
{

// A text that shows which message it is of, long enough for so many parts.
std::string text_of_parts(int number, int parts)
{
    std::string text = "message " + std::to_string(number);
    for (int i = 0; parts > 1 && text.size() < static_cast<std::size_t>(150 * (parts - 1) + 20);
         i++)
        text += " " + std::to_string(i);
    return text;
}

enum class call { added, pdu, text };

struct fate_case {
    const char* name;
    const char* model;
    call by;
    int parts;                // of each of two messages
    int prompt_ms, answer_ms; // told times
    const char* order;        // of the emulator, ahead of them
    const char* results;      // those that may be, parted by '|'
};

constexpr fate_case cases[] = {
    {"ThreeParts", "EC25", call::added, 3, 10, 3000, "", "sent 3/3, sent 3/3"},
    {"ThreePartsTold", "EC25", call::pdu, 3, 10, 3000, "", "sent 3/3, sent 3/3"},
    {"PromptSoon", "EC25", call::added, 1, 200, 300, "", "sent 1/1, sent 1/1"},
    {"PromptLate", "EC25", call::pdu, 1, 1600, 300, "", "sent 1/1, sent 1/1"},
    {"PromptAfterLong", "EC25", call::pdu, 1, 20000, 300, "", "sent 1/1, sent 1/1"},
    {"TextsQueuedInTheModem", "EC25", call::text, 1, 300, 3000, "", "sent 1/1, sent 1/1"},
    {"CommandsSwallowed", "EC25", call::text, 1, 300, 20000, "overlap swallow",
     "sent 1/1, sent 1/1"},
    {"ResetBeforeThePrompt", "EC25", call::added, 1, 10, 300, "reset on AT+CMGS*",
     "sent 1/1, sent 1/1"},
    {"ResetBehindThePrompt", "EC25", call::added, 1, 10, 300, "reset on PROMPT",
     "sent 1/1, sent 1/1|unknown 0/1, sent 1/1"},
    {"ResetBehindTheBody", "EC25", call::added, 1, 10, 300, "reset on BODY",
     "unknown 0/1, sent 1/1"},
    {"Refused", "EC25", call::added, 2, 10, 300, "cmgs error 38",
     "failed 0/2 +CMS ERROR: 38, failed 0/2 +CMS ERROR: 38"},
    {"NoFlow", "EG95", call::added, 2, 10, 300, "", "sent 2/2, sent 2/2"},
    {"NoFlowTold", "EG95", call::pdu, 1, 10, 300, "", "refused 0/1, refused 0/1"},
    {"Rm500q", "RM500Q", call::added, 2, 10, 300, "", "sent 2/2, sent 2/2"},
};

void PrintTo(const fate_case& of, std::ostream* out)
{
    *out << of.name;
}

class Fates : public Story, public testing::WithParamInterface<fate_case>
{
  protected:
    std::string results_; // so far

    bool all_known()
    {
        for (kelo_sms_result result; kelo_take_sms_result(&result, sizeof result) == 1;) {
            results_ += results_.empty() ? "" : ", ";
            results_ += kelo_sms_state_name(result.state);
            results_ += " " + std::to_string(result.confirmed) + "/" + std::to_string(result.parts);
            if (result.error == KELO_SMS_CMS_ERROR)
                results_ += " +CMS ERROR: " + std::to_string(result.error_number);
            known_++;
        }
        return known_ == 2;
    }

  private:
    int known_ = 0;
};

} // namespace

// Catches: a message whose fate is not told or told wrong, one that is lost, that goes out twice,
// or to somebody else's number.
TEST_P(Fates, AreKnown)
{
    const fate_case& of = GetParam();
    const auto told = [](int ms) { return std::to_string(real(milliseconds(ms)).count()); };
    plug(of.model, {{"prompt_ms", told(of.prompt_ms)}, {"cmgs_ms", told(of.answer_ms)}});
    static cellular_setting settings = {}; // without a link
    kelo_init_cellular(&settings, 0);
    ASSERT_EQ(kelo_keep(nullptr), 0); // behind the init
    ASSERT_TRUE(eventually([] { return mobile_is_ready() != 0; }, within(20s)));
    order(of.order);
    const std::string numbers[] = {"+491511", "+491522"};
    for (int i = 0; i < 2; i++) {
        const std::string text = text_of_parts(i, of.parts);
        if (of.by == call::added)
            EXPECT_GT(kelo_send_sms(numbers[i].c_str(), text.c_str(), nullptr), 0);
        else
            EXPECT_EQ(libgsm_send_sms_from_buffer("tag", numbers[i].c_str(),
                                                  of.by == call::pdu ? 0 : 1, text.data(),
                                                  static_cast<int>(text.size())),
                      0);
    }
    EXPECT_TRUE(eventually([&] { return all_known(); }, within(60s)));
    EXPECT_NE(("|" + std::string(of.results) + "|").find("|" + results_ + "|"), std::string::npos)
        << results_;
    // Each part went out once, whole, and to its number.
    line_list bodies;
    for (const kelo_emulator::sent_message& sent : modem.sent_messages()) {
        if (sent.reference < 0)
            continue;
        EXPECT_EQ(std::count(bodies.begin(), bodies.end(), sent.body), 0) << sent.body;
        bodies.push_back(sent.body);
        if (!sent.pdu) {
            EXPECT_EQ(sent.body, text_of_parts(sent.target == numbers[1], 1)) << sent.target;
        }
    }
    kelo_keep_stop();
    kelo_deinit_cellular();
}

INSTANTIATE_TEST_SUITE_P(Messages, Fates, testing::ValuesIn(cases),
                         [](const auto& of) { return std::string(of.param.name); });

// Catches: a report of delivery that the modem is never told to give, or that finds no message.
TEST_F(Story, AReportOfDeliveryFindsItsMessage)
{
    plug("RM500Q", {{"report_ms", "50"}});
    static cellular_setting settings = {};
    kelo_init_cellular(&settings, 0);
    ASSERT_TRUE(eventually([] { return mobile_is_ready() != 0; }, within(20s)));
    kelo_sms_options options = {};
    options.size = sizeof options;
    ASSERT_EQ(kelo_sms_options_defaults(&options), 0);
    options.report = 1;
    std::strcpy(options.tag, "alarm");
    const int number = kelo_send_sms("+4915112345678", text_of_parts(1, 2).c_str(), &options);
    EXPECT_GT(number, 0);
    for (int part = 1; part <= 2; part++) {
        kelo_sms_report report = {};
        ASSERT_TRUE(eventually([&] { return kelo_take_sms_report(&report, sizeof report) == 1; },
                               within(20s)));
        EXPECT_EQ(report.number, number);
        EXPECT_STREQ(report.tag, "alarm");
        EXPECT_EQ(report.part, part);
        EXPECT_EQ(report.state, KELO_SMS_DELIVERED);
    }
    EXPECT_EQ(modem.count("AT+CNMI=2,2,0,1,0"), 1u);
    kelo_deinit_cellular();
}

// Catches: a command of the host's that falls into a message, a flow or the storage's turn, that
// gets an answer of theirs, or costs one of them its own.
TEST_F(Story, CommandsOfTheHostGoBetweenMessagesFlowsAndTheStorage)
{
    plug("RM500Q", {{"prompt_ms", "30"}, {"cmgs_ms", "50"}});
    static cellular_setting settings = {};
    kelo_set_sms_storage(2);
    kelo_init_cellular(&settings, 0);
    ASSERT_TRUE(eventually([] { return mobile_is_ready() != 0; }, within(20s)));
    EXPECT_EQ(kelo_ask("AT+CMGS=\"1\"", 0), KELO_ASK_UNFIT);
    constexpr const char* commands[] = {"AT+CSQ", "ATI", "AT+NONE"};
    std::map<int, std::string> asked;
    int sent = 0, stored = 0, answered = 0, wrong = 0;
    const auto go_on = [&] {
        for (int i = 0; i < 3; i++)
            if (const int number = kelo_ask(commands[i], 5); number > 0)
                asked[number] = commands[i];
        kelo_answer answer;
        char lines[KELO_ANSWER_LONGEST + 1];
        while (kelo_take_answer(&answer, sizeof answer, lines, sizeof lines) == 1) {
            const std::string command = asked[answer.number];
            const std::string what = std::string(lines) + "/" + answer.last;
            answered++;
            if (answer.end == KELO_ASK_PORT_LOST || answer.end == KELO_ASK_NOT_SENT)
                continue;
            const bool right = command == "AT+CSQ" ? what.find("+CSQ: ") != what.npos
                               : command == "ATI"  ? what.find("RM500Q") != what.npos
                                                   : answer.end == KELO_ASK_ERROR;
            wrong += !right;
            EXPECT_TRUE(right) << command << ": " << kelo_ask_end_name(answer.end) << " " << what;
        }
        for (kelo_sms_result result; kelo_take_sms_result(&result, sizeof result) == 1;)
            sent += result.state == KELO_SMS_SENT;
        kelo_message message;
        while (kelo_take_message(&message, sizeof message, lines, sizeof lines) == 1)
            stored++;
    };
    for (int i = 0; i < 6; i++) {
        EXPECT_GT(kelo_send_sms("+491511", text_of_parts(i, 2).c_str(), nullptr), 0);
        order("sms text +4930 hello");
        if (i == 3)
            cellular_reload();
        for (int times = 0; times < 20; times++) {
            go_on();
            quiet(200ms);
        }
    }
    EXPECT_TRUE(eventually(
        [&] {
            go_on();
            return sent == 6 && stored == 6;
        },
        within(60s)))
        << sent << " sent, " << stored << " stored";
    EXPECT_GE(answered, 6); // some before, beside and behind the reload, however slow the machine
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(modem.sent_messages().size(), 12u);
    kelo_deinit_cellular();
}
