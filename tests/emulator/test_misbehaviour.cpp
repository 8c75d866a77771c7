// What the modem does when it is told to misbehave, its port, its orders, its log; the tool; and
// an independent host, gammu.
#include "host.h"

#include <csignal>
#include <spawn.h>
#include <sys/wait.h>

using namespace kelo_emulator;

extern char** environ;

namespace
{

pid_t spawn(const std::vector<std::string>& words, int input, int output)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, 0);
    posix_spawn_file_actions_adddup2(&actions, output, 1);
    posix_spawn_file_actions_adddup2(&actions, output, 2);
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    pid_t child = -1;
    EXPECT_EQ(posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    return child;
}

int exit_code(pid_t child)
{
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string slurp(const std::string& path)
{
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace

TEST(Faults, SilenceOfAllAndOfSome)
{
    Desk desk("EC25", {{"echo", "1"}});
    desk.order("silence on");
    desk.host->send("AT\r\n");
    EXPECT_EQ(desk.host->receive(), "");
    desk.modem.report("RING"); // reports go on
    EXPECT_HEARD(*desk.host, "\r\nRING\r\n");
    desk.order("silence off");
    desk.order("silence AT+COPS*");
    desk.host->send("AT+COPS?\r\n");
    EXPECT_HEARD(*desk.host, "AT+COPS?\r"); // heard, not answered
    EXPECT_EQ(desk.ask("AT"), "AT\r\r\nOK\r\n");
    EXPECT_EQ(desk.modem.commands(), (std::vector<std::string>{"AT", "AT+COPS?", "AT"}));
}

TEST(Faults, LateAnswersLetReportsAndNextEchoPass)
{
    Desk desk("EC25", {{"echo", "1"}});
    desk.order("late 400 AT+CREG?");
    const Clock::time_point start = Clock::now();
    desk.host->send("AT+CREG?\r\n");
    EXPECT_TRUE(desk.modem.wait_for("AT+CREG?", 2s));
    desk.modem.report("RING");
    desk.host->send("AT+CSQ\r\n");
    EXPECT_EQ(desk.host->receive(2s, "24,99\r\n\r\nOK\r\n"),
              "AT+CREG?\r\r\nRING\r\nAT+CSQ\r\r\n+CREG: 0,1\r\n\r\nOK\r\n"
              "\r\n+CSQ: 24,99\r\n\r\nOK\r\n");
    EXPECT_GE(Clock::now() - start, 400ms);
    desk.order("overlap swallow");
    desk.host->send("AT+CREG?\r\nAT+CSQ\r\n");
    EXPECT_EQ(desk.host->receive(700ms).find("+CSQ:"), std::string::npos);
}

TEST(Faults, SplitWritesPartialAnswersGarbage)
{
    Desk desk;
    desk.order("split 3 10");
    EXPECT_EQ(desk.ask("AT+CSQ"), "\r\n+CSQ: 24,99\r\n\r\nOK\r\n");
    std::size_t writes = 0;
    Clock::time_point last{};
    for (const LogEntry& entry : desk.modem.log()) {
        if (entry.from == From::host)
            continue;
        ++writes;
        EXPECT_LE(entry.bytes.size(), 3u);
        EXPECT_GE(entry.time - last, 10ms);
        last = entry.time;
    }
    EXPECT_EQ(writes, 7u); // 21 bytes
    EXPECT_EQ(desk.modem.sent(), (std::vector<std::string>{"+CSQ: 24,99", "OK"}));
    desk.order("split off");
    desk.order("partial 6 AT+CS*");
    desk.host->send("AT+CSQ\r\n");
    EXPECT_HEARD(*desk.host, "\r\n+CSQ");
    EXPECT_EQ(desk.ask("AT"), "\r\nOK\r\n");
    desk.order("partial off");
    desk.order("garbage 500");
    EXPECT_EQ(desk.host->receive().size(), 500u);
    desk.order("raw \\x00\\x7e\\\\n\\r");
    EXPECT_HEARD(*desk.host, std::string("\0~\\n\r", 5));
}

TEST(Faults, ResetInMidCommandDropsStateAndBootsAgain)
{
    Desk desk;
    EXPECT_EQ(desk.ask("AT+CREG=2;+CMEE=2"), "\r\nOK\r\n");
    desk.order("reset on AT+COPS*");
    desk.order("late 100"); // its answer must not come out of the grave
    desk.host->send("AT+COPS?\r\nAT+CSQ\r\n");
    EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(desk.port()); }));
    struct pollfd polled = {desk.host->fd, POLLIN, 0};
    EXPECT_EQ(poll(&polled, 1, 2000), 1);
    EXPECT_TRUE(polled.revents & POLLHUP);
    desk.order("late off");
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(desk.port()); }));
    Host again(desk.port());
    ASSERT_GE(again.fd, 0);
    EXPECT_HEARD(again, "\r\nRDY\r\n\r\n+CFUN: 1\r\n\r\n+CPIN: READY\r\n\r\n+QUSIM: 1\r\n"
                        "\r\n+QIND: SMS DONE\r\n\r\n+QIND: PB DONE\r\n");
    EXPECT_EQ(again.ask("AT+CREG?;+CMEE?"), "\r\n+CREG: 0,1\r\n\r\n+CMEE: 1\r\n\r\nOK\r\n");
}

TEST(Faults, CfunRestartAnswersFirst)
{
    Desk desk;
    EXPECT_EQ(desk.ask("AT+CFUN=1,1"), "\r\nOK\r\n");
    EXPECT_TRUE(desk.modem.wait_sent("+QIND: PB DONE", 5s));
}

TEST(Port, NodeGoesAndComesBackWhileTheModuleStaysUp)
{
    Desk desk;
    EXPECT_EQ(desk.ask("AT+CREG=2"), "\r\nOK\r\n");
    for (int round = 0; round < 3; ++round) {
        desk.order("node off");
        EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(desk.port())));
        char byte;
        const ssize_t result = read(desk.host->fd, &byte, 1);
        EXPECT_TRUE(result == 0 || errno == EIO);
        desk.modem.report("RING"); // nobody there to hear it
        desk.order("node on");
        desk.host = std::make_unique<Host>(desk.port());
        EXPECT_EQ(desk.ask("AT+CREG?"), "\r\n+CREG: 2,1,\"5A1C\",\"7C4B10D\",7\r\n\r\nOK\r\n");
    }
}

TEST(Port, HostMayCloseAndOpenAtWill)
{
    Desk desk;
    for (int round = 0; round < 5; ++round) {
        desk.host->send("AT+C"); // half a command is left behind
        desk.host->receive(20ms);
        desk.host->hang_up();
        desk.modem.report("RING");
        desk.host = std::make_unique<Host>(desk.port());
        desk.host->send("\r\n");
        desk.host->receive();
        EXPECT_EQ(desk.ask("AT"), "\r\nOK\r\n");
    }
}

TEST(Port, LeavesForeignNodesAloneAndReplacesItsOwnLeftovers)
{
    Folder folder;
    Options options;
    options.model = "EC25";
    options.port = folder.path + "/ttyUSB2";
    folder.write("ttyUSB2", "somebody's");
    {
        Modem modem;
        EXPECT_NE(modem.start(options).find("left alone"), std::string::npos);
        EXPECT_EQ(slurp(options.port), "somebody's");
    }
    std::filesystem::remove(options.port);
    std::filesystem::create_symlink("/dev/null", options.port);
    {
        Modem modem;
        EXPECT_NE(modem.start(options), "");
    }
    std::filesystem::remove(options.port);
    std::filesystem::create_symlink("/dev/pts/99999", options.port); // of one that was killed
    {
        Modem modem;
        EXPECT_EQ(modem.start(options), "");
        EXPECT_NE(modem.start(options), ""); // running already
        EXPECT_EQ(Host(options.port).ask("ATE0"), "ATE0\r\r\nOK\r\n");
        modem.stop();
        EXPECT_FALSE(modem.running());
        EXPECT_EQ(modem.commands().size(), 1u); // the log outlasts the modem
        EXPECT_EQ(modem.order("help"), "the modem is not running");
        EXPECT_EQ(modem.start(options), "");
    }
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(options.port)));
    options.port = folder.path + "/no/such/folder";
    Modem modem;
    EXPECT_NE(modem.start(options), "");
}

TEST(Port, EndlessOutputAndStalledReaderNeverHoldTheModem)
{
    Desk desk;
    desk.order("endless on +CREG: 1\\r\\n");
    EXPECT_TRUE(eventually([&] { return desk.modem.endless_bytes() > 0; }));
    for (int i = 0; i < 50000; ++i) // 400 kB of reports at a reader that stands still
        desk.modem.report("+CREG");
    const Clock::time_point start = Clock::now();
    desk.order("csq 7");
    EXPECT_LT(Clock::now() - start, 500ms);
    std::size_t taken = 0;
    const Clock::time_point end = Clock::now() + 300ms;
    while (Clock::now() < end)
        taken += desk.host->receive(20ms, "\n").size();
    EXPECT_GT(taken, 100000u);
    desk.order("endless off");
    desk.host->receive(300ms);
    EXPECT_EQ(desk.ask("AT+CSQ"), "\r\n+CSQ: 7,99\r\n\r\nOK\r\n");
}

TEST(Orders, BadOnesAreRefusedAndChangeNothing)
{
    Desk desk;
    for (const char* order :
         {"dance",       "report",        "late",         "late soon",     "late -1",
          "split 0",     "split x",       "partial 5",    "partial x AT",  "node",
          "node up",     "endless",       "sim",          "sim loose",     "sim busy x",
          "reg nowhere", "reg home dreg", "reg 11",       "cell 6G",       "csq",
          "csq 200",     "call",          "call 1 2",     "sms",           "sms text +49",
          "sms pdu",     "cmgs error",    "cmgs error x", "overlap maybe", "reset soon",
          "mqtt",        "mqtt open x",   "mqtt lost",    "gps",           "garbage 0",
          "raw",         "set",           "silence"})
        EXPECT_NE(desk.modem.order(order), "") << order;
    std::string state;
    EXPECT_EQ(desk.modem.order("state", &state), "");
    EXPECT_EQ(state, "node on, radio 1, sim ready (3 tries), cell LTE, registration 1, "
                     "stored messages 0\n");
    EXPECT_EQ(desk.ask("AT+CSQ"), "\r\n+CSQ: 24,99\r\n\r\nOK\r\n");
}

TEST(Orders, ComeFromManyThreadsWhileTheHostTalks)
{
    Desk desk;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                desk.modem.report("RING");
                desk.modem.order("reg roaming");
                desk.modem.wait_for("nothing", 1ms);
                desk.modem.set("rssi", "20");
            }
        });
    for (int round = 0; round < 10; ++round)
        desk.host->send("AT+CSQ\r\n");
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_TRUE(desk.modem.wait_sent("OK", 5s, 10));
    EXPECT_TRUE(desk.modem.wait_sent("RING", 5s, 200));
    EXPECT_EQ(desk.modem.count_sent("RING"), 200u);
    EXPECT_EQ(desk.modem.count_sent("OK"), 10u);
}

TEST(Tool, TakesOrdersAndLeavesNothingBehindOnASignal)
{
    Folder folder;
    const std::string port = folder.path + "/ttyUSB2", output = folder.path + "/out";
    for (const int number : {SIGTERM, SIGINT, 0}) {
        int orders[2];
        ASSERT_EQ(pipe2(orders, O_CLOEXEC), 0);
        const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const pid_t child =
            spawn({KELO_TEST_TOOL, "--model", "RM500Q", "--port", port, "--trace"}, orders[0], out);
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(port); }));
        const std::string text = "report RING\nwaltz\n";
        ASSERT_EQ(write(orders[1], text.data(), text.size()), ssize_t(text.size()));
        Host host(port);
        EXPECT_EQ(host.receive(3s, "RING\r\n"), "\r\nRING\r\n");
        EXPECT_TRUE(eventually([&] { return slurp(output).find("waltz") != std::string::npos; }));
        if (number)
            kill(child, number);
        else
            ASSERT_EQ(write(orders[1], "quit\n", 5), 5);
        EXPECT_EQ(exit_code(child), 0);
        EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(port)));
        EXPECT_NE(slurp(output).find("no order 'waltz'"), std::string::npos);
        EXPECT_NE(slurp(output).find("<< \\r\\nRING\\r\\n"), std::string::npos);
        for (const int end : {orders[0], orders[1], out})
            close(end);
    }
}

// An independent reading of how a modem behaves: the telephone manager of Debian.
TEST(Gammu, IdentifiesTheModemSendsAndReadsAText)
{
    if (system("command -v gammu >/dev/null") != 0)
        GTEST_SKIP() << "gammu is not installed";
    Desk desk("EC25", {{"echo", "1"}});
    desk.host->hang_up();
    desk.folder.write("gammurc", "[gammu]\ndevice = " + desk.port() + "\nconnection = at115200\n");
    const std::string output = desk.folder.path + "/out";
    const auto gammu = [&](std::vector<std::string> words) {
        words.insert(words.begin(),
                     {"timeout", "40", "gammu", "-c", desk.folder.path + "/gammurc"});
        const int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
        const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        EXPECT_EQ(exit_code(spawn(words, in, out)), 0) << slurp(output);
        close(in);
        close(out);
        return slurp(output);
    };
    const std::string identity = gammu({"--identify"});
    for (const char* field : {"Quectel", "EC25EFAR06A08M4G", "861107034512347", "262011234567890"})
        EXPECT_NE(identity.find(field), std::string::npos) << field << "\n" << identity;

    gammu({"sendsms", "TEXT", "+4915112345678", "-text", "Door 3 open"});
    const std::vector<SentMessage> sent = desk.modem.sent_messages();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_NE(sent[0].body.find("91945111325476F8"), std::string::npos) << sent[0].body;
    EXPECT_NE(sent[0].body.find("C4F75B0E9A81DEF0B21B"), std::string::npos) << sent[0].body;

    desk.order("sms text +4915112345678 Gate 7 shut");
    const std::string messages = gammu({"getallsms"});
    EXPECT_NE(messages.find("Gate 7 shut"), std::string::npos) << messages;
    EXPECT_NE(messages.find("+4915112345678"), std::string::npos) << messages;
}
