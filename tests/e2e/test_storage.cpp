// SPDX-License-Identifier: MIT
// The modem's storage of messages: read at the start, emptied, full, and with the modem gone in its
// middle.
#include "tests/e2e/story.h"

#include <kelo/messages.h>

#include <algorithm>

using namespace kelo_story;

namespace
{

class StoredMessages : public Story, public testing::WithParamInterface<int>
{
  protected:
    // An SMS-DELIVER in UCS-2; part 0: a message by itself, else that one of two.
    static std::string pdu_of(const std::string& letters, int reference = 0, int part = 0)
    {
        char head[64], unit[8];
        const int header = part != 0 ? 6 : 0;
        std::snprintf(head, sizeof head, "00%02X0C91945111325476000842507190032180%02X",
                      part != 0 ? 0x44 : 0x04, header + 2 * static_cast<int>(letters.size()));
        std::string pdu = head;
        std::snprintf(head, sizeof head, "050003%02X02%02X", reference, part);
        pdu += part != 0 ? head : "";
        for (const char c : letters) {
            std::snprintf(unit, sizeof unit, "%04X", c);
            pdu += unit;
        }
        return pdu;
    }
    void store(const std::string& pdu) { order("sms store " + pdu); }
    // Sixteen short ones, and the parts of two long ones between them, out of order.
    line_list store_twenty()
    {
        store(pdu_of("world", 7, 2));
        line_list all;
        for (int i = 0; i < 16; i++) {
            all.push_back("message" + std::to_string(i));
            store(pdu_of(all.back()));
            if (i == 4)
                store(pdu_of("left", 8, 1));
            if (i == 9)
                store(pdu_of("hello", 7, 1));
        }
        store(pdu_of("right", 8, 2));
        all.insert(all.end(), {"helloworld", "leftright"});
        std::ranges::sort(all);
        return all;
    }
    void take()
    {
        kelo_message message;
        char text[4000];
        while (kelo_take_message(&message, sizeof message, text, sizeof text) == 1) {
            texts.push_back(text);
            stored += message.stored;
        }
    }
    std::size_t in_store()
    {
        std::string state;
        EXPECT_EQ(modem.order("state", &state), "");
        return std::stoul(state.substr(state.find("stored messages ") + 16));
    }
    bool emptied(std::size_t messages)
    {
        take();
        return texts.size() >= messages && in_store() == 0;
    }
    line_list sorted() const
    {
        line_list all = texts;
        std::ranges::sort(all);
        return all;
    }
    line_list texts;
    int stored = 0;
};

// How modules differ: whether they list their places, and how they cut what they say.
constexpr const char* ways[][4] = {
    {"sms_list list", "sms_first 0", "sms_empty 321", "sms_torn"},
    {"sms_list range", "sms_first 1", "sms_empty ok", "sms_torn +CMTI: \"ME\",2"},
};

} // namespace

// Catches: a message that is not read, or twice, or deleted unread, though the modem restarts in
// the middle; parts that do not find each other; a report of a new one that goes by.
TEST_P(StoredMessages, AreReadThroughARestartAndDeleted)
{
    ASSERT_EQ(kelo_set_sms_storage(2), 0);
    plug("EC25");
    for (const char* way : ways[GetParam()])
        order("set " + std::string(way));
    if (GetParam() == 1)
        order("split 90 3");
    line_list expected = store_twenty();
    const int before = static_cast<int>(expected.size()) - GetParam(); // one is announced
    order("reset on AT+CMGR=9");
    start();
    ASSERT_TRUE(wire("AT+CMGR=9", 60s));
    take(); // what has come, which the modem may delete only later
    EXPECT_GT(texts.size(), 3u);
    EXPECT_TRUE(eventually([] { return access(port, F_OK) == 0; }, within(10s)));
    stop();
    start();
    EXPECT_TRUE(eventually([&] { return emptied(expected.size()); }, within(90s)));
    EXPECT_EQ(sorted(), expected);
    EXPECT_EQ(stored, before);
    int used = -1, total = 0;
    EXPECT_TRUE(eventually([&] { return kelo_get_sms_storage(&used, &total) == 1 && used == 0; },
                           within(5s)));
    EXPECT_EQ(total, 255);

    order("set sms_torn");
    order("sms text +4915112345678 Door 3 open");
    EXPECT_TRUE(eventually([&] { return emptied(expected.size() + 1); }, within(15s)));
    EXPECT_EQ(texts.back(), "Door 3 open");
    EXPECT_EQ(stored, before);
    EXPECT_EQ(modem.count("AT+CNMI=2,2*"), 0u);
    EXPECT_EQ(modem.count("*+CNMI=2,1,0,1,0"), 2u); // by the flow, each time
}

INSTANTIATE_TEST_SUITE_P(Way, StoredMessages, testing::Values(0, 1));

// Catches: a full memory that nobody hears of, or of which the log is full; messages that the
// network keeps for good; deletions while the messages are to stay.
TEST_F(StoredMessages, FillTheMemoryAndStayOrGo)
{
    ASSERT_EQ(kelo_set_sms_storage(1), 0);
    plug("EC25", {{"sms_size", "20"}, {"sms_full_report", "+QIND: \"smsfull\",\"ME\""}});
    line_list expected = store_twenty();
    start();
    EXPECT_TRUE(eventually([&] { return take(), texts.size() >= expected.size(); }, within(60s)));
    EXPECT_EQ(sorted(), expected);
    for (const char* text : {"late 1", "late 2"})
        order("sms text +4915112345678 " + std::string(text));
    quiet(5000ms);
    EXPECT_GE(modem.count("AT+CMGD=?"), 2u); // a refusal is a reason to look
    EXPECT_EQ(in_store(), 20u);
    EXPECT_EQ(count_of(said(), "the modem's storage is full, 20 of 20 in ME\n"), 1u);

    ASSERT_EQ(cellular_reload(), 0); // they are looked at anew, and known
    EXPECT_TRUE(wire("AT+CMGR=19", 60s, 2));

    ASSERT_EQ(kelo_set_sms_storage(2), 0);
    EXPECT_TRUE(eventually([&] { return emptied(expected.size() + 2); }, within(60s)));
    expected.insert(expected.begin() + 1, {"late 1", "late 2"});
    EXPECT_EQ(sorted(), expected);
}
