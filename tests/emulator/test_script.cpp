// SPDX-License-Identifier: MIT
// The tool as other people's tests start it: scripts, their ends, and answers for programs.
#include "tests/e2e/story.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

using namespace kelo_story;
using nlohmann::json;

namespace
{

#define FOLDER "/tmp/scripts/"

class Script : public testing::Test
{
  protected:
    Script() { EXPECT_EQ(std::system("rm -rf " FOLDER "; mkdir " FOLDER), 0); }

    // The tool's exit status, with a host that says what the shell lines `host` print, once the
    // port is there; after `limit` seconds a signal comes.
    int run(const std::string& script, const std::string& options, const std::string& host = "",
            const char* limit = "20")
    {
        std::ofstream(FOLDER "s") << script;
        std::ofstream(FOLDER "host")
            << "until [ -e /dev/ttyUSB2 ]; do sleep 0.02; done\n{ " + host + "; } >/dev/ttyUSB2\n";
        const std::string line =
            "cd " FOLDER "; " + std::string(host.empty() ? "" : "sh host & ") +
            "timeout --preserve-status " + limit +
            " " KELO_TEST_TOOL " --model EC25 --port /dev/ttyUSB2 >out 2>err " + options +
            "\nstatus=$?; wait; exit $status"; // so that no host meets the next modem
        const int status = WEXITSTATUS(std::system(line.c_str()));
        out = text_of(FOLDER "out");
        err = text_of(FOLDER "err");
        return status;
    }

    std::string out, err;
};

} // namespace

// clang-format off
TEST_F(Script, EndsWithAStatusAndSaysWhichLineFailed)
{
    const std::string says = R"(printf 'AT+CSQ\rATI\rAT+CSQ\r')", long_line(9000, 'x'), nul("state\0\n", 7);
    struct {
        std::string script, options;
        int status;
        std::string out, err; // beginning, but for the line of the start, and end
    } const rows[] = {
        {"# a comment\n\n \tstate  \r\nsim pull", "--script s", 0, "node on", ""},
        {"expect AT+CSQ\nexpect ati\nexpect *CSQ 3000\nsleep 1\n", "--script s", 0, "", ""},
        // what an earlier one found or passed over is past, and a failed one takes nothing away
        {"expect ATI\nexpect AT+CSQ\nexpect AT* 200\nstate\n", "--script s", 1, "", "s:3: no AT* within 200 ms; commands that came: 0\n"},
        {"expect ATI\nexpect AT+CPIN? 300\nexpect AT+CSQ\nstate\n", "--script s --keep-going", 1, "node on",
         "s:2: no AT+CPIN? within 300 ms; commands that came: 1, the last one AT+CSQ\n"},
        {"waltz\nstate\n", "--script s", 1, "", "s:1: no order 'waltz'; `help` lists them\n"},
        {"waltz\x1b[2J\n", "--script s", 1, "", "s:1: no order 'waltz?[2J'; `help` lists them\n"},
        {"\nsleep 3600001\n", "--script s", 1, "", "s:2: usage: sleep MS\n"},
        {"expect \n", "--script s", 1, "", "s:1: usage: expect PATTERN [MS]\n"},
        {"quit now\nstate\nquit\nwaltz", "--script s --keep-going", 1, "node on", "s:1: usage: quit\n"},
        {"quit\nwaltz", "--script s --stay", 0, "", ""},
        {"state\n", "--script - <s", 0, "node on", ""},
        {"waltz\n", "--script - --stay <s", 1, "", "<stdin>:1: no order 'waltz'; `help` lists them\n"},
        {"sleep 1\n", "--script s --stay <<'END'\nwaltz\nstate\nquit\nEND\n", 0, "node on", "kelo-emulator: no order 'waltz'; `help` lists them\n"},
        {long_line + "\n" + nul + "state\n", "--script s --keep-going", 1, "node on",
         "s:1: order line too long, dropped\ns:2: a NUL byte in the line, dropped\n"},
        {"state\n", "--order waltz --script s", 1, "", "kelo-emulator: no order 'waltz'; `help` lists them\n"},
        {"", "--script /dev/zero", 1, "", "/dev/zero:1: order line too long, dropped\n"},
        {"", "--script /dev/zero --keep-going", 1, "",
         "/dev/zero:1: order line too long, dropped\n/dev/zero:1: reading ends here: a line without an end\n"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(run(row.script, row.options, row.script.find("expect A") == 0 ? says : ""), row.status) << row.script.substr(0, 99);
        EXPECT_EQ(err, row.err);
        EXPECT_EQ(out.substr(0, 21 + row.out.size()), "EC25 at /dev/ttyUSB2\n" + row.out) << row.script.substr(0, 99);
        EXPECT_EQ(out.size() > 21, !row.out.empty()) << out;
        EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status("/dev/ttyUSB2")));
    }
}

TEST_F(Script, BoundsWhatIsNoScriptAndEndsOnASignal)
{
    const std::pair<const char*, const char*> rows[] = {
        {"--script " FOLDER, "kelo-emulator: " FOLDER ": a folder is no script\n"},
        {"--script none", "kelo-emulator: none: No such file or directory\n"},
        {"--stay", "kelo-emulator: --keep-going and --stay are for a --script\n"},
        {"--frob", "The following argument was not expected: --frob"},
    };
    for (const auto& [options, word] : rows) {
        EXPECT_EQ(run("", options), 2) << options;
        EXPECT_EQ(err.substr(0, strlen(word)), word);
    }
    EXPECT_EQ(run("", "--script /dev/urandom --keep-going"), 1);
    EXPECT_LE(std::count(err.begin(), err.end(), '\n'), 100);
    for (const char* wait : {"sleep 60000", "expect AT 60000"}) {
        EXPECT_EQ(run("#\n" + std::string(wait), "--script s", "", "0.5"), 1);
        EXPECT_EQ(err, "s:2: a signal ends the script\n");
    }
}

// What a program reads tells what the modem did, whatever bytes the host sends.
TEST_F(Script, AnswersAreObjectsThatTellTheTruth)
{
    const std::string script = "sms text +4915112345678 Hi\nexpect AT*\nexpect AT+CMGF=1*\nexpect AT+CMGS=*\n"
                               "expect ATI\nmessages\nsim pull\nsim pull\npower off\nstate\npower on\nstate\nhelp\nexpect AT 1\n";
    EXPECT_EQ(run(script, "--script s --keep-going --json --trace --set cmgs_ms=1", R"(printf 'AT\377\rAT+CMGF=1\rAT+CMGS="1"\r'; sleep 0.4; printf '\200"\032'; sleep 0.4; printf 'ATI\r')"), 1);
    std::vector<json> answers;
    std::string host;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(std::count_if(line.begin(), line.end(), [](char c) { return c < ' ' || c > '~'; }), 0) << line;
        const json object = json::parse(line, nullptr, false);
        ASSERT_TRUE(object.is_object()) << line;
        if (!object.contains("from"))
            answers.push_back(object);
        else if (object["from"] == "host")
            host += object["bytes"];
    }
    EXPECT_EQ(host, "AT\u00ff\rAT+CMGF=1\rAT+CMGS=\"1\"\r\u0080\"\x1a" "ATI\r");
    ASSERT_EQ(answers.size(), 15u);
    EXPECT_EQ(answers[0], json({{"ready", true}, {"model", "EC25"}, {"port", "/dev/ttyUSB2"}}));
    for (std::size_t i = 1; i < answers.size(); ++i) {
        EXPECT_EQ(answers[i]["line"], i);
        EXPECT_EQ(answers[i]["ok"], i != 8 && i != 14) << answers[i];
        EXPECT_EQ(answers[i].contains("error"), i == 8 || i == 14);
    }
    EXPECT_EQ(answers[2]["command"], "AT\u00ff");
    EXPECT_EQ(answers[6]["sent"], json::array({{{"reference", 0}, {"pdu", false}, {"target", "1"}, {"body", "\u0080\""}}}));
    EXPECT_EQ(answers[6]["stored"].size(), 1u);
    EXPECT_EQ(answers[6]["stored"][0]["pdu"].get<std::string>().substr(0, 16), "0791947101670000");
    EXPECT_EQ(answers[8]["error"], "there is no SIM");
    for (const bool on : {false, true}) {
        const json& state = answers[on ? 12 : 10];
        EXPECT_EQ(state["power"], on);
        EXPECT_EQ(state["node"], on);
        EXPECT_EQ(state["sim"], "absent");
        EXPECT_EQ(state["restarts"], 1);
    }
    EXPECT_EQ(answers[13]["orders"].back()["usage"], "quit");
}

TEST_F(Script, ModelsAreListedAndFaultyFilesTold)
{
    std::ofstream(FOLDER "ours.dlg") << "# Ours\n>> AT+X\n<< OK\n";
    EXPECT_EQ(run("", "--list --dialogues ."), 0);
    EXPECT_EQ(out, "ours         ./ours.dlg\n");
    std::ofstream(FOLDER "bad.dlg") << "use magic\n";
    EXPECT_EQ(run("", "--list --json --dialogues ."), 1);
    const std::string fault = "bad.dlg:1: no built-in behaviour `magic`";
    EXPECT_EQ(err, "kelo-emulator: " + fault + "\n");
    std::istringstream lines(out);
    json bad, ours;
    lines >> bad >> ours;
    EXPECT_EQ(bad["error"], fault);
    EXPECT_EQ(ours["about"], "Ours");
    EXPECT_EQ(run("", "--list --dialogues none"), 2);
}
// clang-format on
