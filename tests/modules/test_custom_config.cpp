#include "modules/modules.h"
// Custom items: what they do to a flow, and what a bad one must not do.
#include "tests/testing.h"

#include <climits>
#include <deque>

using namespace kelo;
using kelo::test::add_node;
using kelo::test::captured;

namespace
{

char text[] = "AT+MINE";
std::deque<at_config_item> given;

at_config_item* add_item(int sim, int flow, int id)
{
    at_config_item* const item = &given.emplace_back();
    *item = {sim, flow, id, 0, 0, 0, nullptr, {}};
    list_add_tail(&item->node, &cell_at_config_h);
    return item;
}

TEST(CustomConfig, AddedCommandComesBehindTheHighestSeqAndOnce)
{
    constexpr int rows[][5] = {
        // highest seq, then seq and timeout, given and expected
        {10, 0, 0, 22, 3},
        {21, 0, 7, 22, 7},
        {94, 0, 0, 95, 3},
        {94, 5, 0, 5, 3},
        {INT_MAX, 0, -4, INT_MAX, 3},
    };
    cur_at_list = &start_sim1_list;
    at_config_item* const item = add_item(1, FLOW_START, 200);
    item->cmd = text;
    for (const auto& r : rows) {
        add_node(start_sim1_list, 1, r[0], "AT+OWN");
        item->seq = r[1];
        item->timeout = r[2];
        libgsm_apply_custom_config();
        libgsm_apply_custom_config();
        const at_info* const added = at_of(start_sim1_list.prev);
        EXPECT_EQ(added->node.prev->prev, &start_sim1_list);
        EXPECT_EQ(added->seq, r[3]);
        EXPECT_EQ(added->timeout, r[4]);
        EXPECT_STREQ(added->cmd, "AT+MINE");
        at_list_free(&start_sim1_list);
    }
}

TEST(CustomConfig, ItemWithoutFieldsTakesBackWhatOneSetAndHostileTextIsRefused)
{
    cur_at_list = &start_sim1_list;
    at_info* const at = add_node(start_sim1_list, 1, 1, "AT+OWN");
    at_info* const twin = add_node(start_sim1_list, 1, 2, "AT+OWN");
    at_config_item* const item = add_item(1, FLOW_START, 1);
    *item = {1, FLOW_START, 1, 1, 9, 50, text, item->node};
    libgsm_apply_custom_config();
    EXPECT_EQ(at->flags, AT_FLAG_IGNORE);
    EXPECT_EQ(at->custom_seq, 50);
    EXPECT_EQ(at->timeout, 9);
    EXPECT_STREQ(at->custom_cmd, "AT+MINE");
    EXPECT_EQ(twin->custom_seq, 0) << "only the first node of an id is changed";
    *item = {1, FLOW_START, 1, 0, 0, 0, nullptr, item->node};
    libgsm_apply_custom_config();
    EXPECT_EQ(at->flags, 0u);
    EXPECT_EQ(at->custom_seq, 0);
    EXPECT_EQ(at->timeout, 9);
    EXPECT_EQ(at->custom_cmd, nullptr);
    at_config_item* const fresh = add_item(1, FLOW_START, 200);
    for (std::string bad : {"AT+A\rAT+B", "AT\n", "AT\x1a"}) {
        item->cmd = fresh->cmd = bad.data();
        captured out;
        libgsm_apply_custom_config();
        EXPECT_EQ(at->custom_cmd, nullptr);
        EXPECT_EQ(start_sim1_list.prev, &twin->node);
        EXPECT_TRUE(out.has("[ID200] refused"));
    }
}

} // namespace
