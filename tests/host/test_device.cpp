// SPDX-License-Identifier: MIT
// What is said of a device that is not online: the reasons, and what it lacks.
#include "host/look/check_device.h"
#include "host/state/reasons.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>

using namespace kelo_host;
namespace fs = std::filesystem;

namespace
{

// Catches: a reason without its row, or without its chapter under the group of its exit status.
TEST(Reasons, EachHasItsRowAndItsChapter)
{
    std::stringstream text;
    text << std::ifstream(KELO_DOCS "/troubleshooting.md").rdbuf();
    const std::string guide = text.str();
    for (int number = 0; number <= KELO_REASON_ONLINE; number++) {
        const auto reason = static_cast<kelo_reason>(number);
        const std::string word = kelo_reason_name(reason);
        EXPECT_EQ(row_of(reason).reason, reason);
        EXPECT_EQ(row_of(word), &row_of(reason));
        EXPECT_EQ(*row_of(reason).hint == '\0', reason == KELO_REASON_ONLINE) << word;
        const size_t chapter = guide.find("\n### " + word + "\n");
        ASSERT_NE(chapter, guide.npos) << word;
        const size_t group = guide.rfind("\n## ", chapter);
        const auto status = std::to_string(static_cast<int>(row_of(reason).group));
        EXPECT_LT(guide.find("(exit status " + status + ")\n", group), chapter) << word;
    }
}

fs::path top; // of the device

void put(const char* name, const std::string& text = "", mode_t mode = 0755)
{
    fs::create_directories((top / name).parent_path());
    std::ofstream(top / name) << text;
    chmod((top / name).c_str(), mode);
}

void opens(const char* pid, const char* file)
{
    const fs::path fds = top / "proc" / pid / "fd";
    fs::create_directories(fds);
    fs::create_symlink(top / file, fds / fs::path(file).filename());
}

// Catches: a fault that is not seen or not named, and one that is seen where there is none.
TEST(Device, SaysWhatIsWrong)
{
    char folder[] = "/tmp/kelo-device-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    top = folder;
    device_paths paths;
    paths.dev = top / "dev", paths.proc = top / "proc";
    paths.profiles = {top / "profiles"}, paths.config = top / "config";
    paths.path = (top / "none").string() + ":" + (top / "bin").string();
    // clang-format off
    const struct { void (*change)(); const char *named, *gone; } rows[] = { // what is wrong then, and what is not
        {[] { put("dev/ttyUSB0"), fs::create_directories(top / "proc/self"); }, "port: no serial", "permission"},
        {[] { put("dev/ttyACM3"); }, "quectel-CM: not in PATH", "port: "},
        {[] { put("bin/quectel-CM"), put("bin/ping", "", 0644); }, "ping: ", "quectel-CM"},
        {[] { put("bin/ping"), put("bin/killall"); }, "ifconfig: ", "ping: "},
        {[] { put("bin/ifconfig"); }, "profiles: ", "ifconfig: "},
        {[] { put("profiles/README"); }, "no .conf file", "ifconfig: "},
        {[] { fs::create_directories(top / "profiles/a.conf"); }, "can't be read: a.conf", "no .conf"},
        {[] { fs::remove(top / "profiles/a.conf"), put("profiles/b.conf", "MODULE => EC25\n"); }, "config: ", "profiles:"},
        {[] { fs::create_directories(top / "config"); }, "", "config: "},
        {[] { put("proc/71/comm", "minicom\n"), opens("71", "dev/ttyACM3"); }, "held by minicom (71): end", "permission"},
        {[] { opens("71", "dev/ptmx"); }, "", "minicom"}, // it is the modem, emulated
        {[] { put("proc/72/comm", "ModemManager\n"); }, "ModemManager (72) takes turns", "held"}};
    // clang-format on
    for (const auto& [change, named, gone] : rows) {
        change();
        std::string wrong;
        for (const look& one : check_device(paths))
            wrong += one.well ? "" : line_of(one) + "\n";
        EXPECT_NE(wrong.find(named), wrong.npos) << named << " in:\n" << wrong;
        EXPECT_EQ(wrong.find(gone), wrong.npos) << gone << " in:\n" << wrong;
        EXPECT_EQ(*named == '\0', wrong.empty()) << wrong;
    }
    EXPECT_EQ(profile_fault(paths.profiles, "EC25-E"), "");
    EXPECT_NE(profile_fault(paths.profiles, "RM500Q"), "");
    fs::remove_all(top);
}

} // namespace
