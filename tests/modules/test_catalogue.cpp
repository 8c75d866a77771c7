// SPDX-License-Identifier: MIT
#include "modules/commands.h"
#include "tests/testing.h"

// Private rows take the first item of their exact key. Every refusal says why.
TEST(Catalogue, PrivateRowsTakeTheFirstItemOfTheirExactKey)
{
    char items[] = "AT_SET_APN2\0AT+A\0AT_SET_APN\0AT+B=\"$APN\"\0AT_SET_APN\0AT+C";
    cfg_file profile = {};
    profile.items = items;
    profile.items_size = sizeof items;
    at_list list = LIST_HEAD_INIT(list);
    captured out;
    EXPECT_EQ(at_list_add_private(&list, command::set_apn, 1, nullptr), at_no_row);
    EXPECT_EQ(at_list_add_private(&list, command::cgmm, 1, &profile), at_no_row);
    EXPECT_EQ(at_list_add_private(&list, command::get_iccid, 1, &profile), at_no_row);
    for (const char* why : {"unknown model!\n", "the at(id=9) do not exist in private array!\n",
                            "the at(AT_GET_ICCID) do not exist in cfg file!\n"})
        EXPECT_TRUE(out.has(why)) << why;
    ASSERT_TRUE(list_empty(&list));

    ASSERT_EQ(at_list_add_private(&list, command::set_apn, 54, &profile), at_added);
    const at_info* const at = at_of(list.next);
    EXPECT_STREQ(at->cmd_template, "AT+B=\"$APN\"");
    EXPECT_EQ(at->cmd, nullptr); // until its pre-treatment has run
    EXPECT_EQ(at->seq, 54);
    at_list_free(&list);
}

// A slow family's time is written into the row, and so outlives the family code.
TEST(Catalogue, FamilyTimeoutsLast)
{
    using namespace command;
    constexpr std::array<int, 3> rows[] = {
        {0, attention, 30},  {0, cpin, 5},   {13, attention, 60}, {0, attention, 60},
        {10, attention, 20}, {10, cpin, 30}, {0, cpin, 30},       {10, cgsn, 3}};
    at_list list = LIST_HEAD_INIT(list);
    for (const auto& [family, id, timeout] : rows) {
        is_quectel = family;
        ASSERT_EQ(at_list_add_general(&list, id, 1), at_added);
        EXPECT_EQ(at_of(list.prev)->timeout, timeout) << family << ":" << id;
    }
    at_list_free(&list);
}
