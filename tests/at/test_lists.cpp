// SPDX-License-Identifier: MIT
#include "tests/testing.h"

using nodes = std::vector<std::array<int, 3>>; // id, seq, custom seq

static void add(at_list& list, const nodes& wanted)
{
    for (const auto& [id, seq, custom_seq] : wanted)
        add_node(list, id, seq, "AT")->custom_seq = custom_seq;
}

static std::string walk(at_list* list)
{
    std::string ids;
    while (at_info* const at = at_list_next(list))
        ids += std::to_string(at->id) + " ";
    return ids;
}

// The order of a flow: by the seq that counts, then by place; a negative seq lies below any pass,
// and the highest there is must not hang the walk. The list grows behind a pass: rows at or above
// the cursor are seen, those below are not.
TEST(AtListNext, LowestUnsentSeqAtOrAboveTheCursor)
{
    const std::tuple<const char*, nodes, const char*, nodes, const char*> rows[] = {
        {"ties by place", {{1, 5, 0}, {2, 5, 0}, {3, 1, 5}}, "1 2 3 ", {}, ""},
        {"custom seq counts", {{1, 1, 9}, {2, 5, 0}}, "2 1 ", {}, ""},
        {"negative is below the pass", {{1, -1, 0}, {2, 1, -7}, {3, 0, 0}}, "3 ", {}, ""},
        {"the highest seq", {{1, 1, INT_MAX}, {2, INT_MAX, 0}, {3, 2, 0}}, "3 1 2 ", {}, ""},
        {"grows", {{1, 1, 0}, {2, 10, 0}}, "1 2 ", {{3, 9, 0}, {4, 10, 0}, {5, 90, 0}}, "4 5 "}};
    for (const auto& [what, before, walked, added, walked_then] : rows) {
        at_list list = LIST_HEAD_INIT(list);
        at_seq_cursor = 0;
        add(list, before);
        EXPECT_EQ(walk(&list), walked) << what;
        add(list, added);
        EXPECT_EQ(walk(&list), walked_then) << what;
        at_list_free(&list);
    }
}

// Catches: the flow of one SIM that walks the list of the other's, a rest of no flow.
TEST(Lists, EachFlowHasItsOwn)
{
    const std::tuple<int, int, at_list*> rows[] = {{FLOW_START, 1, &start_sim1_list},
                                                   {FLOW_START, 2, &start_sim2_list},
                                                   {FLOW_RELOAD, 1, &reload_sim1_list},
                                                   {FLOW_RELOAD, 2, &reload_sim2_list},
                                                   {FLOW_START, 3, nullptr},
                                                   {FLOW_RELOAD, 0, nullptr},
                                                   {FLOW_SMS_PDU, 1, nullptr},
                                                   {FLOW_SMS_TEXT, 2, nullptr}};
    for (const auto& [flow, sim, list] : rows)
        EXPECT_EQ(at_list_of(flow, sim), list) << flow << " " << sim;
    cur_at_list = nullptr;
    at_flow_skip_rest();
    at_list list = LIST_HEAD_INIT(list);
    add(list, {{1, 1, 0}, {2, 2, 0}});
    cur_at_list = &list;
    at_flow_skip_rest();
    EXPECT_EQ(walk(&list), "");
    cur_at_list = nullptr;
    at_list_free(&list);
    at_info_free(nullptr);
}
