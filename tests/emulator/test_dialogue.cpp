// What the modem says: framing, errors, SIM, registration, messages; and the dialogue files.
#include "tests/emulator/host.h"

using namespace kelo_emulator;

// clang-format off
TEST(Framing, EchoAndFinalResultsByteForByte)
{
    test_desk desk("EC25", {{"echo", "1"}});
    desk.hold({
        {"AT+CSQ\r\n", "AT+CSQ\r\r\n+CSQ: 24,99\r\n\r\nOK\r\n"},
        {"\r\n\r\n", "\r\r"}, // an empty line draws nothing but its echo
        {"xx\x01" "at\r", "xx\x01" "at\r\r\nOK\r\n"}, // what stands ahead of AT is ignored
    });
}

TEST(Framing, JoinedCommandsAndErrors)
{
    test_desk desk;
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
    test_desk desk;
    desk.hold({{std::string(100000, 'A') + "\r", "\r\nERROR\r\n"}});
    for (int i = 0; i < 20000; ++i)
        desk.host->send(std::string(1, static_cast<char>(i * 7919 >> 3)));
    desk.host->send("\x1b\r");
    desk.host->receive();
    desk.hold({{"AT\r", "\r\nOK\r\n"}});
    for (const log_entry& entry : desk.modem.log())
        EXPECT_LT(entry.bytes.size(), 10000u);
}

const std::string ready = "\r\n+CPIN: READY\r\n\r\n+QUSIM: 1\r\n";
const std::string done = "\r\n+QIND: PB DONE\r\n\r\n+QIND: SMS DONE\r\n";

TEST(Sim, PinPukAndTries)
{
    test_desk desk;
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

TEST(Sms, Out)
{
    test_desk desk("EC25", {{"echo", "1"}, {"message_reference", "255"}});
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
    const std::vector<sent_message> sent = desk.modem.sent_messages();
    ASSERT_GE(sent.size(), 3u);
    EXPECT_EQ(sent[0].body, pdu);
    EXPECT_EQ(sent[2].target, "+4915112345678");
    EXPECT_EQ(sent[2].body, "one\ntwo");
}

TEST(Files, UploadTakesRawBytes)
{
    test_desk desk;
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
    scratch_folder folder;
    for (const auto& [text, fault] : rows) {
        folder.write("bad.dlg", text);
        emulated_modem modem;
        modem_options options;
        options.model = "bad";
        options.port = folder.path + "/port";
        options.dialogues_dir = folder.path;
        const std::string error = modem.start(options);
        EXPECT_EQ(error.rfind(fault, 0), 0u) << text << "drew: " << error;
    }
}
