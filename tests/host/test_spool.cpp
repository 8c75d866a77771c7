// SPDX-License-Identifier: MIT
// The spool: what it does with files, and that no end of the process loses or doubles a message.
#include "host/messages/spool.h"
#include "tests/host/fakes.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace kelo_host;
namespace fs = std::filesystem;

namespace
{

const std::string dir = "/tmp/spool-" + std::to_string(getpid());

// NOLINTNEXTLINE(readability-identifier-naming): the name of the suite
struct Spool : testing::Test {
    Spool() { clear(); }
    ~Spool() override { fs::remove_all(dir); }
    static void clear()
    {
        fs::remove_all(dir);
        fs::create_directories(dir + "/outgoing");
        fake_sms = {};
        fake.log.clear();
    }
    static void put(const std::string& name, const std::string& content)
    {
        std::ofstream(dir + "/" + name, std::ios::binary) << content;
    }
    static std::string get(const std::string& name)
    {
        std::ifstream file(dir + "/" + name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static std::string names(const std::string& where)
    {
        std::vector<std::string> all;
        for (const auto& one : fs::directory_iterator(dir + "/" + where))
            all.push_back(one.path().filename());
        std::sort(all.begin(), all.end());
        std::string text;
        for (const std::string& one : all)
            text += one + " ";
        return text;
    }
    static std::string handed()
    {
        std::string all;
        for (const auto& one : fake_sms.handed)
            all += one.text + " ";
        return all;
    }
    static kelo_sms_result result(int number, int state)
    {
        return {sizeof(kelo_sms_result), number, "",  "+491", state, 1, state == KELO_SMS_SENT,
                KELO_SMS_CMS_ERROR,      38,     {77}};
    }
    static bool has(const std::string& text, const std::string& part)
    {
        return text.find(part) != text.npos;
    }
};

// What becomes of one message whose process ends behind so many changes of the disk.
struct fate {
    int ends_behind;
    int answer; // of the network: a state, or 0 when the process ends ahead of it
    bool full;  // it was a full disk, and there is room again
};

} // namespace

// clang-format off

// Catches: at whatever step the process is killed, or the disk full, at the first run and at the one that recovers: a
// message that is sent twice, or of which no file tells, or two.
TEST_F(Spool, SendsEachFileOnceWhereverTheProcessEnds)
{
    int on_air = 0;
    const auto run = [&](const fate& one) {
        spool process(note);
        fake_sms.handed.clear();
        process.folders().stop_after(one.ends_behind);
        if (!process.open(dir).empty())
            return;
        for (int second = 0; second < 600; second += 200) {
            process.pass(at_ms(second * 1000));
            if (!fake_sms.handed.empty() && (one.full || !process.folders().stopped())) {
                const auto message = fake_sms.handed.front();
                fake_sms.handed.clear();
                message.options.going_out(1, 1, message.options.context);
                on_air++;
                if (one.answer == 0)
                    return;
                process.note(result(1, one.answer));
            } else if (one.full && second > 0) {
                process.folders().stop_after(INT_MAX);
            }
        }
    };
    for (const int answer : {0, int{KELO_SMS_SENT}, int{KELO_SMS_FAILED}})
        for (const bool full : {false, true})
            for (int first = 0; first < 34; first++)
                for (int second = full ? 99 : first % 13; second < 26 || second == 99; second += 13) {
                    clear();
                    put("outgoing/a", "To: +491\n\nhi\n");
                    on_air = 0;
                    run({first, answer, full});
                    run({second, answer, full});
                    run({INT_MAX, KELO_SMS_SENT, false});
                    const std::string done = names("sent") + "|" + names("failed");
                    const std::string record = get("sent/a") + get("failed/a");
                    ASSERT_TRUE(done == "a |" || done == "|a ") << done << ", " << answer << full << " " << first << " " << second;
                    ASSERT_EQ(names("outgoing") + names(".state/sending") + names(".state/marks") + names(".state/tmp") +
                              names(".state/ready-sent") + names(".state/ready-failed"), "");
                    ASSERT_EQ(on_air, 1) << answer << full << " " << first << " " << second;
                    ASSERT_TRUE(has(record, "To: +491\n") && has(record, "\n\nhi\n")) << record;
                    ASSERT_EQ(done == "a |", has(record, "\nSent: ") && has(record, "\nMessage_id: 77\n")) << record;
                    ASSERT_EQ(done == "|a ", has(record, "\nFail_reason: unknown") || has(record, "\nFail_reason: +CMS ERROR: 38\n")) << record;
                }
}

// Catches the same of a message that comes in, of which the library gives each that was not taken for kept again.
TEST_F(Spool, KeepsEachMessageOnceWhereverTheProcessEnds)
{
    bool in_modem = true;
    whole_message message;
    message.head = {sizeof message.head, "+491", "", "", 0, -1, 0, 0, -1, -1, 1, 0, 0, 0xabcULL, 2};
    message.text = "hi";
    const auto run = [&](int ends_behind, bool full, bool confirms) {
        spool process(note);
        process.folders().stop_after(ends_behind);
        if (!process.open(dir).empty() || !in_modem)
            return;
        auto kept = process.keep(message, at_ms(0));
        if (full) {
            process.folders().stop_after(INT_MAX);
            kept = kept == spool::keeping::not_yet ? process.keep(message, at_ms(999999)) : kept;
            EXPECT_NE(kept, spool::keeping::not_yet);
        }
        in_modem = kept == spool::keeping::not_yet || !confirms;
    };
    for (const bool full : {false, true})
        for (const bool confirms : {false, true})
            for (int first = 0; first < 16; first++)
                for (int second = full ? 99 : first % 8; second < 16 || second == 99; second += 8) {
                    clear();
                    in_modem = true;
                    message.head.stored = 0;
                    run(first, full, confirms);
                    message.head.stored = 1;
                    run(second, false, confirms);
                    run(INT_MAX, false, true);
                    const std::string name = names("incoming");
                    ASSERT_EQ(std::count(name.begin(), name.end(), ' '), 1) << name << full << confirms << first << " " << second;
                    ASSERT_TRUE(has(name, "-0000000000000abc ")) << name;
                    ASSERT_TRUE(has(get("incoming/" + name.substr(0, name.size() - 1)), "From: +491\n")) << name;
                    ASSERT_EQ(names(".state/tmp") + names(".state/seen"), "0000000000000abc ");
                }
}

// Catches: a new message taken for an old one because it says the same, and digests that fill the disk.
TEST_F(Spool, KnowsAgainWhatWasStoredAlone)
{
    spool process(note);
    ASSERT_EQ(process.open(dir), "");
    whole_message message;
    for (int twice = 0; twice < 2; twice++)
        EXPECT_EQ(process.keep(message, at_ms(twice)), spool::keeping::kept);
    message.head.stored = 1;
    EXPECT_EQ(process.keep(message, at_ms(2)), spool::keeping::known);
    for (message.head.digest = 1; message.head.digest < 2200; message.head.digest++)
        EXPECT_EQ(process.keep(message, at_ms(3)), spool::keeping::kept);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir + "/incoming"), {}), 2201);
    EXPECT_LE(std::distance(fs::directory_iterator(dir + "/.state/seen"), {}), 2048 + 64);
    message.head.digest = 2199;
    EXPECT_EQ(process.keep(message, at_ms(4)), spool::keeping::known);
}

// Catches: the rest of a message, of which a process before had deleted a part, shown as another one.
TEST_F(Spool, KnowsThePartsOfAMessage)
{
    spool process(note);
    ASSERT_EQ(process.open(dir), "");
    whole_message message;
    message.head.digest = 0xabc;
    message.parts = {1, 2};
    EXPECT_EQ(process.keep(message, at_ms(0)), spool::keeping::kept);
    message.head.digest = 0xdef;
    message.head.missing = message.head.stored = 1;
    message.parts = {2};
    EXPECT_EQ(process.keep(message, at_ms(1)), spool::keeping::known);
    message.parts = {2, 3};
    EXPECT_EQ(process.keep(message, at_ms(2)), spool::keeping::kept);
}

// Catches: a file taken ahead of its turn or unfinished, one that comes while the host runs and is not seen, too many
// in the library's hands, and one that its fullness turns into a failure.
TEST_F(Spool, TakesFilesInTheOrderInWhichTheyCame)
{
    fs::create_directories(dir + "/.state/sending");
    for (const std::string name : {"outgoing/b", "outgoing/a", "outgoing/c", "outgoing/.d", "outgoing/e.LOCK",
                                   "outgoing/f.tmp", ".state/sending/z"}) {
        put(name, "To: 1\n\n" + name.substr(name.rfind('/') + 1));
        const timespec times[] = {{0, 0}, {name.back() == 'c' ? 100 : name.back() == 'z' ? 300 : 200, 0}};
        utimensat(AT_FDCWD, (dir + "/" + name).c_str(), times, 0);
    }
    spool process(note);
    ASSERT_EQ(process.open(dir), "");
    process.pass(at_ms(0));
    EXPECT_EQ(handed(), "c a b z ");
    put("f", "To: 1\n\nf");
    fs::rename(dir + "/f", dir + "/outgoing/f");
    put("outgoing/c", "To: 1\n\nagain"); // of that name there is one under way
    process.pass(at_ms(250));
    EXPECT_EQ(handed(), "c a b z f ");
    process.note(result(1, KELO_SMS_SENT));
    process.pass(at_ms(500));
    EXPECT_EQ(handed(), "c a b z f again ");
    process.note(result(6, KELO_SMS_SENT));
    process.pass(at_ms(750));
    EXPECT_EQ(names("sent"), "c c.1 ");
    fake_sms.refuse = 2;
    for (const char* name : {"g", "h", "i", "j", "k", "l"})
        put(std::string("outgoing/") + name, std::string("To: 1\n\n") + name);
    process.pass(at_ms(1000)); // refused: it is full
    process.pass(at_ms(1250));
    EXPECT_EQ(handed(), "c a b z f again ");
    process.note(result(2, KELO_SMS_FAILED));
    process.pass(at_ms(1500));
    process.note(result(3, KELO_SMS_FAILED));
    process.pass(at_ms(1750));
    EXPECT_EQ(handed().size(), std::string("c a b z f again g h i j k l ").size());
    EXPECT_EQ(names("failed"), "a b ");
    process.stop();
    EXPECT_FALSE(process.is_sending());
    EXPECT_EQ(names("outgoing"), ".d e.LOCK f f.tmp g h i j k l z ");
    EXPECT_EQ(names(".state/sending"), "");
}

// Catches: what is no message and holds up all others, is sent, or is lost without a word.
TEST_F(Spool, PutsAsideWhatItCanNotSend)
{
    put("outgoing/ok", "To: 1\n\nok");
    put("outgoing/none", "hello\n");
    put("outgoing/big", "To: 1\n\n" + std::string(65536, 'x'));
    fs::create_symlink("/etc/passwd", dir + "/outgoing/link");
    fs::create_directory(dir + "/outgoing/folder");
    mkfifo((dir + "/outgoing/pipe").c_str(), 0600);
    fs::create_directory(dir + "/failed");
    put("failed/none", "there already");
    spool process(note);
    ASSERT_EQ(process.open(dir), "");
    process.pass(at_ms(0));
    EXPECT_EQ(handed(), "ok ");
    EXPECT_EQ(names("outgoing"), "");
    EXPECT_EQ(names("failed"), "big big.reason folder folder.reason link link.reason none none.1 pipe pipe.reason ");
    EXPECT_TRUE(has(get("failed/none.1"), "hello\nFailed: ") && has(get("failed/none.1"), "\nFail_reason: no header To\n"));
    EXPECT_TRUE(has(get("failed/link.reason"), "\nFail_reason: a link\n"));
    EXPECT_TRUE(has(get("failed/big.reason"), "\nFail_reason: larger than 64 KiB\n"));
    EXPECT_EQ(get("failed/none"), "there already");
}

// Catches: a second process that sends everything once more, Resend that is not heeded, and reports that go astray.
TEST_F(Spool, BelongsToOneProcessAndHeedsWhatAFileSays)
{
    put("outgoing/a", "To: 1\nResend: yes\nReport: yes\n\na\n");
    for (int twice = 0; twice < 2; twice++) {
        spool process(note);
        ASSERT_EQ(process.open(dir), "");
        spool other(note);
        EXPECT_TRUE(has(other.open(dir), "another process has this spool"));
        fake_sms.handed.clear();
        process.pass(at_ms(0));
        ASSERT_EQ(handed(), "a ");
        fake_sms.handed[0].options.going_out(1, 1, fake_sms.handed[0].options.context);
        if (twice == 0)
            continue; // killed
        kelo_sms_report report{0, 1, "", 2, 0, "", "", 0, "2024-05-17 09:30:12", 8, 0, KELO_SMS_DELIVERED};
        process.note(report);
        process.note(result(1, KELO_SMS_SENT));
        process.pass(at_ms(250));
        report.part = 1, report.state = KELO_SMS_UNDELIVERED, report.status = 70;
        process.note(report);
    }
    EXPECT_EQ(names("failed"), "");
    EXPECT_TRUE(has(get("sent/a"), "\nDelivered: 2024-05-17 09:30:12 +02:00, part 2\nUndelivered: 70, part 1\n\na\n")) << get("sent/a");
    struct stat file = {};
    stat((dir + "/sent/a").c_str(), &file);
    EXPECT_EQ(file.st_mode & 0777, 0600u);
}
