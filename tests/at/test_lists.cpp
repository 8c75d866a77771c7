#include "tests/testing.h"

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

} // namespace
