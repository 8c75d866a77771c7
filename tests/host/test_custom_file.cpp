#include "host/custom_file.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kelo_host
{

namespace
{

custom_file parse(const std::string& text)
{
    std::istringstream in(text);
    return parse_custom(in, "f");
}

TEST(CustomFile, ReadsEveryFieldInAnyOrder)
{
    const custom_file file =
        parse("# a comment\n\n"
              "sim=1 flow=2 id=13 timeout=30 seq=7 cmd=\"AT+CPIN?\" # behind\r\n"
              "\tcmd='AT+QMBNCFG=\"Autosel\",0' id=64 flow=1 sim=2\n"
              "sim=1 flow=1 id=94 ignore#\n"
              "sim=2 flow=1 id=95 ignore=1 seq=3\n"
              "sim=2 flow=1 id=96 cmd=\"AT#X=' # '\"");
    ASSERT_EQ(file.errors, std::vector<std::string>());
    ASSERT_EQ(file.items.size(), 5u);
    const custom_item& first = file.items[0];
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
    constexpr std::pair<const char*, const char*> rows[] = {
        {"sim=1 flow=1 ignore", "id is missing"},
        {"sim=1 flow=1 id=1", "changes nothing"},
        {"sim=0 flow=1 id=1 ignore", "sim takes a number from 1 to 2, not '0'"},
        {"sim=1 flow=1 id=1x ignore", "id takes a number"},
        {"sim=1 flow=1 id=1 seq=1000", "seq takes a number from 1 to 999"},
        {"sim=1 flow=1 id=1 timeout=-1", "timeout takes a number"},
        {"sim=1 flow=1 id=1 ignore=0", "ignore stands alone"},
        {"sim=1 flow=1 id=1 cmd=AT", "in quotes"},
        {"sim=1 flow=1 id=1 cmd=\"\"", "cmd is empty"},
        {"sim=1 flow=1 id=1 cmd=\"AT", "no closing \""},
        {"sim=1 flow=1 id=1 cmd=\"AT+X=\"1\"\"", "a blank is missing"},
        {"sim=1 flow=1 id=1 cmd=\"AT\x1a\"", "no AT command may hold"},
        {"sim=1 flow=1 id=1 cmd=\"AT\" ignore", "exclude each other"},
        {"sim=1 sim=1 flow=1 id=1 ignore", "sim stands twice"},
    };
    for (const auto& [line, fault] : rows) {
        const custom_file file = parse("# one\n" + std::string(line) + "\n");
        ASSERT_EQ(file.errors.size(), 1u) << line;
        EXPECT_EQ(file.errors[0].substr(0, 5), "f:2: ") << line;
        EXPECT_NE(file.errors[0].find(fault), std::string::npos)
            << line << " gave " << file.errors[0];
        EXPECT_TRUE(file.items.empty()) << line;
    }
}

// The second of two items for one command would silently win.
TEST(CustomFile, RefusesASecondItemForACommand)
{
    const custom_file file = parse("sim=1 flow=1 id=13 ignore\n"
                                   "sim=1 flow=2 id=13 ignore\n"
                                   "sim=1 flow=1 id=13 seq=4\n");
    ASSERT_EQ(file.errors.size(), 1u);
    EXPECT_EQ(file.errors[0].substr(0, 5), "f:3: ");
    EXPECT_NE(file.errors[0].find("line 1"), std::string::npos);
    EXPECT_EQ(file.items.size(), 2u);
}

} // namespace

} // namespace kelo_host
