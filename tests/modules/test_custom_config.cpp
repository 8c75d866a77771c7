// SPDX-License-Identifier: MIT
// Custom items: what they do to a flow, and what a bad one must not do.
#include "tests/testing.h"

struct CustomConfig : testing::Test {
    CustomConfig() { list_add_tail(&item.node, &cell_at_config_h); }
    void set(int id, int ignore, int timeout, int seq, char* cmd)
    {
        item = {1, FLOW_START, id, ignore, timeout, seq, cmd, item.node};
        libgsm_apply_custom_config();
    }
    char text[8] = "AT+MINE";
    at_config_item item = {};
};

TEST_F(CustomConfig, AddedCommandComesBehindTheHighestSeqAndOnce)
{
    constexpr std::array<int, 5> rows[] = {// highest seq, then seq and timeout, given and expected
                                           {10, 0, 0, 22, 3},
                                           {21, 0, 7, 22, 7},
                                           {94, 0, 0, 95, 3},
                                           {94, 5, 0, 5, 3},
                                           {INT_MAX, 0, -4, INT_MAX, 3}};
    for (const auto& [highest, seq, timeout, seq_then, timeout_then] : rows) {
        add_node(start_sim1_list, 1, highest, "AT+OWN");
        set(200, 0, timeout, seq, text);
        set(200, 0, timeout, seq, text);
        const at_info* const added = at_of(start_sim1_list.prev);
        EXPECT_EQ(added->node.prev->prev, &start_sim1_list);
        EXPECT_EQ(std::tie(added->seq, added->timeout), std::tie(seq_then, timeout_then));
        EXPECT_STREQ(added->cmd, "AT+MINE");
        at_list_free(&start_sim1_list);
    }
}

TEST_F(CustomConfig, ItemWithoutFieldsTakesBackWhatOneSetAndHostileTextIsRefused)
{
    at_info* const at = add_node(start_sim1_list, 1, 1, "AT+OWN");
    at_info* const twin = add_node(start_sim1_list, 1, 2, "AT+OWN");
    set(1, 1, 9, 50, text);
    EXPECT_EQ(at->flags, AT_FLAG_IGNORE);
    EXPECT_EQ(in_words(at->custom_seq, " ", at->timeout, " ", at->custom_cmd), "50 9 AT+MINE");
    EXPECT_EQ(twin->custom_seq, 0) << "only the first node of an id is changed";
    set(1, 0, 0, 0, nullptr);
    EXPECT_EQ(in_words(at->flags, " ", at->custom_seq, " ", at->timeout), "0 0 9");
    EXPECT_EQ(at->custom_cmd, nullptr);
    for (std::string bad : {"AT+A\rAT+B", "AT\n", "AT\x1a"}) {
        captured out;
        for (const int id : {1, 200})
            set(id, 0, 0, 0, bad.data());
        EXPECT_EQ(at->custom_cmd, nullptr);
        EXPECT_EQ(start_sim1_list.prev, &twin->node);
        EXPECT_TRUE(out.has("[ID200] refused"));
    }
}
