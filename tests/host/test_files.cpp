// SPDX-License-Identifier: MIT
// What is wrong with a file, by name and line: custom commands and module profiles.
#include "host/input/custom_file.h"
#include "host/look/check_profiles.h"
#include "host/look/draft_profile.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

using namespace kelo_host;

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
    std::ostringstream read; // line, sim, flow, id, timeout, seq, ignore, command
    for (const custom_item& one : file.items)
        read << one.line << " " << one.sim << one.flow << " " << one.id << " " << one.timeout << " "
             << one.seq << " " << one.ignore << " " << one.cmd << "\n";
    EXPECT_EQ(read.str(), "3 12 13 30 7 0 AT+CPIN?\n"
                          "4 21 64 0 0 0 AT+QMBNCFG=\"Autosel\",0\n"
                          "5 11 94 0 0 1 \n"
                          "6 21 95 0 3 1 \n"
                          "7 21 96 0 0 0 AT#X=' # '\n");
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
        {"sim=1 flow=1 id=94 seq=4", "line 1"}, // one of the two would silently win
    };
    for (const auto& [line, fault] : rows) {
        const custom_file file = parse("sim=1 flow=1 id=94 ignore\n" + std::string(line) + "\n");
        ASSERT_EQ(file.errors.size(), 1u) << line;
        EXPECT_EQ(file.errors[0].substr(0, 5), "f:2: ") << line;
        EXPECT_NE(file.errors[0].find(fault), std::string::npos)
            << line << " gave " << file.errors[0];
        EXPECT_EQ(file.items.size(), 1u) << line;
    }
}

// The profile that ships, with one change.
std::string changed(const char* name, const std::string& from, const std::string& to)
{
    std::ifstream file(KELO_PROFILES "/" + std::string(name) + ".conf", std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(std::min(at, text.size()), from.size(), to);
}

// All findings in a folder of these files, as "file:line: text" lines.
std::string findings(const std::map<std::string, std::string>& files)
{
    const std::filesystem::path folder = "/tmp/profiles-" + std::to_string(getpid());
    std::filesystem::create_directory(folder);
    for (const auto& [name, text] : files)
        if (text.empty()) // a pipe
            mkfifo((folder / name).c_str(), 0600);
        else
            std::ofstream(folder / name, std::ios::binary) << text;
    std::string all;
    for (const finding& one : check_profiles({folder}))
        all += one.file + ":" + std::to_string(one.line) + ": " + one.text + "\n";
    std::filesystem::remove_all(folder);
    return all;
}

// One change to a good file, and the one finding that it has to draw.
TEST(CheckProfiles, FindsEachFault)
{
    const struct {
        const char *file, *from, *to, *finding; // with the line where the change shows it
    } rows[] = {
        {"EC25", "MODULE                  => EC25\n", "\n", ":0: no MODULE line"},
        {"EC25", "MODULE                  => EC25\n", "MODULE => EC25\nMODULE => EC25\n",
         "6: a second MODULE line replaces that of line 5"},
        {"EC25", "MODULE                  => EC25\n", "MODULE => EC77\n", "5: no flow is known"},
        {"EC20", "=> EC20\n", "=> EC200T\n", "no flow is known for a model like 'EC200T'"},
        {"LE910", "=> LE910\n", "=> LE910C1\n", "no flow is known for a model like 'LE910C1'"},
        {"RM500Q", "=> RM500Q\n", "=> RM500U\n", "no flow is known for a model like 'RM500U'"},
        {"EC25", "=> EC25\n", "=> EC25\nLIKE => EC25\n", "6: LIKE stands without MODEL"},
        {"EC25", "=> EC25\n", "=> EC25\nMODEL => BG95\n", "6: MODEL stands without LIKE"},
        {"EC25", "=> EC25\n", "=> EC25\nMODEL => EC2\nLIKE => EC25\n", "6: MODEL takes 4 to 15"},
        {"EC25", "=> EC25\n", "=> EC25\nMODEL => EC25\nLIKE => EC21\n",
         "6: MODEL 'EC25' would take"},
        {"EC25", "=> EC25\n", "=> EC25\nMODEL => BG95\nLIKE => EC2\n",
         "7: LIKE 'EC2' is no module"},
        {"UC20", "MODULE                  => UC20\n", "MODEL => BG95\nLIKE => RM500Q\n",
         ":0: AT_GET_SERVINGCELL is missing"},
        {"EC25", "AT_GET_ICCID            =>", "AT_GET_ICCIDS =>", ":0: AT_GET_ICCID is missing"},
        {"EC25", "AT_GET_ICCID            =>", "AT_GET_ICCID=>", "a blank is missing ahead of"},
        {"EC25", "AT+QCCID", "AT+QCCID\nAT_GET_ICCID => AT+ICCID",
         "10: AT_GET_ICCID stands in line 9 already"},
        {"EC25", "AT+QCCID", "", "9: AT_GET_ICCID has no value"},
        {"EC25", "# SIM and identity.", "# AT_UCS2 => AT", "7: a comment that holds '=>'"},
        {"EC25", "\"$PIN_NUMBER\"", "\"1234\"", "8: AT_SEND_PIN lacks $PIN_NUMBER"},
        {"EC25", "\"$PIN_NUMBER\"", "\"$PIN\"", "AT_SEND_PIN holds $PIN, which nothing replaces"},
        {"UC20", "# AT_CBAND is left out", "AT_CBAND => AT+QCFG=\"band\",$BAND\n# left out",
         "AT_CBAND holds $BAND, which nothing replaces"},
        {"MH5000-31", "=> $MODE", "=> AT$MODE", "AT_NETWORK_AUTO has to be $MODE alone"},
    };
    for (const auto& row : rows) {
        const std::string found = findings({{"one.conf", changed(row.file, row.from, row.to)}});
        EXPECT_NE(found.find(row.finding), std::string::npos)
            << row.from << " to " << row.to << ": " << found;
    }
}

// Catches: a check that waits for somebody to write into a pipe, two files of which the folder's
// order picks one, a long line that reads as two.
TEST(CheckProfiles, FindsPipesFilesThatShareFourCharactersAndLongLines)
{
    EXPECT_EQ(findings({{"one.conf", ""}}), "one.conf:0: not a file that can be read\n");
    EXPECT_EQ(findings({{"a.conf", changed("RM500Q", "", "")},
                        {"b.conf.old", changed("RM500Q", "=> RM500Q", "=> RM500Q-GL")}}),
              "b.conf.old:3: MODULE 'RM500Q-GL' shares its first four characters with a.conf: one "
              "file of the two is never used\n");
    const std::string good = changed("EC25", "", "") + "# " + std::string(253, 'x');
    EXPECT_EQ(findings({{"a.conf", good + "\n"}}), "");
    const std::string found = findings({{"a.conf", good + "x\n"}});
    EXPECT_NE(found.find("longer than 255 characters"), std::string::npos);
}

// Catches: a file that is never read and nobody says so, an owner's folder that makes a fault of
// what it is for, a file that a comment makes whole.
TEST(CheckProfiles, KnowsFoldersTheirLimitAndWhatIsLeftOutOnPurpose)
{
    const auto brought = [](const std::string& model, const std::string& more) {
        return changed("UC20", "MODULE                  => UC20\n",
                       "MODEL => " + model + "\nLIKE => UC20\n" + more);
    };
    EXPECT_EQ(findings({{"a.conf", brought("BG95", "")}}), "");
    EXPECT_EQ(
        findings({{"a.conf", brought("BG95", "")}, {"b.conf", brought("BG95", "")}}),
        "b.conf:3: MODEL 'BG95' stands in a.conf as well: the one that the system lists first "
        "is used\n");
    EXPECT_EQ(findings({{"a.conf", changed("EC25", "AT_GET_ICCID            =>",
                                           "# AT_GET_ICCID is left out: ")}}),
              "");
    std::map<std::string, std::string> many;
    for (int i = 0; i < 258; i++)
        many[std::to_string(i) + ".conf"] = brought("BG" + std::to_string(100 + i), "");
    const std::string found = findings(many);
    EXPECT_EQ(std::count(found.begin(), found.end(), '\n'), 2) << found;
    EXPECT_NE(found.find(".conf:0: is never read"), found.npos) << found;
    EXPECT_NE(findings({{"a.conf", brought("BG95", "") + std::string(300 << 10, '\n')}})
                  .find("the rest is never read"),
              found.npos);
    const std::filesystem::path own = "/tmp/own-" + std::to_string(getpid());
    std::filesystem::create_directory(own);
    EXPECT_TRUE(check_profiles({own, KELO_PROFILES}).empty());
    EXPECT_FALSE(profile_serves({own, KELO_PROFILES}, "SIMCOM_SIM7600G"));
    std::ofstream(own / "EC25.conf") << brought("SIMCOM", "MODULE => EC25\n");
    EXPECT_TRUE(check_profiles({own, KELO_PROFILES}).empty());
    EXPECT_TRUE(profile_serves({own, KELO_PROFILES}, "SIMCOM_SIM7600G"));
    std::filesystem::remove_all(own);
}

// What a modem says to every question may be anything: the draft is bounded, printable, and no
// command comes of it.
TEST(DraftProfile, IsCleanWhateverTheModemAnswers)
{
    using enum at_answer::end;
    const std::string odd = "x => AT+CFUN=1,1\x1b[2J\xff\r" + std::string(5000, 'y');
    const struct {
        const char* model;
        at_answer others;
        int status;
        const char* like;
    } rows[] = {
        {"FM350-GL", {ok, {odd, odd}}, 0, "LIKE                    => RM500Q\n"},
        {"+CGMM: \"FM350-GL\"", {ok, {}}, 0, "LIKE                    => RM500Q\n"},
        {"SIMCOM_SIM7600G-H", {refused, {odd}}, 0, "LIKE                    => UC20\n"},
        {"LE910C1-EU", {refused, {}}, 0, "MODEL                   => LE910C1\n"},
        {"LE910C1-EU", {silent, {}}, 11, ""},
        {"EC25",
         {ok, {"(\"nwscanmode\",\"GSM\",\"band\")"}},
         0,
         "MODULE                  => EC25\n"},
        {"M35", {ok, {}}, 1, ""},
        {"EC25\x1b[2J => AT", {ok, {}}, 1, ""},
        {"NOKIA1", {ok, {}}, 1, ""},
        {"", {refused, {}}, 1, ""},
        {"", {silent, {}}, 11, ""},
    };
    for (const auto& row : rows) {
        int asked = 0;
        const profile_draft draft = draft_profile([&](const std::string& command) {
            asked++;
            EXPECT_TRUE(command.ends_with("=?") || command.starts_with("AT+CG") ||
                        command.starts_with("AT+GM") || command == "AT+CLAC");
            if (command != "AT+CGMM" || *row.model == '\0')
                return row.others;
            return at_answer{ok, {row.model}};
        });
        EXPECT_EQ(draft.status, row.status) << row.model;
        EXPECT_EQ(draft.fault.empty(), row.status == 0);
        EXPECT_EQ(draft.text.empty(), row.status != 0);
        EXPECT_NE(draft.text.find(row.like), std::string::npos) << draft.text;
        EXPECT_LT(draft.text.size(), 64u << 10);
        EXPECT_LT(asked, 60);
        for (const char c : draft.text)
            ASSERT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << row.model;
        if (row.status == 0) {
            EXPECT_EQ(findings({{"a.conf", draft.text}}), "") << draft.text;
        }
    }
}

} // namespace
