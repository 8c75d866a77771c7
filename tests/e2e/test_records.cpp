// SPDX-License-Identifier: MIT
// Records of modems in the field, each played back to kelo-host: what it comes to has to be what
// stands beside the record, and the ways there that lasted for a while. A further one is a further
// pair of files: NAME.record by `kelo-host --record`, NAME.json by hand. make-records makes them
// anew. What a host asks of its own accord from time to time is left out (--plain).
#include "tests/e2e/story.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

using namespace kelo_story;
using nlohmann::json;

namespace
{

std::vector<std::string> records()
{
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(KELO_RECORDS))
        if (file.path().extension() == ".record")
            names.push_back(file.path().stem());
    std::ranges::sort(names);
    return names;
}

// 2026-11-25T19:00:32.937+00:00, within one day.
double seconds_of(const std::string& time)
{
    return std::stod(time.substr(11, 2)) * 3600 + std::stod(time.substr(14, 2)) * 60 +
           std::stod(time.substr(17, 6));
}

class Records : public testing::TestWithParam<std::string>
{
};

// Catches: a modem that is understood otherwise than it was, a host that asks it something else,
// and a replay that is not what was recorded.
TEST_P(Records, ComeToTheSame)
{
    const std::string path = KELO_RECORDS "/" + GetParam();
    const json wanted = json::parse(text_of(path + ".json"));
    const std::string command =
        KELO_EMULATOR " --replay " + path +
        ".record 2>/tmp/differences & pid=$!\n"
        "until [ -e /dev/ttyUSB2 ]; do sleep 0.05; kill -0 $pid || exit 9; done\n" KELO_HOST
        " --plain --no-link --json " +
        wanted.at("arguments").get<std::string>() +
        " >/tmp/objects 2>/tmp/lines || exit 8\n"
        "kill $pid; wait $pid";
    EXPECT_EQ(std::system(command.c_str()), 0) << text_of("/tmp/lines");
    EXPECT_NE(text_of("/tmp/differences").find(" 0 did not come, 0 unknown\n"), std::string::npos)
        << text_of("/tmp/differences");

    EXPECT_EQ(std::system(KELO_JSON_STORIES " --check " KELO_DOCS " /tmp/objects"), 0);

    std::ifstream objects("/tmp/objects");
    std::vector<std::pair<std::string, double>> reasons; // and since when
    json last;
    for (std::string line; std::getline(objects, line);) {
        const json object = json::parse(line);
        if (object.at("type") != "status")
            continue;
        last = object;
        if (reasons.empty() || reasons.back().first != last.at("reason"))
            reasons.emplace_back(last.at("reason"), seconds_of(last.at("time")));
    }
    ASSERT_FALSE(reasons.empty());
    constexpr double while_s = 2.5;
    json lasting;
    for (std::size_t i = 0; i < reasons.size(); i++)
        if (i + 1 == reasons.size() || reasons[i + 1].second - reasons[i].second >= while_s)
            lasting.push_back(reasons[i].first);
    EXPECT_EQ(lasting, wanted.at("reasons"));
    for (const auto& [name, value] : wanted.at("status").items())
        EXPECT_EQ(last.at(name), value) << name;
}

INSTANTIATE_TEST_SUITE_P(, Records, testing::ValuesIn(records()), [](const auto& row) {
    std::string name = row.param;
    std::ranges::replace_if(
        name, [](char c) { return !std::isalnum(c); }, '_');
    return name;
});

} // namespace
