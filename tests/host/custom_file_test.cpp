#include "custom_file.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kelo_host
{

namespace
{

CustomFile parse(const std::string& text)
{
    std::istringstream in(text);
    return parse_custom(in, "f");
}

TEST(CustomFile, ReadsEveryFieldInAnyOrder)
{
    const CustomFile file =
        parse("# a comment\n"
              "\n"
              "sim=1 flow=2 id=13 timeout=30 seq=7 cmd=\"AT+CPIN?\" # behind\r\n"
              "\tcmd='AT+QMBNCFG=\"Autosel\",0' id=64 flow=1 sim=2\n"
              "sim=1 flow=1 id=94 ignore#\n"
              "sim=2 flow=1 id=95 ignore=1 seq=3\n"
              "sim=2 flow=1 id=96 cmd=\"AT#X=' # '\"");
    ASSERT_EQ(file.errors, std::vector<std::string>());
    ASSERT_EQ(file.items.size(), 5u);
    const CustomItem& first = file.items[0];
    EXPECT_EQ(std::tuple(first.sim, first.flow, first.id, first.timeout, first.seq, first.ignore),
              std::tuple(1, 2, 13, 30, 7, false));
    EXPECT_EQ(first.cmd, "AT+CPIN?");
    EXPECT_EQ(first.line, 3);
    EXPECT_EQ(file.items[1].cmd, "AT+QMBNCFG=\"Autosel\",0");
    EXPECT_EQ(file.items[1].sim, 2);
    EXPECT_TRUE(file.items[2].ignore);
    EXPECT_TRUE(file.items[3].ignore);
    EXPECT_EQ(file.items[4].cmd, "AT#X=' # '");
}

TEST(CustomFile, TellsWhatIsWrongAndWhere)
{
    const struct {
        const char* line;
        const char* fault;
    } rows[] = {
        {"flow=1 id=1 ignore", "sim is missing"},
        {"sim=1 id=1 ignore", "flow is missing"},
        {"sim=1 flow=1 ignore", "id is missing"},
        {"sim=1 flow=1 id=1", "changes nothing"},
        {"sim=0 flow=1 id=1 ignore", "sim takes a number from 1 to 2, not '0'"},
        {"sim=1 flow=3 id=1 ignore", "flow takes a number from 1 to 2"},
        {"sim=1 flow=1 id=1x ignore", "id takes a number"},
        {"sim=1 flow=1 id= ignore", "id takes a number"},
        {"sim=1 flow=1 id=99999999999 ignore", "id takes a number"},
        {"sim=1 flow=1 id=1 seq=1000", "seq takes a number from 1 to 999"},
        {"sim=1 flow=1 id=1 timeout=-1", "timeout takes a number"},
        {"sim flow=1 id=1 ignore", "sim takes a number"},
        {"sim=1 flow=1 id=1 ignore=0", "ignore stands alone"},
        {"sim=1 flow=1 id=1 cmd=AT", "in quotes"},
        {"sim=1 flow=1 id=1 cmd", "in quotes"},
        {"sim=1 flow=1 id=1 cmd=\"\"", "cmd is empty"},
        {"sim=1 flow=1 id=1 cmd=\"AT", "no closing \""},
        {"sim=1 flow=1 id=1 cmd=\"AT+X=\"1\"\"", "a blank is missing"},
        {"sim=1 flow=1 id=1 cmd=\"AT\x1a\"", "no AT command may hold"},
        {"sim=1 flow=1 id=1 cmd=\"AT\" ignore", "exclude each other"},
        {"sim=1 sim=1 flow=1 id=1 ignore", "sim stands twice"},
        {"sim=1 flow=1 id=1 retries=2", "unknown field 'retries'"},
        {"=1", "a name is missing"},
    };
    for (const auto& row : rows) {
        const CustomFile file = parse("# one\n" + std::string(row.line) + "\n");
        ASSERT_EQ(file.errors.size(), 1u) << row.line;
        EXPECT_EQ(file.errors[0].substr(0, 5), "f:2: ") << row.line;
        EXPECT_NE(file.errors[0].find(row.fault), std::string::npos)
            << row.line << " gave " << file.errors[0];
        EXPECT_TRUE(file.items.empty()) << row.line;
    }
}

// The second of two items for one command would silently win.
TEST(CustomFile, RefusesASecondItemForACommand)
{
    const CustomFile file = parse("sim=1 flow=1 id=13 ignore\n"
                                  "sim=1 flow=2 id=13 ignore\n"
                                  "sim=1 flow=1 id=13 seq=4\n");
    ASSERT_EQ(file.errors.size(), 1u);
    EXPECT_EQ(file.errors[0].substr(0, 5), "f:3: ");
    EXPECT_NE(file.errors[0].find("line 1"), std::string::npos);
    EXPECT_EQ(file.items.size(), 2u);
}

// What the library walks: in file order, texts alive, absent texts NULL.
TEST(CustomFile, HandsTheItemsToTheLibrary)
{
    install_custom(parse("sim=1 flow=1 id=201 seq=20 cmd=\"AT+CMEE=2\"\n"
                         "sim=2 flow=2 id=13 timeout=9\n")
                       .items);
    const list_head* node = cell_at_config_h.next;
    const at_config_item* item = list_entry(node, at_config_item, node);
    EXPECT_EQ(std::tuple(item->sim, item->flow, item->id, item->seq, item->ignore),
              std::tuple(1, 1, 201, 20, 0));
    EXPECT_STREQ(item->cmd, "AT+CMEE=2");
    item = list_entry(node->next, at_config_item, node);
    EXPECT_EQ(std::tuple(item->sim, item->flow, item->id, item->timeout), std::tuple(2, 2, 13, 9));
    EXPECT_EQ(item->cmd, nullptr);
    EXPECT_EQ(node->next->next, &cell_at_config_h);
}

} // namespace

} // namespace kelo_host
