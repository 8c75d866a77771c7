#include "host/outbox.h"
#include "tests/host/fakes.h"

#include <gtest/gtest.h>

using namespace kelo_host;

// clang-format off

// Catches: a field taken for one of another length, and numbers read from where there are none.
TEST(PduPart, IsReadFromTheUserDataHeader)
{
    // service centre, first octet, reference, number, protocol and coding, validity, length, header
    const std::tuple<std::string, int, int> rows[] = {
        {"00 4100 0B919471000000F1 0008                08 050003CC0302", 2, 3},
        {"00 5100 0B919471000000F1 0008 AA             08 050003CC0302", 2, 3},
        {"00 4900 0B919471000000F1 0008 11111111111111 08 050003CC0302", 2, 3},
        {"00 5900 0B919471000000F1 0008 11111111111111 08 050003CC0302", 2, 3},
        {"0791449703920000 4100 0A919471000000 0000 A0 060804CC01FF0F", 15, 255},
        {"00 4100 0391214F 0000 A0 050003CC0a0A", 10, 10},
        {"00 0100 0391214F 0000 A0 050003CC0302", 1, 1}, // no header
        {"00 4100 0391214F 0000 A0 060504CC010402", 1, 1}, // ports
        {"00 4100 0391214F 0000 A0 050003CC0300", 1, 1}, // part 0
        {"00 4100 0391214F 0000 A0 050003CC0304", 1, 1}, // part 4 of 3
        {"00 4100 0391214F 0000 A0 050003CC03", 1, 1},   // cut off
        {"FF", 1, 1}, {"", 1, 1}, {"zz 4100 0B", 1, 1}};
    for (auto [pdu, number, total] : rows) {
        std::erase(pdu, ' ');
        const pdu_part part = part_of_pdu(pdu);
        EXPECT_EQ(std::pair(part.number, part.total), std::pair(number, total)) << pdu;
    }
}

namespace
{

// The record while a part of a message is in flight; seen: its command has the answer. `ok`: so says the last event.
template <int message, int part, int parts, bool seen, bool ok> void flight()
{
    g_mobile.flow = FLOW_SMS_PDU;
    std::snprintf(g_mobile.sms_tag, sizeof g_mobile.sms_tag, "kelo-host-%d", message);
    std::snprintf(g_mobile.sms_text, sizeof g_mobile.sms_text, "0041000391214F0000A0050003CC%02X%02X", parts, part);
    g_mobile.reg_seen = seen;
    g_mobile.last_event = ok ? GSM_EVENT_SMS_SEND_OK : GSM_EVENT_SIM_UP;
}
void other_flow() { g_mobile.flow = FLOW_RELOAD; g_mobile.reg_seen = 1; }
void flow_again() { g_mobile.flow = FLOW_SMS_PDU; }
void registered() { cellular_set_status(CELL_STATUS_READY); }
void failed() { cellular_set_status(CELL_STATUS_SMS_FAILED); }

// What the library holds for the modem.
std::string queued()
{
    std::string parts;
    while (sms_outbox_item* item = sms_outbox_deq()) {
        parts += std::string(item->sms_tag) + " " + item->sms_number + ";";
        sms_outbox_free(item);
    }
    return parts;
}

// NOLINTNEXTLINE(readability-identifier-naming): the name of the suite
struct Sending : testing::Test {
    void SetUp() override { fresh_library(); }
    outbox messages{note};
    const std::function<void(moment)> pass = [this](moment now) { messages.pass(now); };
};

} // namespace

// Catches: a message handed over twice or ahead of its turn, one that waits for a network for ever, and a wait that
// counts from another message's begin.
TEST_F(Sending, WaitsForTheNetworkAndItsTurn)
{
    messages.add("+491", "never");
    messages.add("+492", std::string(161, 'x'));
    walk(pass, {{0, nullptr, ""}, {299999, nullptr, ""},
                {300000, nullptr, "message to +491: not sent: the modem was not registered in 300 s;"},
                {300250, nullptr, ""}, {600249, nullptr, ""}});
    EXPECT_EQ(queued(), "");
    walk(pass, {{600249, registered, ""}, {600250, nullptr, ""}});
    EXPECT_EQ(queued(), "kelo-host-1 +492;kelo-host-1 +492;");
    EXPECT_EQ(std::pair(messages.busy(), messages.not_sent()), std::pair(true, 1));
}

// Catches: what the record still shows of another part or message taken for the answer to this one, one answer counted
// twice, and one missed that shows only with the next part.
TEST_F(Sending, CountsTheAnswerToEachPart)
{
    registered();
    messages.add("+491", "a");
    messages.add("+492", "b");
    walk(pass, {{0, nullptr, ""}, {100, flight<7, 1, 1, false, false>, ""}, {150, nullptr, ""},
                {200, flight<7, 1, 1, true, true>, ""}, {300, flight<1, 1, 3, true, true>, ""}, {400, nullptr, ""},
                {500, flight<1, 1, 3, false, true>, ""},
                {600, flight<1, 2, 3, true, true>, "message to +491: 1 of 3 parts sent;"}, {700, nullptr, ""},
                {800, flight<1, 2, 3, true, false>, ""},
                {900, flight<1, 2, 3, true, true>, "message to +491: 2 of 3 parts sent;"},
                {1000, flight<1, 2, 3, false, false>, ""}, {1100, flight<1, 2, 3, true, true>, ""},
                {1200, flight<1, 3, 3, false, true>, ""}, {1300, nullptr, ""}, {1400, other_flow, ""},
                {1500, flow_again, "message to +491: sent, 3 of 3 parts confirmed;"},
                {1600, nullptr, ""}, {1700, flight<2, 1, 1, false, true>, ""}, {1800, nullptr, ""},
                {1900, flight<2, 1, 1, true, true>, "message to +492: sent, 1 of 1 parts confirmed;"}});
    EXPECT_EQ(queued(), "kelo-host-1 +491;kelo-host-2 +492;");
    EXPECT_EQ(std::pair(messages.busy(), messages.not_sent()), std::pair(false, 0));
}

// Catches: a failure of before laid on this message, one of its own not seen, and a message without an answer that
// holds up all others, or is given up while its parts still go out.
TEST_F(Sending, TellsWhatBecameOfAMessageThatDidNotGoOut)
{
    registered();
    messages.add("+491", "a");
    messages.add("+492", "b");
    messages.add("+493", std::string(65000, 'x'));
    walk(pass, {{0, failed, ""}, {100, flight<1, 1, 2, false, false>, ""}, {200, nullptr, ""},
                {300, flight<1, 2, 2, true, true>, "message to +491: 1 of 2 parts sent;"},
                {400, failed, "message to +491: failed, with 1 of 2 parts sent;"}, {500, nullptr, ""},
                {140000, flight<2, 1, 2, false, false>, ""}, {289999, nullptr, ""},
                {289999, flight<2, 1, 2, true, true>, "message to +492: 1 of 2 parts sent;"}, {439998, nullptr, ""},
                {439999, nullptr, "message to +492: no answer in 150 s, with 1 of 2 parts sent;"},
                {440000, nullptr, "message to +493: refused by the library: too long, or no memory;"}});
    EXPECT_EQ(std::pair(messages.busy(), messages.not_sent()), std::pair(false, 3));
}
