// SPDX-License-Identifier: MIT
// What the stories of the library can't see of the emulator: what a module says byte for byte, what
// it refuses, the files and ports that it takes, its tool.
#include "tests/e2e/story.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/ioctl.h>

using namespace kelo_emulator;
using namespace kelo_story;

namespace
{

#define FOLDER "/tmp/emulator/"

class Emulator : public Story
{
  protected:
    Emulator() { EXPECT_EQ(std::system("rm -rf " FOLDER "; mkdir " FOLDER), 0); }
    ~Emulator() override { close(host); }

    void be_host() // at the port, once it is there
    {
        close(host);
        EXPECT_SOON(port_is_there());
        host = open(port, O_RDWR | O_NOCTTY);
        ASSERT_GE(host, 0);
    }
    void send(const std::string& bytes) const
    {
        ASSERT_EQ(write(host, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    // Waits for `least` bytes, however slow the machine; then what else comes right behind them.
    std::string hear(std::size_t least) const
    {
        std::string bytes;
        char piece[4096];
        pollfd polled = {host, POLLIN, 0};
        while (poll(&polled, 1, bytes.size() < least ? 3000 : 40) > 0) {
            const ssize_t length = read(host, piece, sizeof piece);
            if (length <= 0)
                break;
            bytes.append(piece, static_cast<std::size_t>(length));
        }
        return bytes;
    }
    // What the host sends, or an order behind '!', and every byte that comes back.
    void hold(const std::vector<std::pair<std::string, std::string>>& steps)
    {
        for (const auto& [bytes, answer] : steps) {
            if (bytes[0] == '!')
                order(bytes.substr(1));
            else
                send(bytes);
            EXPECT_EQ(hear(answer.size()), answer) << bytes;
        }
    }
    static bool port_is_there()
    {
        return std::filesystem::exists(std::filesystem::symlink_status(port));
    }

    int host = -1;
};

} // namespace

// clang-format off
TEST_F(Emulator, SaysAndRefusesByteForByte)
{
    const std::string ready = "\r\n+CPIN: READY\r\n\r\n+QUSIM: 1\r\n";
    const std::string done = "\r\n+QIND: PB DONE\r\n\r\n+QIND: SMS DONE\r\n";
    const std::string wrong = "\r\n+CME ERROR: incorrect password\r\n";
    const std::string pdu = "0011000D91945111325476F80000AA07D4721B0E92C500";
    plug("EC25", {{"echo", "1"}, {"message_reference", "255"}, {"report_gap_ms", "5"}, {"pin_ms", "5"},
                  {"cfun_ms", "5"}});
    be_host();
    hold({
        {"AT+CSQ\r\n", "AT+CSQ\r\r\n+CSQ: 24,99\r\n\r\nOK\r\n"},
        {"\r\n\r\n", "\r\r"}, // an empty line draws nothing but its echo
        {"xx\x01" "at\r", "xx\x01" "at\r\r\nOK\r\n"}, // what stands ahead of AT is ignored
        {"AT+CMGF=0\r\n", "AT+CMGF=0\r\r\nOK\r\n"},
        {"AT+CMGS=22\r\n", "AT+CMGS=22\r\r\n> "},
        {pdu + "\x1a\r\n", pdu + "\x1a\r\r\n+CMGS: 255\r\n\r\nOK\r\n"},
        {"AT+CMGS=21\r\n", "AT+CMGS=21\r\r\n> "}, // the length is one short
        {pdu + "\x1a", pdu + "\x1a\r\n+CMS ERROR: 304\r\n"},
        {"AT+CMGS=22\r\n", "AT+CMGS=22\r\r\n> "},
        {"0011\x1b", "0011\r\nOK\r\n"},
        {"ATE0;+CMGF=1\r", "ATE0;+CMGF=1\r\r\nOK\r\n"},
        {"AT+CMGS=\"+4915112345678\"\r", "\r\n> "},
        {"one\r", "\r\n> "},
        {"two\x1a", "\r\n+CMGS: 0\r\n\r\nOK\r\n"},
        {"!reg searching", ""},
        {"AT+CMGS=\"1\"\r", "\r\n> "},
        {"x\x1a", "\r\n+CMS ERROR: 331\r\n"},
        // one result, and the first error ends the line
        {"AT+CNMI=2,2,0,0,0;+NONSENSE;+CMGF=0\r\n", "\r\nERROR\r\n"},
        {"AT+CMGF?;+CNMI?\r\n", "\r\n+CMGF: 1\r\n\r\n+CNMI: 2,2,0,0,0\r\n\r\nOK\r\n"},
        // a semicolon inside quotes parts nothing
        {"AT+CSCA=\"+49;1\";+CSCA?\r\n", "\r\n+CSCA: \"+49;1\",145\r\n\r\nOK\r\n"},
        {"!sim failure", ""},
        {"AT+CMEE=2\r\n", "\r\nOK\r\n"},
        {"AT+CPIN?\r\n", "\r\n+CME ERROR: SIM failure\r\n"},
        {"AT+CMGS=20\r\n", "\r\n+CMS ERROR: 313\r\n"},
        {"!sim pin 4711", ""},
        {"AT+CPIN?\r", "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n"},
        {"AT+CPIN=\"0000\"\r", wrong},
        {"AT+QPINC?\r", "\r\n+QPINC: \"SC\",2,10\r\n+QPINC: \"P2\",3,10\r\n\r\nOK\r\n"},
        {"AT+CPINR\r", "\r\nERROR\r\n"},
        {"AT+CPIN=\"4711\"\r", "\r\nOK\r\n" + ready + done},
        // the radio takes the card's power: the PIN is asked for again
        {"AT+CFUN=0\r", "\r\nOK\r\n\r\n+CPIN: NOT READY\r\n"},
        {"AT+CFUN=1\r", "\r\nOK\r\n\r\n+CPIN: SIM PIN\r\n"},
        {"AT+CPIN=\"1\"\r", wrong}, {"AT+CPIN=\"2\"\r", wrong}, {"AT+CPIN=\"3\"\r", wrong},
        {"AT+CPIN?\r", "\r\n+CPIN: SIM PUK\r\n\r\nOK\r\n"},
        {"AT+CPIN=\"12345678\",\"9999\"\r", "\r\nOK\r\n" + ready + done},
        // ahead of CONNECT nothing reaches the file, beyond its size everything is a command
        {"!late 100 AT+QFUPL*", ""},
        {"AT+QFUPL=\"RAM:y\",5,100\r\nlost", "\r\nCONNECT\r\n"},
        {"12345AT+CLIP?\r\n", "\r\n+QFUPL: 5,3706\r\n\r\nOK\r\n\r\n+CLIP: 0,1\r\n\r\nOK\r\n"},
        {std::string(100000, 'A') + "\r", "\r\nERROR\r\n"},
    });
    for (int i = 0; i < 20000; ++i)
        send(std::string(1, static_cast<char>(i * 7919 >> 3)));
    send("\x1b\r");
    hear(0);
    hold({{"AT\r", "\r\nOK\r\n"}});
    for (const log_entry& entry : modem.log())
        EXPECT_LT(entry.bytes.size(), 10000u);
    const std::vector<sent_message> sent = modem.sent_messages();
    ASSERT_GE(sent.size(), 3u);
    EXPECT_EQ(sent[0].body, pdu);
    EXPECT_EQ(sent[2].target + ": " + sent[2].body, "+4915112345678: one\ntwo");
}
// The two memories, a full one, what lies in them and what is torn; a report of a delivery.
TEST_F(Emulator, StoresMessagesAsModulesDo)
{
    const std::string pdu = "0004049142210000425071900321800141", ok = "\r\nOK\r\n";
    const std::string submit = "0031000491422100A70141", status = "079194710167000006070491422142507190032180425071900321800" "0";
    plug("EC25", {{"echo", "0"}, {"sms_size_ME", "1"}, {"sms_first", "1"}, {"report_ms", "1"}, {"cmgs_ms", "1"},
                  {"sms_full_report", "+SMS FULL"}, {"message_reference", "7"}});
    be_host();
    hold({
        {"AT+CMGD=?\r", "\r\n+CMGD: (),(0-4)\r\n" + ok},
        {"!sms store " + pdu + " 2", ""},
        {"!sms pdu " + pdu, "\r\n+SMS FULL\r\n"},
        {"AT+CMGD=?\r", "\r\n+CMGD: (1),(0-4)\r\n" + ok},
        {"!set sms_list range", ""}, {"AT+CMGD=?\r", "\r\n+CMGD: (1-1),(0-4)\r\n" + ok},
        {"AT+CPMS?\r", "\r\n+CPMS: \"ME\",1,1,\"ME\",1,1,\"ME\",1,1\r\n" + ok},
        {"AT+CMGD=1\r", ok + "\r\n+CMTI: \"ME\",1\r\n"}, // the network has kept it
        {"!set sms_torn RING", ""},
        {"AT+CMGR=1\r", "\r\n+CMGR: 0,,16\r\n" + pdu.substr(0, 16) + "\r\nRING\r\n" + pdu.substr(16) + "\r\n" + ok},
        {"AT+CMGR=2\r", "\r\n+CMS ERROR: 321\r\n"},
        {"!set sms_empty ok", ""}, {"AT+CPMS=\"SM\"\r", "\r\n+CPMS: 0,255,0,255,1,1\r\n" + ok}, {"AT+CMGR=1\r", ok},
        {"AT+CPMS=\"SM\",\"SM\",\"SM\"\r", "\r\n+CPMS: 0,255,0,255,0,255\r\n" + ok},
        {"AT+CNMI=2,1,0,1,0\r", ok}, {"AT+CMGS=10\r", "\r\n> "},
        {submit + "\x1a", "\r\n+CMGS: 7\r\n" + ok + "\r\n+CDS: 21\r\n" + status + "\r\n"},
        {"AT+CNMI=2,1,0,2,0\r", ok}, {"!set report_status 46", ""}, {"AT+CMGS=10\r", "\r\n> "},
        {submit + "\x1a", "\r\n+CMGS: 8\r\n" + ok + "\r\n+CDSI: \"SM\",1\r\n"},
    });
}
// A host relies on each of these when it decides about a PIN, a reset or a power switch.
TEST_F(Emulator, KeepsTheTriesOfAPinAndTellsThemWhereTheModuleCan)
{
    struct {
        const char *model, *question, *told, *unlocked;
    } const rows[] = {
        {"EC25", "AT+QPINC=\"SC\"\r", "\r\n+QPINC: \"SC\",1,10\r\n\r\nOK\r\n", "\r\n+CPIN: READY\r\n"},
        {"LE910", "AT+CPINR=\"SIM P*\"\r", "\r\n+CPINR: SIM PIN,1,3\r\n+CPINR: SIM PUK,10,10\r\n"
         "+CPINR: SIM PIN2,3,3\r\n+CPINR: SIM PUK2,10,10\r\n\r\nOK\r\n", ""},
        {"MH5000-31", "AT+CPINR\r", "\r\nCOMMAND NOT SUPPORT\r\n", ""},
        {"U9300C", "AT+CPINR\r", "\r\nERROR\r\n", ""},
    };
    for (const auto& row : rows) {
        plug(row.model, {{"echo", "0"}, {"pin_ms", "1"}, {"report_gap_ms", "1"}, {"boot_locked", ""}});
        if (*row.unlocked)
            order("set sim_unlocked +CPIN: READY"); // and no more
        order("sim pin 4711");
        be_host();
        hold({{"AT+CPIN=1\r", "\r\n+CME ERROR: 16\r\n"}});
        order("reset 1"); // and what the SIM counts outlasts it
        be_host();
        hear(0);
        hold({{"AT+CPIN=2\r", "\r\n+CME ERROR: 16\r\n"}, {row.question, row.told},
              {"AT+CPIN=4711\r", std::string("\r\nOK\r\n") + row.unlocked}});
        // one try again, and none: only another card helps
        hold({{"!sim pin", ""}, {"!sim tries 1", ""}, {"AT+CPIN=3\r", "\r\n+CME ERROR: 16\r\n"},
              {"AT+CPIN?\r", "\r\n+CPIN: SIM PUK\r\n\r\nOK\r\n"}});
        const std::string iccid = modem.get("iccid");
        order("sim pull");
        order("sim put new 0815");
        hear(0);
        EXPECT_NE(modem.get("iccid"), iccid) << row.model;
        hold({{"AT+CPIN?\r", "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n"}, {"AT+CPIN=0815\r", std::string("\r\nOK\r\n") + row.unlocked}});
        modem.stop();
    }
}

TEST_F(Emulator, RegistersSomeTimeBehindEachRadioOn)
{
    plug("EC25", {{"echo", "0"}, {"cfun_ms", "1"}, {"report_gap_ms", "1"}, {"boot_ready", ""}});
    be_host();
    const auto registers = [&](int ms) { // and says so
        const auto start = monotonic_clock::now();
        hold({{"AT+CREG?\r", "\r\n+CREG: 1,2\r\n\r\nOK\r\n"}, {"AT+COPS?\r", "\r\n+COPS: 0\r\n\r\nOK\r\n"}});
        EXPECT_EQ(hear(12), "\r\n+CREG: 1\r\n");
        EXPECT_GE(since(start), milliseconds(ms - 150));
        hold({{"AT+COPS?\r", "\r\n+COPS: 0,0,\"Telekom.de\",7\r\n\r\nOK\r\n"}});
    };
    order("register after 0.4"); // the radio has been on for less
    hold({{"AT+CREG=1\r", "\r\nOK\r\n"}});
    registers(0);
    hold({{"!register after 0.4", ""}, // it has been on for longer
          {"AT+CREG?\r", "\r\n+CREG: 1,1\r\n\r\nOK\r\n"},
          {"AT+CFUN=0\r", "\r\nOK\r\n\r\n+CREG: 0\r\n\r\n+CPIN: NOT READY\r\n"}});
    hold({{"!set sim_ready", ""}, {"AT+CFUN=1\r", "\r\nOK\r\n\r\n+CREG: 2\r\n"}});
    registers(400);
    order("reset 1");
    be_host();
    hold({{"AT+CREG=1\r", "\r\nOK\r\n"}});
    registers(400);
    std::string state;
    EXPECT_EQ(modem.order("state", &state), "");
    EXPECT_NE(state.find("switched off 1 times, restarts 1\n"), std::string::npos) << state;
}

TEST_F(Emulator, HangsUntilItsPowerIsCutAndMovesToAnotherPort)
{
    const std::pair<std::string, std::string> works = {"AT\r", "\r\nOK\r\n"}, dead = {"AT\r", ""};
    plug("EC25", {{"echo", "0"}, {"reset_ms", "200"}, {"boot_ready", ""}});
    const auto comes_back = [&] {
        EXPECT_SOON(!port_is_there());
        be_host();
        hold({works});
    };
    be_host();
    ASSERT_EQ(ioctl(host, TIOCEXCL), 0); // it ends with the host's last descriptor
    std::this_thread::sleep_for(100ms);
    be_host();
    hold({works, {"AT+CFUN=1,1\r", "\r\nOK\r\n"}}); // which gets out first
    comes_back();
    hold({{"!hang soft", ""}, dead, {"!report RING", ""}, {"AT+CFUN=1,1\r", ""}});
    comes_back();
    hold({{"!hang", ""}, dead, {"AT+CFUN=1,1\r", ""}, dead});
    std::this_thread::sleep_for(300ms);
    EXPECT_TRUE(port_is_there());
    order("reset"); // it hangs on
    EXPECT_SOON(!port_is_there());
    be_host();
    hold({dead, {"!power", ""}});
    comes_back();

    order("hang");
    order("power off");
    EXPECT_NE(modem.order("power off"), "");
    EXPECT_NE(modem.order("reset"), "");
    order("node bounce 1"); // brings no port to a module without power
    std::this_thread::sleep_for(300ms);
    EXPECT_FALSE(port_is_there());
    order("power on");
    be_host();
    hold({works});

    order("node move /dev/ttyUSB4 100");
    EXPECT_FALSE(port_is_there());
    EXPECT_FALSE(std::filesystem::exists("/dev/ttyUSB4"));
    EXPECT_SOON(std::filesystem::exists("/dev/ttyUSB4"));
    EXPECT_FALSE(port_is_there());
    order("reset 300");
    order("node bounce 1"); // a module that restarts has no port to bring back
    EXPECT_NE(modem.order("node on"), "");
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(std::filesystem::exists("/dev/ttyUSB4"));
}

// clang-format on

TEST_F(Emulator, RefusesBadOrdersFilesAndPorts)
{
    plug("EC25");
    for (const char* text : {"dance",        "report",        "late soon",        "late -1",
                             "split 0",      "partial 5",     "node up",          "sim loose",
                             "sim busy x",   "reg home dreg", "reg 11",           "cell 6G",
                             "csq 200",      "call 1 2",      "sms text +49",     "sms pdu 12ZZ",
                             "cmgs error x", "overlap maybe", "reset soon",       "mqtt open x",
                             "garbage 0",    "set",           "hang on",          "sim tries 4",
                             "sim put old",  "register soon", "register after x", "power on",
                             "node move",    "wwan none0",    "wwan ../x"})
        EXPECT_NE(modem.order(text), "") << text;
    std::string state;
    EXPECT_EQ(modem.order("state", &state), "");
    EXPECT_EQ(state, "node on, radio 1, sim ready (3 tries), cell LTE, registration 1, "
                     "stored messages 0, radio switched off 0 times, restarts 0\n");
    modem.stop();
    EXPECT_FALSE(port_is_there());

    constexpr std::pair<const char*, const char*> rows[] = {
        {">> AT\n<< x\n>> ATI\n<< OK\n", "bad.dlg:3: the rule above has neither"},
        {"\n>> AT\n<< ${who}\n<< OK\n", "bad.dlg:3: no `var who`"},
        {"include bad.dlg\n", "bad.dlg:1: includes are nested too deeply"},
    };
    modem_options options;
    options.model = "bad";
    options.port = port;
    options.dialogues_dir = FOLDER;
    for (const auto& [text, fault] : rows) {
        std::ofstream(FOLDER "bad.dlg") << text;
        EXPECT_EQ(modem.start(options).rfind(fault, 0), 0u) << text;
    }
    std::ofstream(port) << "somebody's";
    std::ofstream(FOLDER "bad.dlg") << ">> AT\n<< OK\n";
    EXPECT_NE(modem.start(options).find("left alone"), std::string::npos);
    EXPECT_EQ(text_of(port), "somebody's");
    std::filesystem::remove(port);
    std::filesystem::create_symlink("/dev/pts/99999", port); // of one that was killed
    EXPECT_EQ(modem.start(options), "");
}

TEST_F(Emulator, ToolTakesOrdersAndLeavesNothingBehindOnASignal)
{
    for (const int number : {SIGTERM, SIGINT, 0}) {
        FILE* const orders = popen("cd " FOLDER "; echo $$ >pid; exec " KELO_TEST_TOOL
                                   " --model RM500Q --trace --port /dev/ttyUSB2 >out 2>&1",
                                   "we");
        be_host();
        std::fputs("report RING\nwaltz\n", orders);
        std::fflush(orders);
        EXPECT_EQ(hear(8), "\r\nRING\r\n");
        EXPECT_SOON(text_of(FOLDER "out").find("no order 'waltz'") != std::string::npos);
        if (number != 0)
            kill(std::stoi(text_of(FOLDER "pid")), number);
        else
            std::fputs("quit\n", orders);
        EXPECT_EQ(pclose(orders), 0);
        EXPECT_FALSE(port_is_there());
    }
}
