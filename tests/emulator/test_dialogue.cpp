// What the modem says: framing, errors, SIM, registration, messages; and the dialogue files.
#include "host.h"

using namespace kelo_emulator;

// clang-format off
TEST(Framing, EchoAndFinalResultsByteForByte)
{
    Desk desk("EC25", {{"echo", "1"}});
    desk.hold({
        {"AT+CSQ\r\n", "AT+CSQ\r\r\n+CSQ: 24,99\r\n\r\nOK\r\n"},
        {"\r\n\r\n", "\r\r"}, // an empty line draws nothing but its echo
        {"xx\x01" "at\r", "xx\x01" "at\r\r\nOK\r\n"}, // what stands ahead of AT is ignored
    });
}

TEST(Framing, JoinedCommandsAndErrors)
{
    Desk desk;
    desk.hold({
        // one result, and the first error ends the line
        {"AT+CNMI=2,2,0,0,0;+NONSENSE;+CMGF=1\r\n", "\r\nERROR\r\n"},
        {"AT+CMGF?;+CNMI?\r\n", "\r\n+CMGF: 0\r\n\r\n+CNMI: 2,2,0,0,0\r\n\r\nOK\r\n"},
        // a semicolon inside quotes parts nothing
        {"AT+CSCA=\"+49;1\";+CSCA?\r\n", "\r\n+CSCA: \"+49;1\",145\r\n\r\nOK\r\n"},
        {"!sim failure", ""},
        {"AT+CMEE=2\r\n", "\r\nOK\r\n"},
        {"AT+CPIN?\r\n", "\r\n+CME ERROR: SIM failure\r\n"},
        {"AT+CMGS=20\r\n", "\r\n+CMS ERROR: 313\r\n"},
    });
}

TEST(Framing, HostileInputStaysBounded)
{
    Desk desk;
    desk.hold({{std::string(100000, 'A') + "\r", "\r\nERROR\r\n"}});
    for (int i = 0; i < 20000; ++i)
        desk.host->send(std::string(1, static_cast<char>(i * 7919 >> 3)));
    desk.host->send("\x1b\r");
    desk.host->receive();
    desk.hold({{"AT\r", "\r\nOK\r\n"}});
    for (const LogEntry& entry : desk.modem.log())
        EXPECT_LT(entry.bytes.size(), 10000u);
}

const std::string ready = "\r\n+CPIN: READY\r\n\r\n+QUSIM: 1\r\n";
const std::string done = "\r\n+QIND: PB DONE\r\n\r\n+QIND: SMS DONE\r\n";

TEST(Sim, PinPukAndTries)
{
    Desk desk;
    desk.hold({
        {"!sim pin 4711", ""},
        {"AT+CPIN?\r", "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n"},
        {"AT+CPIN=\"0000\"\r", "\r\n+CME ERROR: 16\r\n"},
        {"AT+QPINC?\r", "\r\n+QPINC: \"SC\",2,10\r\n\r\nOK\r\n"},
        {"AT+CPIN=\"4711\"\r", "\r\nOK\r\n" + ready + done},
        // the radio takes the card's power: the PIN is asked for again
        {"AT+CFUN=0\r", "\r\nOK\r\n\r\n+CPIN: NOT READY\r\n"},
        {"AT+CFUN=1\r", "\r\nOK\r\n\r\n+CPIN: SIM PIN\r\n"},
        {"AT+CPIN=\"1\"\r", "\r\n+CME ERROR: 16\r\n"},
        {"AT+CPIN=\"2\"\r", "\r\n+CME ERROR: 16\r\n"},
        {"AT+CPIN=\"3\"\r", "\r\n+CME ERROR: 16\r\n"},
        {"AT+CPIN?\r", "\r\n+CPIN: SIM PUK\r\n\r\nOK\r\n"},
        {"AT+CPIN=\"12345678\",\"9999\"\r", "\r\nOK\r\n" + ready + done},
    });
}

TEST(Sim, PulledAndPutBack)
{
    Desk desk;
    desk.hold({
        {"AT+QSIMSTAT=1;+CREG=1\r", "\r\nOK\r\n"},
        {"!sim pull", "\r\n+QSIMSTAT: 1,0\r\n\r\n+CREG: 0\r\n\r\n+CPIN: NOT READY\r\n"},
        {"AT+CPIN?\r", "\r\n+CME ERROR: 10\r\n"},
        {"!sim put", "\r\n+QSIMSTAT: 1,1\r\n\r\n+CREG: 1\r\n" + ready + "\r\n+QIND: SMS DONE\r\n\r\n+QIND: PB DONE\r\n"},
    });
}

TEST(Network, RegistrationOperatorAndServingCell)
{
    Desk desk("RM500Q");
    desk.hold({
        {"AT+CREG=2;+CGREG=1\r", "\r\nOK\r\n"},
        {"!reg roaming", "\r\n+CREG: 5,\"5A1C\",\"7C4B10D\",7\r\n\r\n+CGREG: 5\r\n"},
        {"AT+CREG?\r", "\r\n+CREG: 2,5,\"5A1C\",\"7C4B10D\",7\r\n\r\nOK\r\n"},
        {"!cell NR5G-NSA", "\r\n+CREG: 5,\"5A1C\",\"7C4B10D\",13\r\n"},
        {"!reg home creg", "\r\n+CREG: 1,\"5A1C\",\"7C4B10D\",13\r\n"},
        {"AT+COPS?\r", "\r\n+COPS: 0,0,\"Telekom.de\",13\r\n\r\nOK\r\n"},
        {"AT+QENG=\"servingcell\"\r",
         "\r\n+QENG: \"servingcell\",\"NOCONN\"\r\n"
         "+QENG: \"LTE\",\"FDD\",262,01,7C4B10D,427,1350,3,5,5,5A1C,-94,-15,-58,9,5,100,-\r\n"
         "+QENG: \"NR5G-NSA\",262,01,920,-96,18,-10,648768,78,10,1\r\n\r\nOK\r\n"},
    });
}

TEST(Sms, Out)
{
    Desk desk("EC25", {{"echo", "1"}, {"message_reference", "255"}});
    const std::string pdu = "0011000D91945111325476F80000AA07D4721B0E92C500";
    desk.hold({
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
    });
    const std::vector<SentMessage> sent = desk.modem.sent_messages();
    ASSERT_GE(sent.size(), 3u);
    EXPECT_EQ(sent[0].body, pdu);
    EXPECT_EQ(sent[2].target, "+4915112345678");
    EXPECT_EQ(sent[2].body, "one\ntwo");
}

// The PDUs were built and decoded by other programs.
TEST(Sms, InAsNoticeAsPduAndAsText)
{
    Desk desk;
    const std::string alphanumeric = "0791947101670000040BD0D4329B5E660300004250719013008002C834";
    desk.hold({
        {"!sms text +4915111325467 nobody asked", "\r\n+CMTI: \"ME\",0\r\n"},
        {"AT+CMGF=0;+CNMI=2,2,0,0,0\r", "\r\nOK\r\n"},
        {"!sms text +4915112345678 Door 3 open",
         "\r\n+CMT: ,30\r\n0791947101670000040D91945111325476F80000425071900321800BC4F75B0E9A81DEF0B21B\r\n"},
        {"!sms pdu " + alphanumeric, "\r\n+CMT: ,21\r\n" + alphanumeric + "\r\n"},
        {"!set stamp 24/01/02,03:04:05-32", ""},
        {"AT+CMGF=1\r", "\r\nOK\r\n"},
        {"!sms text +4915112345678 Door 3 open",
         "\r\n+CMT: \"+4915112345678\",,\"24/01/02,03:04:05-32\"\r\nDoor 3 open\r\n"},
    });
}

TEST(Files, UploadTakesRawBytes)
{
    Desk desk;
    desk.hold({
        // ahead of CONNECT nothing reaches the file, beyond its size everything is a command
        {"!late 100 AT+QFUPL*", ""},
        {"AT+QFUPL=\"RAM:y\",5,100\r\nlost", "\r\nCONNECT\r\n"},
        {"12345AT+CLIP?\r\n", "\r\n+QFUPL: 5,3706\r\n\r\nOK\r\n\r\n+CLIP: 0,1\r\n\r\nOK\r\n"},
    });
}

TEST(DialogueFile, BadLinesAreNamedByFileAndLine)
{
    constexpr std::pair<const char*, const char*> rows[] = {
        {">> AT\n<< x\n>> ATI\n<< OK\n", "bad.dlg:3: the rule above has neither"},
        {"\n>> AT\n<< ${who}\n<< OK\n", "bad.dlg:3: no `var who`"},
        {"include bad.dlg\n", "bad.dlg:1: includes are nested too deeply"},
    };
    Folder folder;
    for (const auto& [text, fault] : rows) {
        folder.write("bad.dlg", text);
        Modem modem;
        Options options;
        options.model = "bad";
        options.port = folder.path + "/port";
        options.dialogues_dir = folder.path;
        const std::string error = modem.start(options);
        EXPECT_EQ(error.rfind(fault, 0), 0u) << text << "drew: " << error;
    }
}
