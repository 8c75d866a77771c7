// SPDX-License-Identifier: MIT
// What other threads hand in: commands, and messages for the outbox.
#include "tests/e2e/story.h"

using namespace kelo_story;

using Senders = Story;

// Catches: commands of several threads that mix on the wire, or are lost; a text that is torn.
TEST_F(Senders, SendersDoNotMix)
{
    constexpr int threads = 4, lines = 50;
    plug("EC25");
    start();
    ASSERT_TRUE(wire("AT+QSIMDET=1,0", 5s));
    const auto text = [](int sender, int line) {
        return "AT+FROM" + std::to_string(sender) + "=" + std::to_string(line) + ",\"" +
               std::string(40, 'a') + "\"";
    };
    std::vector<std::thread> senders;
    for (int sender = 0; sender < threads; sender++)
        senders.emplace_back([=] {
            for (int line = 0; line < lines; line++, usleep(2000))
                EXPECT_EQ(libgsm_send_at(text(sender, line).c_str()), 0);
        });
    // Under the thread checker: copies of the record, and reloads, beside them.
    std::atomic<bool> enough = false;
    int torn = 0;
    std::thread reader([&] {
        while (!enough)
            torn += record().model != std::string("EC25");
    });
    for (int i = 0; i < 3; i++, usleep(150000))
        EXPECT_EQ(cellular_reload(), 0);
    for (std::thread& sender : senders)
        sender.join();
    enough = true;
    reader.join();
    EXPECT_EQ(torn, 0);
    EXPECT_TRUE(wire("AT+FROM*", 10s, threads * lines));
    int next[threads] = {};
    for (const std::string& command : modem.commands())
        if (command.starts_with("AT+FROM")) {
            const int sender = command.at(7) - '0';
            EXPECT_EQ(command, text(sender, next[sender % threads]++));
        }
    EXPECT_EQ(modem.count("AT+CGMM"), 1u); // the flow's own commands stay whole, too
}

namespace
{

class Outbox : public Story, public testing::WithParamInterface<int>
{
};

constexpr const char* pdus[] = {"0011000D91945111325476F80000AA07D4721B0E92C500",
                                "0011000D91945111325476F80000AA02C834"};

} // namespace

// Catches: a message that goes out unregistered, is lost, is replaced by the next one, or passes
// it.
TEST_P(Outbox, WaitsForRegistrationAndKeepsOrder)
{
    libgsm_set_smsmode(GetParam()); // 1: without AT_UCS2
    // An EC25 that is ready but for its registration, in a slow network.
    is_quectel = 10; // a family whose registration reports are read at any time
    change(29, 0, 1);
    change(32, 0, 1); // neither AT+CGREG? nor AT+COPS?
    plug("EC25", {{"cmgs_ms", std::to_string(real(1200ms).count())}});
    start();
    ASSERT_TRUE(says("ignore command 'AT+COPS?'!\n", within(40s)));
    modem.clear_log();
    EXPECT_EQ(sms_outbox_enq(0, "first", "+4915112345678", 22, pdus[0]), 0);
    EXPECT_EQ(sms_outbox_enq(0, "second", "+4915112345678", 17, pdus[1]), 0);
    EXPECT_EQ(sms_outbox_enq(1, "third", "+4915112345678", 11, "Door 3 open"), 0);
    EXPECT_EQ(sms_outbox_enq(0, "forged", "1\"\r\nATD1;", 17, pdus[1]), -1);
    quiet(2200ms);
    EXPECT_EQ(modem.commands(), line_list{});

    modem.report("+CEREG: 1,\"5A1C\",\"7C4B10D\",7");
    ASSERT_TRUE(eventually([&] { return modem.sent_messages().size() == 3; }, within(25s)));
    quiet(1500ms);
    const std::string coding = GetParam() == 0 ? " AT+CSCS=\"GSM\"" : "";
    EXPECT_EQ(modem.commands(),
              words("AT+CMGF=0" + coding + " AT+CMGS=22 AT+CMGF=0" + coding + " AT+CMGS=17 " +
                    R"(AT+CMGF=1 AT+CSCS="GSM" AT+CMGS="+4915112345678" AT+CMGF=0)"));
    const auto messages = modem.sent_messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0].body, pdus[0]);
    EXPECT_EQ(messages[1].body, pdus[1]);
    EXPECT_EQ(messages[2].target + ": " + messages[2].body, "+4915112345678: Door 3 open");
    EXPECT_EQ(sms_outbox_deq(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Mode, Outbox, testing::Values(0, 1));
