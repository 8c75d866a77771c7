// The outbox: order, ownership, and what never gets into it.
#include "sms/sms.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

TEST(Outbox, RefusesWhatIsMissingOrWouldBreakOut)
{
    struct {
        const char *tag, *number, *body;
    } const cases[] = {{nullptr, "1", "b"}, {"", "1", "b"},       {"t", nullptr, "b"},
                       {"t", "", "b"},      {"t", "1", nullptr},  {"t", "1", ""},
                       {"t", "1\r", "b"},   {"t", "1\"", "b"},    {"t", "1\x1a", "b"},
                       {"t", "1", "b\x1a"}, {"t", "1", "b\x1b b"}};
    for (const auto& c : cases)
        EXPECT_EQ(sms_outbox_enq(0, c.tag, c.number, 1, c.body), -1);
    EXPECT_EQ(sms_outbox_deq(), nullptr);
}

// Two threads fill while one empties: nothing is lost, and each one's messages keep their order.
TEST(Outbox, KeepsEachThreadsOrder)
{
    constexpr int count = 2000;
    const auto fill = [](const char* tag) {
        for (int i = 0; i < count; i++)
            ASSERT_EQ(sms_outbox_enq(0, tag, "1", i, "b"), 0);
    };
    std::thread a(fill, "a");
    std::thread b(fill, "b");
    int next[2] = {0, 0};
    while (next[0] < count || next[1] < count) {
        sms_outbox_item* const item = sms_outbox_deq();
        if (item == nullptr) {
            std::this_thread::yield();
            continue;
        }
        const bool second = item->sms_tag[0] == 'b';
        EXPECT_EQ(item->sms_length, next[second]++);
        sms_outbox_free(item);
    }
    a.join();
    b.join();
    EXPECT_EQ(sms_outbox_deq(), nullptr);
}
