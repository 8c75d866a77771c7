#include "host/check_profiles.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace kelo_host
{

namespace
{

namespace fs = std::filesystem;

std::string slurp(const fs::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void replace(std::string& text, const std::string& from, const std::string& to)
{
    const size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    text.replace(at, from.size(), to);
}

// NOLINTNEXTLINE(readability-identifier-naming): the name of the suite
class CheckProfiles : public testing::Test
{
  protected:
    void SetUp() override { ASSERT_NE(mkdtemp(folder_), nullptr); }
    void TearDown() override { fs::remove_all(folder_); }

    void write(const std::string& name, const std::string& text)
    {
        std::ofstream(fs::path(folder_) / name, std::ios::binary) << text;
    }
    // All findings, as "file:line: text" lines.
    std::string findings()
    {
        std::string all;
        for (const finding& one : check_profiles(folder_))
            all += one.file + ":" + std::to_string(one.line) + ": " + one.text + "\n";
        return all;
    }

    char folder_[32] = "/tmp/profiles.XXXXXX";
};

// One change to a good file, and the one finding that it has to draw.
TEST_F(CheckProfiles, FindsEachFault)
{
    const struct {
        const char *file, *from, *to, *finding; // with the line where the change shows it
    } rows[] = {
        {"EC25", "MODULE                  => EC25\n", "\n", ":0: no MODULE line"},
        {"EC25", "MODULE                  => EC25\n", "MODULE => EC25\nMODULE => EC25\n",
         "6: a second MODULE line replaces that of line 5"},
        {"EC25", "MODULE                  => EC25\n", "MODULE => EC77\n", "5: no flow is known"},
        {"EC25", "AT_GET_ICCID            =>", "AT_GET_ICCIDS =>", ":0: AT_GET_ICCID is missing"},
        {"EC25", "AT_GET_ICCID            =>", "AT_GET_ICCID=>", "a blank is missing ahead of"},
        {"EC25", "AT+QCCID", "AT+QCCID\nAT_GET_ICCID => AT+ICCID",
         "10: AT_GET_ICCID stands in line 9 already"},
        {"EC25", "AT+QCCID", "", "9: AT_GET_ICCID has no value"},
        {"EC25", "# SIM and identity.", "# AT_UCS2 => AT", "7: a comment that holds '=>'"},
        {"EC25", "\"$PIN_NUMBER\"", "\"1234\"", "8: AT_SEND_PIN lacks $PIN_NUMBER"},
        {"EC25", "\"$PIN_NUMBER\"", "\"$PIN\"", "AT_SEND_PIN holds $PIN, which nothing replaces"},
        {"UC20", "# AT_CBAND is left out", "AT_CBAND => AT+QCFG=\"band\",$BAND\n# left out",
         "AT_CBAND would send $BAND as it stands"},
        {"MH5000-31", "=> $MODE", "=> AT$MODE", "AT_NETWORK_AUTO has to be $MODE alone"},
    };
    for (const auto& row : rows) {
        std::string text = slurp(fs::path(KELO_PROFILES) / (std::string(row.file) + ".conf"));
        replace(text, row.from, row.to);
        write("one.conf", text);
        EXPECT_NE(findings().find(row.finding), std::string::npos)
            << row.file << ", '" << row.from << "' to '" << row.to << "' found\n"
            << findings();
    }
}

// Whichever of the two the folder lists first would serve both.
TEST_F(CheckProfiles, FindsFilesThatShareFourCharacters)
{
    std::string text = slurp(fs::path(KELO_PROFILES) / "RM500Q.conf");
    write("a.conf", text);
    replace(text, "=> RM500Q", "=> RM500U");
    write("b.conf.old", text);
    EXPECT_EQ(findings(), "b.conf.old:3: MODULE 'RM500U' shares its first four characters with "
                          "a.conf: one file of the two is never used\n");
}

TEST_F(CheckProfiles, FindsALineThatReadsAsTwo)
{
    std::string text = slurp(fs::path(KELO_PROFILES) / "EC25.conf");
    write("a.conf", text + "# " + std::string(253, 'x') + "\n");
    EXPECT_EQ(findings(), "");
    write("a.conf", text + "# " + std::string(254, 'x') + "\n");
    EXPECT_NE(findings().find("longer than 255 characters"), std::string::npos);
}

} // namespace

} // namespace kelo_host
