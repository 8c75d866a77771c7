// SPDX-License-Identifier: MIT
// The SIM guard: what a card says of itself, and when its PIN may go out.
#include "handlers/sim_guard.h"
#include "tests/handlers/feed.h"

// The PIN of the settings, as a host sets it.
static void set_pin(const char* pin)
{
    cellular_setting settings{};
    text_set(settings.pin, pin);
    settings_store(settings);
}

// What the modem says, '|' between lines.
static void hear(const std::string& lines)
{
    std::istringstream all(lines);
    for (std::string line; std::getline(all, line, '|');) {
        sim_guard_hear(line.c_str());
        sim_guard_answer(&g_mobile, line.c_str());
    }
}

// What goes out next, and what is said to it; to all but one command, if it is named, an error.
static std::string turn(const std::string& answer, const char* command = nullptr)
{
    char text[64] = "";
    const pin_step step = sim_guard_next(text);
    const bool knows = command == nullptr || std::strcmp(text, command) == 0;
    hear(knows ? answer : "ERROR");
    return step == pin_step::pass ? "-" : text;
}

// All questions, until one is answered, then what follows it.
static std::string dialogue(const std::string& tries, const std::string& verdict)
{
    std::string said = turn(tries);
    for (std::string next; (next = turn(verdict)) != "-" && said.size() < 200;)
        said += " " + next;
    return said;
}

constexpr const char* asked = "AT+QPINC=\"SC\"";

TEST(SimGuard, StatesOfACard)
{
    using enum sim_state;
    const std::pair<const char*, sim_state> rows[] = {{"+CPIN: READY", ready},
                                                      {"+CPIN: SIM PIN", pin},
                                                      {"+CPIN: SIM PUK", puk},
                                                      {"+CPIN: SIM PIN2", ready},
                                                      {"+CPIN: SIM PUK2", ready},
                                                      {"+CPIN: NOT READY", missing},
                                                      {"+CME ERROR: 10", missing},
                                                      {"+CME ERROR: 100", missing},
                                                      {"+CME ERROR: 11", pin},
                                                      {"+CME ERROR: 12", puk},
                                                      {"+CME ERROR: 13", failed},
                                                      {"+CME ERROR: SIM PUK required", puk},
                                                      {"+CPIN: PH-NET PIN", puk},
                                                      {"^SIMST: 255,0", missing},
                                                      {"AT+CPIN=\"+CPIN: READY\"", missing}};
    for (const auto& [line, expected] : rows) {
        sim_guard_hear(line);
        EXPECT_EQ(sim_guard_look().state, expected) << line;
    }
}

// One question in the words of each maker, and how many tries its answer leaves.
TEST(SimGuard, TriesLeft)
{
    const std::tuple<const char*, const char*, int> rows[] = {
        {"+QPINC: \"SC\",3,10|OK", "AT+QPINC=\"SC\"", 3},
        {"+QPINC: SC,2,10|OK", "AT+QPINC=\"SC\"", 2},
        {"+CPINR: SIM PIN,1,3|+CPINR: SIM PIN2,3,3|OK", "AT+CPINR", 1},
        {"#PCT: 2|OK", "AT#PCT", 2},
        {"^CPIN: SIM PIN,2,10,2,10,3|OK", "AT^CPIN?", 2},
        {"^CPIN: SIM PIN,1|OK", "AT^CPIN?", 1},
        {"+CSIM: 4,\"63C2\"|OK", "AT+CSIM=10,\"0020000100\"", 2},
        {"+CSIM: 4,\"6983\"|OK", "AT+CSIM=10,\"0020000100\"", 0},
        {"+CSIM: 4,\"6A88\"|OK", "AT+CSIM=10,\"0020000100\"", -1},
        {"+QPINC: \"P2\",3,10|COMMAND NOT SUPPORT", "AT+QPINC=\"SC\"", -1}};
    for (const auto& [answer, question, tries] : rows) {
        sim_guard_hear("+CPIN: NOT INSERTED");
        sim_guard_hear("+CPIN: SIM PIN");
        std::string said;
        for (int i = 0; i < 5 && said != question; i++)
            said = turn(answer, question);
        EXPECT_EQ(said, question);
        EXPECT_EQ(sim_guard_look().tries, tries) << answer;
    }
}

// A wrong PIN is sent once, a new one once with two tries left, the last try is never spent.
TEST(SimGuard, ARefusedPinGoesOutOnce)
{
    set_pin("9999");
    sim_guard_hear("+CPIN: SIM PIN");
    EXPECT_EQ(dialogue("+QPINC: \"SC\",3,10|OK", "+CME ERROR: 16"), in_words(asked, " 9999"));
    EXPECT_TRUE(sim_guard_look().refused);
    EXPECT_EQ(turn("OK"), "-");
    set_pin("8888");
    EXPECT_FALSE(sim_guard_look().refused);
    EXPECT_TRUE(sim_guard_look().may_send);
    EXPECT_EQ(dialogue("+CME ERROR: incorrect password", ""), "8888");
    set_pin("1234");
    EXPECT_FALSE(sim_guard_look().may_send);
    EXPECT_EQ(turn("OK"), "-") << "one try left";
    sim_guard_rule(1);
    EXPECT_EQ(turn("OK"), "1234") << "the host has said so";
    EXPECT_EQ(sim_guard_look().state, sim_state::ready);
    EXPECT_EQ(std::pair(sim_guard_look().tries, is_pin_ready), std::pair(3, 1));
}

// A card that comes with fewer than three is left alone, until a new PIN is set.
TEST(SimGuard, FewTriesHoldItBack)
{
    set_pin("1234");
    sim_guard_hear("+CPIN: SIM PIN");
    EXPECT_EQ(dialogue("+QPINC: \"SC\",2,10|OK", ""), asked);
    EXPECT_FALSE(sim_guard_look().may_send);
    set_pin("4321");
    EXPECT_EQ(turn("OK"), "4321");
    // Another card is asked anew. What does not ask for a PIN gets none.
    sim_guard_hear("+CPIN: NOT READY");
    sim_guard_hear("+CPIN: SIM PIN");
    EXPECT_EQ(turn("ERROR"), asked);
    sim_guard_hear("+CPIN: READY");
    EXPECT_EQ(turn(""), "-");
}

// What follows a PIN that nobody answered. Catches: the OK of a question that is taken for the
// PIN's, and a PIN that is never sent again though it has not cost a try.
TEST(SimGuard, APinThatNobodyAnswered)
{
    constexpr const char* asks = "+CPIN: SIM PIN|OK";
    const std::tuple<const char*, const char*, const char*, bool> rows[] = {
        {asks, "+QPINC: \"SC\",3,10|OK", "1111", false}, // it never got there
        {asks, "+QPINC: \"SC\",2,10|OK", "-", true},     {asks, "ERROR", "AT+CPINR", false},
        {"", "+QPINC: \"SC\",3,10|OK", "1111", false},   {"+CPIN: SIM PUK|OK", "OK", "-", true},
    };
    set_pin("1111");
    for (const auto& [state, tries, next, refused] : rows) {
        hear("+CPIN: NOT READY|+CPIN: SIM PIN");
        EXPECT_EQ(turn("+QPINC: \"SC\",3,10|OK"), asked);
        EXPECT_EQ(turn(""), "1111");
        hear(state);
        EXPECT_NE(sim_guard_look().state, sim_state::ready) << state;
        turn(tries);
        EXPECT_EQ(sim_guard_look().refused, refused) << state << tries;
        EXPECT_EQ(turn(""), next) << state << tries;
    }
    // A modem that says nothing for a while: asked again, until it tells.
    hear("+CPIN: NOT READY|+CPIN: SIM PIN");
    for (int i = 0; i < 5; i++)
        turn("");
    EXPECT_EQ(turn(""), "1111") << "no question was understood";
    for (int walk = 0; walk < 3; walk++) {
        hear(asks);
        for (int i = 0; i < 5; i++)
            EXPECT_EQ(text_begins(turn("").c_str(), "AT"), true);
        EXPECT_EQ(turn(""), "-");
        EXPECT_FALSE(sim_guard_look().refused);
        EXPECT_TRUE(sim_guard_look().may_send);
    }
    EXPECT_EQ(dialogue("+QPINC: \"SC\",3,10|OK", "OK"), in_words(asked, " 1111"));
    // It was right, and is as good behind the modem's next start.
    hear("+CPIN: NOT READY|+CPIN: SIM PIN");
    for (int i = 0; i < 6; i++)
        turn("");
    hear("+CPIN: READY|+CPIN: SIM PIN");
    EXPECT_EQ(turn("OK"), "1111");
}

// One slot's PIN never goes to the other's card; no outcome is as bad as a refusal.
TEST(SimGuard, SlotsAndSilence)
{
    set_pin("1111");
    word_set(selected_card, 2);
    sim_guard_hear("+CPIN: SIM PIN");
    EXPECT_EQ(dialogue("+QPINC: \"SC\",3,10|OK", ""), asked);
    cell_sim_config(2)->pin = "2222";
    EXPECT_EQ(turn(""), "2222"); // and no word on it
    EXPECT_EQ(dialogue("+QPINC: \"SC\",2,10|OK", ""), asked);
    EXPECT_TRUE(sim_guard_look().refused);
    cell_sim_config(2)->pin = nullptr;
    word_set(selected_card, 1);
    EXPECT_EQ(turn("+QPINC: \"SC\",3,10|OK"), asked);
    EXPECT_EQ(turn("+CME ERROR: 14"), "1111");
    EXPECT_TRUE(sim_guard_look().may_send) << "it was busy";
}

// Catches: an answer of the guard's dialogue that goes by, one of no dialogue that it takes, a
// report ahead of the OK that is taken for a refusal.
TEST(SimGuard, AKeepersAnswersComeThroughTheHandler)
{
    set_pin("1111");
    EXPECT_EQ(feed(cpin_handler, "+CPIN: SIM PIN"), GSM_EVENT_PIN_REQUIRED);
    word_set(keeper_on, 1);
    EXPECT_EQ(feed(cpin_handler, "+CPIN: SIM PIN"), GSM_EVENT_PIN_REQUIRED);
    sim_guard_hear("+CPIN: SIM PIN");
    char text[64] = "";
    EXPECT_EQ(sim_guard_next(text), pin_step::ask);
    EXPECT_EQ(feed(cpin_handler, "+QPINC: \"SC\",3,10|OK"), 0);
    EXPECT_EQ(sim_guard_look().tries, 3);
    EXPECT_EQ(sim_guard_next(text), pin_step::send);
    EXPECT_EQ(feed(cpin_handler, "AT+CPIN=\"1111\"|+CPIN: READY|+QUSIM: 1|OK"), 0);
    EXPECT_FALSE(sim_guard_look().refused);
    EXPECT_EQ(sim_guard_look().state, sim_state::ready);
}
