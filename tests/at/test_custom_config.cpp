// Custom items: what they do to a flow, and what a bad one must not do.
#include "at/gsm_at.h"
#include "handlers/handlers.h"

#include <gtest/gtest.h>

#include <climits>
#include <deque>
#include <string>
#include <vector>

using namespace kelo;

namespace
{

class CustomConfig : public testing::Test
{
  protected:
    CustomConfig()
    {
        cur_at_list = &start_sim1_list;
        at_seq_cursor = 0;
    }
    ~CustomConfig() override { forget(); }

    // Back to the empty lists of a library as just loaded.
    void forget()
    {
        list_init(&cell_at_config_h);
        given.clear();
        for (at_list* list :
             {&start_sim1_list, &reload_sim1_list, &start_sim2_list, &reload_sim2_list})
            at_list_free(list);
    }

    static at_info* add_node(at_list* list, int id, int seq)
    {
        at_info* const at = at_info_create(id, nullptr, "AT+OWN", 5, 0, 0, general_handler, seq,
                                           nullptr, 1, nullptr);
        at_list_append(list, at);
        return at;
    }

    at_config_item* add_item(int sim, int flow, int id)
    {
        at_config_item* const item = &given.emplace_back();
        item->sim = sim;
        item->flow = flow;
        item->id = id;
        list_add_tail(&item->node, &cell_at_config_h);
        return item;
    }

    static std::vector<at_info*> nodes(at_list* list)
    {
        std::vector<at_info*> all;
        list_head* node = nullptr;
        list_for_each(node, list) all.push_back(at_of(node));
        return all;
    }

    static std::string apply()
    {
        testing::internal::CaptureStdout();
        libgsm_apply_custom_config();
        return testing::internal::GetCapturedStdout();
    }

    char text[32] = "AT+MINE";
    std::deque<at_config_item> given;
};

} // namespace

TEST_F(CustomConfig, AddedCommandComesBehindTheHighestSeqAndOnce)
{
    struct {
        int highest;
        int seq;
        int timeout;
        int expected_seq;
        int expected_timeout;
    } const cases[] = {
        {10, 0, 0, 22, 3},
        {21, 0, 7, 22, 7},
        {94, 0, 0, 95, 3},
        {94, 5, 0, 5, 3},
        {INT_MAX, 0, -4, INT_MAX, 3},
    };
    for (const auto& c : cases) {
        forget();
        add_node(&start_sim1_list, 1, c.highest);
        at_config_item* const item = add_item(1, FLOW_START, 200);
        item->cmd = text;
        item->seq = c.seq;
        item->timeout = c.timeout;
        apply();
        apply();
        const auto all = nodes(&start_sim1_list);
        ASSERT_EQ(all.size(), 2u);
        EXPECT_EQ(all[1]->seq, c.expected_seq);
        EXPECT_EQ(all[1]->timeout, c.expected_timeout);
        EXPECT_EQ(all[1]->code, AT_CODE_CUSTOM);
        EXPECT_EQ(all[1]->flags, AT_FLAG_CUSTOM);
        EXPECT_STREQ(all[1]->cmd, "AT+MINE");
    }
}

// The text wins over the wish to ignore: that order is what a host relies on.
TEST_F(CustomConfig, TextGoesOutThoughIgnored)
{
    at_info* const with_text = add_node(&start_sim1_list, 1, 1);
    add_node(&start_sim1_list, 2, 2);
    at_config_item* const item = add_item(1, FLOW_START, 1);
    item->ignore = 1;
    item->cmd = text;
    add_item(1, FLOW_START, 2)->ignore = 1;
    apply();
    bool ended = false;
    EXPECT_EQ(libgsm_send_atcommand(&g_mobile, ended), with_text);
    testing::internal::CaptureStdout();
    EXPECT_EQ(libgsm_send_atcommand(&g_mobile, ended), nullptr);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("ignore command 'AT+OWN'!"),
              std::string::npos);
    EXPECT_FALSE(ended);
}

TEST_F(CustomConfig, ItemWithoutFieldsTakesBackWhatOneSet)
{
    at_info* const at = add_node(&start_sim1_list, 1, 1);
    at_info* const twin = add_node(&start_sim1_list, 1, 2);
    at_config_item* const item = add_item(1, FLOW_START, 1);
    *item = {1, FLOW_START, 1, 1, 9, 50, text, item->node};
    apply();
    EXPECT_EQ(at->flags, AT_FLAG_IGNORE);
    EXPECT_EQ(at->custom_seq, 50);
    EXPECT_EQ(at->timeout, 9);
    EXPECT_STREQ(at->custom_cmd, "AT+MINE");
    EXPECT_EQ(twin->custom_seq, 0) << "only the first node of an id is changed";
    *item = {1, FLOW_START, 1, 0, 0, 0, nullptr, item->node};
    apply();
    EXPECT_EQ(at->flags, 0u);
    EXPECT_EQ(at->custom_seq, 0);
    EXPECT_EQ(at->timeout, 9);
    EXPECT_EQ(at->custom_cmd, nullptr);
}

TEST_F(CustomConfig, HostileTextIsRefused)
{
    at_info* const at = add_node(&start_sim1_list, 1, 1);
    at_config_item* const known = add_item(1, FLOW_START, 1);
    at_config_item* const fresh = add_item(1, FLOW_START, 200);
    for (const char* bad : {"AT+A\rAT+B", "AT\n", "AT\x1a"}) {
        std::string copy = bad;
        known->cmd = fresh->cmd = copy.data();
        const std::string said = apply();
        EXPECT_EQ(at->custom_cmd, nullptr);
        EXPECT_EQ(nodes(&start_sim1_list).size(), 1u);
        EXPECT_NE(said.find("[ID200] refused"), std::string::npos) << said;
    }
}

TEST_F(CustomConfig, TimeoutsGoToTheFirstNodeOfTheGivenListWhateverTheItemsFlow)
{
    at_info* const at = add_node(&reload_sim2_list, 7, 1);
    at_info* const twin = add_node(&reload_sim2_list, 7, 2);
    at_info* const other = add_node(&reload_sim2_list, 8, 3);
    add_item(1, FLOW_START, 7)->timeout = 40;
    add_item(2, FLOW_RELOAD, 8)->timeout = -1;
    testing::internal::CaptureStdout();
    libgsm_set_at_timeout(&reload_sim2_list);
    const std::string said = testing::internal::GetCapturedStdout();
    EXPECT_EQ(at->timeout, 40);
    EXPECT_EQ(twin->timeout, 5);
    EXPECT_EQ(other->timeout, 5);
    EXPECT_NE(said.find("[ID7] update timeout (40)\n\n"), std::string::npos);
    EXPECT_NE(said.find("[ID8] refused timeout (-1)"), std::string::npos);
}
