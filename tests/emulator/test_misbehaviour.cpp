// What the modem does when it is told to misbehave, its port, its orders, its log; the tool; and
// an independent host, gammu.
#include "tests/emulator/host.h"

#include <csignal>

using namespace kelo_emulator;

TEST(Faults, SplitWritesPartialAnswersGarbage)
{
    test_desk desk;
    desk.hold({{"!split 3 10", ""}, {"AT+CSQ\r", "\r\n+CSQ: 24,99\r\n\r\nOK\r\n"}});
    for (const log_entry& entry : desk.modem.log())
        EXPECT_TRUE(entry.from == speaker::host || entry.bytes.size() <= 3);
    desk.hold({{"!split off", ""},
               {"!partial 6 AT+CS*", ""},
               {"AT+CSQ\r", "\r\n+CSQ"},
               {"AT\r", "\r\nOK\r\n"},
               {"!partial off", ""},
               {"!raw \\x00\\x7e\\\\n\\r", std::string("\0~\\n\r", 5)}});
    desk.order("garbage 500");
    EXPECT_EQ(desk.host->receive().size(), 500u);
}

TEST(Faults, ResetInMidCommandDropsStateAndBootsAgain)
{
    test_desk desk;
    desk.hold({{"AT+CREG=2;+CMEE=2\r", "\r\nOK\r\n"}});
    desk.order("reset on AT+COPS*");
    desk.order("late 100"); // its answer must not come out of the grave
    desk.host->send("AT+COPS?\r\nAT+CSQ\r\n");
    EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(desk.port()); }));
    desk.order("late off");
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(desk.port()); }));
    desk.host = std::make_unique<port_host>(desk.port());
    EXPECT_HEARD(*desk.host, "\r\nRDY\r\n\r\n+CFUN: 1\r\n\r\n+CPIN: READY\r\n\r\n+QUSIM: 1\r\n"
                             "\r\n+QIND: SMS DONE\r\n\r\n+QIND: PB DONE\r\n");
    desk.hold({{"AT+CREG?;+CMEE?\r", "\r\n+CREG: 0,1\r\n\r\n+CMEE: 1\r\n\r\nOK\r\n"}});
}

TEST(Port, NodeGoesAndComesBackWhileTheModuleStaysUp)
{
    test_desk desk;
    desk.hold({{"AT+CREG=2\r", "\r\nOK\r\n"}});
    for (int round = 0; round < 3; ++round) {
        desk.order("node off");
        EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(desk.port())));
        desk.modem.report("RING"); // nobody there to hear it
        desk.order("node on");
        desk.host = std::make_unique<port_host>(desk.port());
        desk.hold({{"AT+CREG?\r", "\r\n+CREG: 2,1,\"5A1C\",\"7C4B10D\",7\r\n\r\nOK\r\n"}});
    }
}

TEST(Port, LeavesForeignNodesAloneAndReplacesItsOwnLeftovers)
{
    scratch_folder folder;
    emulated_modem modem;
    modem_options options;
    options.model = "EC25";
    options.port = folder.path + "/ttyUSB2";
    folder.write("ttyUSB2", "somebody's");
    EXPECT_NE(modem.start(options).find("left alone"), std::string::npos);
    EXPECT_EQ(folder.read("ttyUSB2"), "somebody's");
    std::filesystem::remove(options.port);
    std::filesystem::create_symlink("/dev/pts/99999", options.port); // of one that was killed
    EXPECT_EQ(modem.start(options), "");
    modem.stop();
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(options.port)));
}

TEST(Port, EndlessOutputAndStalledReaderNeverHoldTheModem)
{
    test_desk desk;
    desk.order("endless on +CREG: 1\\r\\n");
    EXPECT_TRUE(eventually([&] { return desk.modem.endless_bytes() > 0; }));
    for (int i = 0; i < 50000; ++i) // 400 kB of reports at a reader that stands still
        desk.modem.report("+CREG");
    const monotonic_clock::time_point start = monotonic_clock::now();
    desk.order("csq 7");
    EXPECT_LT(monotonic_clock::now() - start, 500ms);
    desk.order("endless off");
    desk.host->receive(300ms);
    desk.hold({{"AT+CSQ\r", "\r\n+CSQ: 7,99\r\n\r\nOK\r\n"}});
}

TEST(Orders, BadOnesAreRefusedAndChangeNothing)
{
    test_desk desk;
    for (const char* order :
         {"dance",        "report",       "late soon",     "late -1",    "split 0",
          "partial 5",    "node up",      "sim loose",     "sim busy x", "reg home dreg",
          "reg 11",       "cell 6G",      "csq 200",       "call 1 2",   "sms text +49",
          "sms pdu 12ZZ", "cmgs error x", "overlap maybe", "reset soon", "mqtt open x",
          "garbage 0",    "set"})
        EXPECT_NE(desk.modem.order(order), "") << order;
    std::string state;
    EXPECT_EQ(desk.modem.order("state", &state), "");
    EXPECT_EQ(state, "node on, radio 1, sim ready (3 tries), cell LTE, registration 1, "
                     "stored messages 0\n");
}

TEST(Tool, TakesOrdersAndLeavesNothingBehindOnASignal)
{
    scratch_folder folder;
    const std::string port = folder.path + "/ttyUSB2";
    const std::string line = "cd " + folder.path +
                             "; echo $$ >pid; exec " KELO_TEST_TOOL
                             " --model RM500Q --trace --port " +
                             port + " >out 2>&1";
    for (const int number : {SIGTERM, SIGINT, 0}) {
        FILE* const orders = popen(line.c_str(), "we");
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(port); }));
        fputs("report RING\nwaltz\n", orders);
        fflush(orders);
        EXPECT_EQ(port_host(port).receive(3s, "RING\r\n"), "\r\nRING\r\n");
        EXPECT_TRUE(eventually([&] { return folder.has("out", "no order 'waltz'"); }));
        if (number)
            kill(std::stoi(folder.read("pid")), number);
        else
            fputs("quit\n", orders);
        EXPECT_EQ(pclose(orders), 0);
        EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(port)));
    }
}

// An independent reading of how a modem behaves: the telephone manager of Debian.
TEST(Gammu, IdentifiesTheModemSendsAndReadsAText)
{
    if (system("command -v gammu >/dev/null") != 0)
        GTEST_SKIP() << "gammu is not installed";
    test_desk desk("EC25", {{"echo", "1"}});
    desk.host.reset();
    desk.folder.write("gammurc", "[gammu]\ndevice = " + desk.port() + "\nconnection = at115200\n");
    const auto gammu = [&](const std::string& words) {
        return system(("cd " + desk.folder.path + "; timeout 40 gammu -c gammurc " + words +
                       " </dev/null >out 2>&1")
                          .c_str());
    };
    EXPECT_EQ(gammu("--identify"), 0);
    for (const char* field : {"Quectel", "EC25EFAR06A08M4G", "861107034512347", "262011234567890"})
        EXPECT_TRUE(desk.folder.has("out", field)) << field;
    EXPECT_EQ(gammu("sendsms TEXT +4915112345678 -text 'Door 3 open'"), 0);
    ASSERT_EQ(desk.modem.sent_messages().size(), 1u);
    const std::string body = desk.modem.sent_messages()[0].body;
    EXPECT_NE(body.find("91945111325476F8"), std::string::npos) << body;
    EXPECT_NE(body.find("C4F75B0E9A81DEF0B21B"), std::string::npos) << body;
    desk.order("sms text +4915112345678 Gate 7 shut");
    EXPECT_EQ(gammu("getallsms"), 0);
    EXPECT_TRUE(desk.folder.has("out", "Gate 7 shut"));
    EXPECT_TRUE(desk.folder.has("out", "+4915112345678"));
}
