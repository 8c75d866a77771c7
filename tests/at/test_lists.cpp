#include "testing.h"

#include <array>
#include <climits>

namespace
{

using namespace kelo;
using kelo::test::add_node;
using kelo::test::captured;

std::string walk(at_list* list)
{
    std::string ids;
    while (at_info* const at = at_list_next(list))
        ids += std::to_string(at->id) + " ";
    return ids;
}

// The order of a flow: by the seq that counts, then by place; a negative seq lies below any pass,
// and the highest there is must not hang the walk.
TEST(AtListNext, LowestUnsentSeqAtOrAboveTheCursor)
{
    struct row {
        const char* what;
        std::vector<std::array<int, 3>> nodes; // id, seq, custom seq
        const char* want;
    };
    const row rows[] = {
        {"ties by place", {{1, 5, 0}, {2, 5, 0}, {3, 1, 5}}, "1 2 3 "},
        {"custom seq counts", {{1, 1, 9}, {2, 5, 0}}, "2 1 "},
        {"negative is below the pass", {{1, -1, 0}, {2, 1, -7}, {3, 0, 0}}, "3 "},
        {"the highest seq", {{1, 1, INT_MAX}, {2, INT_MAX, 0}, {3, 2, 0}}, "3 1 2 "}};
    for (const row& r : rows) {
        at_list list = LIST_HEAD_INIT(list);
        for (const auto& [id, seq, custom_seq] : r.nodes)
            add_node(list, id, seq, "AT")->custom_seq = custom_seq;
        at_seq_cursor = 0;
        EXPECT_EQ(walk(&list), r.want) << r.what;
        at_list_free(&list);
    }
}

// The list grows under the pass: new rows at or above the cursor are seen, those below are not.
TEST(AtListNext, RowsAddedDuringThePass)
{
    at_list list = LIST_HEAD_INIT(list);
    add_node(list, 1, 1, "AT");
    add_node(list, 2, 10, "AT");
    EXPECT_EQ(at_list_next(&list)->id, 1);
    EXPECT_EQ(at_list_next(&list)->id, 2);
    add_node(list, 3, 9, "AT");
    add_node(list, 4, 10, "AT");
    add_node(list, 5, 90, "AT");
    EXPECT_EQ(walk(&list), "4 5 ");
    at_list_free(&list);
}

// Every refusal says why.
TEST(Catalogue, PrivateRowsTakeTheFirstItemOfTheirExactKey)
{
    char names[][16] = {"AT_SET_APN2", "AT_SET_APN", "AT_SET_APN"};
    char values[][16] = {"AT+A", "AT+B=\"$APN\"", "AT+C"};
    cfg_item items[3] = {};
    cfg_file profile = {};
    list_init(&profile.items);
    for (int i = 0; i < 3; i++) {
        items[i] = {names[i], values[i], {}};
        list_add_tail(&items[i].node, &profile.items);
    }
    at_list list = LIST_HEAD_INIT(list);
    captured out;
    EXPECT_EQ(at_list_add_private(&list, 50, 1, nullptr), at_no_row);
    EXPECT_TRUE(out.has("unknown model!\n"));
    EXPECT_EQ(at_list_add_private(&list, 9, 1, &profile), at_no_row);
    EXPECT_TRUE(out.has("the at(id=9) do not exist in private array!\n"));
    EXPECT_EQ(at_list_add_private(&list, 15, 1, &profile), at_no_row);
    EXPECT_TRUE(out.has("the at(AT_GET_ICCID) do not exist in cfg file!\n"));
    ASSERT_TRUE(list_empty(&list));

    ASSERT_EQ(at_list_add_private(&list, 50, 54, &profile), at_added);
    const at_info* const at = at_of(list.next);
    EXPECT_STREQ(at->cmd_template, "AT+B=\"$APN\"");
    EXPECT_EQ(at->cmd, nullptr); // until its pre-treatment has run
    EXPECT_EQ(at->seq, 54);
    at_list_free(&list);
}

// A slow family's time is written into the row, and so outlives the family code.
TEST(Catalogue, FamilyTimeoutsLast)
{
    constexpr std::array<int, 3> rows[] = {{0, 33, 30},  {0, 13, 5},   {13, 33, 60}, {0, 33, 60},
                                           {10, 33, 20}, {10, 13, 30}, {0, 13, 30},  {10, 12, 3}};
    for (const auto& [family, id, timeout] : rows) {
        at_list list = LIST_HEAD_INIT(list);
        is_quectel = family;
        ASSERT_EQ(at_list_add_general(&list, id, 1), at_added);
        EXPECT_EQ(at_of(list.next)->timeout, timeout) << family << ":" << id;
        at_list_free(&list);
    }
}

} // namespace
