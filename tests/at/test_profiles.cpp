// Profile files: what a line becomes, which files are read, which one serves a model.
#include "at/gsm_at.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

using namespace kelo;

namespace
{

using items = std::vector<std::pair<std::string, std::string>>;

class Profiles : public testing::Test
{
  protected:
    Profiles() { EXPECT_NE(mkdtemp(folder), nullptr); }
    ~Profiles() override
    {
        forget();
        std::error_code error;
        std::filesystem::remove_all(folder, error);
    }

    // Back to the empty list of a library as just loaded.
    static void forget()
    {
        while (!list_empty(&cfg_file_list)) {
            auto* const cfg = list_entry(cfg_file_list.next, cfg_file, node);
            while (!list_empty(&cfg->items)) {
                auto* const item = list_entry(cfg->items.next, cfg_item, node);
                list_del(&item->node);
                std::free(item->name);
                std::free(item->value);
                std::free(item);
            }
            list_del(&cfg->node);
            std::free(cfg->path);
            std::free(cfg->module);
            std::free(cfg);
        }
    }

    void write(const char* name, const std::string& text) const
    {
        std::FILE* const file = std::fopen((std::string(folder) + "/" + name).c_str(), "w");
        ASSERT_NE(file, nullptr);
        std::fwrite(text.data(), 1, text.size(), file);
        std::fclose(file);
    }

    // Reads the folder and gives the one profile in it.
    cfg_file* read_one(const std::string& text)
    {
        write("one.conf", text);
        testing::internal::CaptureStdout();
        EXPECT_EQ(search_cfg_file(folder), 0);
        said = testing::internal::GetCapturedStdout();
        EXPECT_FALSE(list_empty(&cfg_file_list));
        return list_entry(cfg_file_list.next, cfg_file, node);
    }

    static items items_of(const cfg_file* cfg)
    {
        items all;
        for (list_head* node = cfg->items.next; node != &cfg->items; node = node->next) {
            const auto* const item = list_entry(node, cfg_item, node);
            all.emplace_back(item->name, item->value);
        }
        return all;
    }

    static int files()
    {
        int count = 0;
        list_head* node = nullptr;
        list_for_each(node, &cfg_file_list) count++;
        return count;
    }

    char folder[32] = "/tmp/profiles-XXXXXX";
    std::string said;
};

} // namespace

TEST_F(Profiles, LineBecomesItem)
{
    struct {
        const char* text;
        items expected;
    } const cases[] = {
        {"AT_MODE => AT+A\n", {{"AT_MODE", "AT+A"}}},
        {"\t  AT_MODE \t  => \t AT+A \t\n", {{"AT_MODE", "AT+A"}}},
        {"AT_MODE=> AT+A\n", {{"AT_MOD", "AT+A"}}},
        {"AT_MODEx=>AT+A", {{"AT_MODE", "AT+A"}}},
        {"AT_MODE => A=>B => C\n", {{"AT_MODE", "A=>B => C"}}},
        {"# a comment\n\nAT_MODE = AT+A\nAT_GSM => AT+B\n", {{"AT_GSM", "AT+B"}}},
        {"AT_MODE => AT+A\r\nAT_GSM => AT+B\r\n", {{"AT_MODE", "AT+A\r"}, {"AT_GSM", "AT+B\r"}}},
        {" MODULE => X\n", {{"MODULE", "X"}}},
        {"AT_MODE =>\n", {{"AT_MODE", ""}}},
    };
    for (const auto& c : cases) {
        forget();
        EXPECT_EQ(items_of(read_one(c.text)), c.expected) << c.text;
        EXPECT_EQ(said, "") << c.text;
    }
}

TEST_F(Profiles, LineThatWouldBreakACommandIsReportedAndSkipped)
{
    const std::string bad[] = {"=> AT+A",
                               "AT_A => AT\x1a",
                               "AT_A => AT\rATH",
                               "AT_A => A\x1b",
                               std::string("AT_A => A\0B", 11),
                               std::string("\0AT_A => A", 10)};
    for (const std::string& line : bad) {
        forget();
        const cfg_file* const cfg = read_one("AT_1 => x\n" + line + "\nAT_3 => z\n");
        EXPECT_EQ(items_of(cfg), (items{{"AT_1", "x"}, {"AT_3", "z"}})) << line;
        EXPECT_EQ(said.rfind(std::string(cfg->path) + ":2 ", 0), 0u) << said;
    }
}

// 255 characters fit; what is behind them is a line of its own.
TEST_F(Profiles, LongLineReadsAsTwo)
{
    const std::string name = "AT_MODE => ";
    const std::string value(255 - name.size(), 'v');
    const cfg_file* cfg = read_one(name + value + "AT_GSM => AT+B\nAT_UCS2 => C\n");
    EXPECT_EQ(items_of(cfg), (items{{"AT_MODE", value}, {"AT_GSM", "AT+B"}, {"AT_UCS2", "C"}}));
}

TEST_F(Profiles, ModuleLineNamesTheModule)
{
    const cfg_file* cfg = read_one("MODULE_NAME => EC20\nMODULE => EC25\r\nAT_MODE => A\n");
    EXPECT_STREQ(cfg->module, "EC25\r");
    EXPECT_EQ(items_of(cfg).size(), 1u);
    EXPECT_NE(said.find("dual module item 'EC25\r' vs 'EC20'"), std::string::npos) << said;
    EXPECT_EQ(cfg_file_find("EC25"), cfg);
}

TEST_F(Profiles, FindTakesTheFirstOfEqualNamesOrFirstFourLetters)
{
    const char* const modules[] = {"MODULE => M35\r\n", "AT_A => B\n", "MODULE => EC25\n",
                                   "MODULE => EC25V\n", "MODULE => UC2\n"};
    std::vector<const cfg_file*> cfg;
    for (std::size_t i = 0; i < std::size(modules); i++) {
        const std::string name = std::to_string(i);
        write(name.c_str(), modules[i]);
        ASSERT_EQ(cfg_file_add(folder, name.c_str()), 0);
        auto* const added = list_entry(cfg_file_list.prev, cfg_file, node);
        ASSERT_EQ(parse_cfg_file(added), 0);
        cfg.push_back(added);
    }
    EXPECT_EQ(cfg_file_find("M35"), cfg[0]);
    EXPECT_EQ(cfg_file_find("M351"), nullptr);
    EXPECT_EQ(cfg_file_find("EC25V"), cfg[2]);
    EXPECT_EQ(cfg_file_find("EC25-E"), cfg[2]);
    EXPECT_EQ(cfg_file_find("EC2"), nullptr);
    EXPECT_EQ(cfg_file_find("UC20"), nullptr);
    EXPECT_EQ(cfg_file_find(""), nullptr);
}

TEST_F(Profiles, FolderGivesRegularFilesOnce)
{
    const std::string base = folder;
    write("a.conf.bak", "AT_MODE => A\n");
    write("readme.txt", "AT_MODE => A\n");
    ASSERT_EQ(mkfifo((base + "/pipe.conf").c_str(), 0600), 0); // would hold up a start for ever
    ASSERT_EQ(mkdir((base + "/folder.conf").c_str(), 0700), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(search_cfg_file(folder), 0);
    EXPECT_EQ(search_cfg_file(folder), 0);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(files(), 3);
    std::size_t read = 0;
    list_head* node = nullptr;
    list_for_each(node, &cfg_file_list) read += items_of(list_entry(node, cfg_file, node)).size();
    EXPECT_EQ(read, 1u);
    EXPECT_NE(out.find("failed to open file '" + base + "/pipe.conf'"), std::string::npos) << out;
    EXPECT_EQ(search_cfg_file((base + "/none").c_str()), -1);
    EXPECT_EQ(search_cfg_file(nullptr), -1);
}

// A file that something filled up must end the reading, not the host.
TEST_F(Profiles, EndlessFileIsCut)
{
    std::string text = "AT_MODE => A\n";
    text.append(4 << 20, '\n');
    text += "AT_GSM => B\n";
    EXPECT_EQ(items_of(read_one(text)), (items{{"AT_MODE", "A"}}));
    EXPECT_NE(said.find("too long"), std::string::npos);
}
