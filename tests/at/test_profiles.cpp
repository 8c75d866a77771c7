// SPDX-License-Identifier: MIT
// Profile files: what a line becomes, which files are read, which one serves a model.
#include "tests/testing.h"

using items = std::vector<std::pair<std::string, std::string>>;

struct Profiles : testing::Test {
    Profiles() { std::filesystem::create_directory(folder.path); }
    void write(const std::string& name, const std::string& text) const
    {
        std::ofstream(std::string(folder.path) + "/" + name) << text;
    }
    // The profile that a file of its own with this text becomes.
    cfg_file* read(const std::string& text)
    {
        const std::string name = std::to_string(count++);
        write(name, text);
        EXPECT_EQ(cfg_file_add(folder.path, name.c_str()), 0);
        auto* const cfg = list_entry(cfg_file_list.prev, cfg_file, node);
        captured out;
        EXPECT_EQ(parse_cfg_file(cfg), 0);
        said = out.text();
        return cfg;
    }
    static items items_of(const cfg_file* cfg)
    {
        items all;
        cfg_item item;
        for (std::size_t at = 0; cfg_next_item(cfg, at, item);)
            all.emplace_back(item.name, item.value);
        return all;
    }
    const scratch folder{"/tmp/profiles"};
    int count = 0;
    std::string said;
};

TEST_F(Profiles, LineBecomesItem)
{
    const std::string longest(255 - 11, 'v'); // behind it, a line of its own
    const std::pair<std::string, items> rows[] = {
        {"\t  AT_MODE \t  => \t AT+A \t\n", {{"AT_MODE", "AT+A"}}},
        {"AT_MODE=> AT+A\n", {{"AT_MOD", "AT+A"}}},
        {"AT_MODE => A=>B => C\n", {{"AT_MODE", "A=>B => C"}}},
        {"# a comment\n\nAT_MODE = AT+A\nAT_GSM => AT+B", {{"AT_GSM", "AT+B"}}},
        {"AT_MODE => AT+A\r\nAT_GSM => AT+B\r\n", {{"AT_MODE", "AT+A\r"}, {"AT_GSM", "AT+B\r"}}},
        {" MODULE => X\n", {{"MODULE", "X"}}},
        {"AT_MODE =>\n", {{"AT_MODE", ""}}},
        {"AT_MODE => " + longest + "AT_GSM => B\n", {{"AT_MODE", longest}, {"AT_GSM", "B"}}},
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(items_of(read(text)), expected) << text;
        EXPECT_EQ(said, "") << text;
    }
}

TEST_F(Profiles, LineThatWouldBreakACommandIsReportedAndSkipped)
{
    for (const std::string& line :
         {std::string("=> AT+A"), std::string("AT_A => AT\x1a"), std::string("AT_A => AT\rATH"),
          std::string("AT_A => A\0B", 11), std::string("\0AT_A => A", 10)}) {
        const cfg_file* const cfg = read("AT_1 => x\n" + line + "\nAT_3 => z\n");
        EXPECT_EQ(items_of(cfg), (items{{"AT_1", "x"}, {"AT_3", "z"}})) << line;
        EXPECT_TRUE(said.starts_with(std::string(cfg->path) + ":2 ")) << said;
    }
    // A file that something filled up must end the reading, not the host.
    EXPECT_EQ(items_of(read("AT_MODE => A\n" + std::string(4 << 20, '\n') + "AT_GSM => B\n")),
              (items{{"AT_MODE", "A"}}));
    EXPECT_TRUE(said.find("too long") != std::string::npos);
}

TEST_F(Profiles, FindTakesTheFirstOfEqualNamesOrFirstFourLetters)
{
    const cfg_file* const cfg[] = {read("MODULE => M35\r\n"), read("AT_A => B\n"),
                                   read("MODULE_NAME => EC20\nMODULE => EC25\r\nAT_MODE => A\n"),
                                   read("MODULE => EC25V\n"), read("MODULE => UC2\n")};
    EXPECT_STREQ(cfg[2]->module, "EC25\r");
    const std::pair<const char*, const cfg_file*> rows[] = {
        {"M35", cfg[0]},  {"M351", nullptr}, {"EC25V", cfg[2]}, {"EC25-E", cfg[2]},
        {"EC2", nullptr}, {"UC20", nullptr}, {"", nullptr}};
    for (const auto& [model, found] : rows)
        EXPECT_EQ(cfg_file_find(model), found) << model;
}

TEST_F(Profiles, FolderGivesRegularFilesOnce)
{
    write("a.conf.bak", "AT_MODE => A\n");
    write("readme.txt", "AT_MODE => A\n");
    ASSERT_EQ(mkfifo("/tmp/profiles/pipe.conf", 0600), 0); // would hold up a start for ever
    ASSERT_EQ(mkdir("/tmp/profiles/folder.conf", 0700), 0);
    captured out;
    EXPECT_EQ(search_cfg_file(folder.path), 0);
    EXPECT_EQ(search_cfg_file(folder.path), 0);
    items read;
    for (list_head* node = cfg_file_list.next; node != &cfg_file_list; node = node->next)
        for (const auto& item : items_of(list_entry(node, cfg_file, node)))
            read.push_back(item);
    EXPECT_EQ(read, (items{{"AT_MODE", "A"}}));
    EXPECT_TRUE(out.has("failed to open file '/tmp/profiles/pipe.conf'"));
    for (const char* const none : {"/tmp/profiles/readme.txt", "/tmp/profiles/none", ""})
        EXPECT_EQ(search_cfg_file(none), -1) << none;
    EXPECT_EQ(search_cfg_file(nullptr), -1);
}

// Catches: an owner's file that comes behind the installed one, and a word about a folder that most
// devices do not have.
TEST_F(Profiles, TheOwnersFolderComesAheadOfTheOther)
{
    const scratch own("/etc/kelo");
    const auto model_of_ec25 = [] {
        const cfg_file* const cfg = cfg_file_find("EC25");
        return cfg == nullptr ? std::string() : items_of(cfg)[0].second;
    };
    captured out;
    search_cfg_folders();
    const std::string installed = model_of_ec25();
    EXPECT_NE(installed, "");
    EXPECT_EQ(out.text(), "");
    put_profiles_aside();
    std::filesystem::create_directories("/etc/kelo/profiles");
    search_cfg_folders(); // an empty one
    EXPECT_EQ(model_of_ec25(), installed);
    put_profiles_aside();
    std::ofstream("/etc/kelo/profiles/any.conf") << "MODULE => EC25\nAT_GSM => own\n";
    search_cfg_folders();
    EXPECT_EQ(model_of_ec25(), "own");
    EXPECT_NE(cfg_file_find("UC20"), nullptr);
    EXPECT_EQ(out.text(), "");
}
