// What the modem says: framing, errors, SIM, registration, messages; and the dialogue files.
#include "host.h"

#include <cstring>

using namespace kelo_emulator;

namespace
{

struct Exchange {
    const char* bytes;  // from the host
    const char* answer; // every byte that comes back
};

void hold(Desk& desk, const std::vector<Exchange>& exchanges)
{
    for (const Exchange& exchange : exchanges) {
        desk.host->send(exchange.bytes);
        EXPECT_HEARD(*desk.host, exchange.answer) << exchange.bytes;
    }
}

} // namespace

TEST(Framing, EchoAndFinalResultsByteForByte)
{
    Desk desk("EC25", {{"echo", "1"}});
    hold(desk, {
                   {"AT+CSQ\r\n", "AT+CSQ\r\r\n+CSQ: 24,99\r\n\r\nOK\r\n"},
                   {"AT\r", "AT\r\r\nOK\r\n"},
                   {"\r\n\r\n", "\r\r"}, // an empty line draws nothing but its echo
                   {"xx\x01"
                    "at\r",
                    "xx\x01"
                    "at\r\r\nOK\r\n"}, // what stands ahead of AT is ignored
                   {"hello\r", "hello\r"},
                   {"AT+CSX\bQ\r", "AT+CSX\bQ\r\r\n+CSQ: 24,99\r\n\r\nOK\r\n"},
                   {"ATE0\r\n", "ATE0\r\r\nOK\r\n"},
                   {"AT+CSQ\r\n", "\r\n+CSQ: 24,99\r\n\r\nOK\r\n"},
                   {"ATE1V1\r\n", "\r\nOK\r\n"},
                   {"AT\r\n", "AT\r\r\nOK\r\n"},
               });
}

TEST(Framing, JoinedCommandsHaveOneResultAndTheFirstErrorEndsTheLine)
{
    Desk desk;
    hold(desk, {
                   {"AT+CMGF=1;+CNMI=2,2,0,0,0\r\n", "\r\nOK\r\n"},
                   {"AT+CMGF?;+CNMI?\r\n", "\r\n+CMGF: 1\r\n\r\n+CNMI: 2,2,0,0,0\r\n\r\nOK\r\n"},
                   {"AT+CMGF=0;+NONSENSE;+CNMI=2,1\r\n", "\r\nERROR\r\n"},
                   {"AT+CMGF?;+CNMI?\r\n", "\r\n+CMGF: 0\r\n\r\n+CNMI: 2,2,0,0,0\r\n\r\nOK\r\n"},
                   // a semicolon inside quotes parts nothing
                   {"AT+CSCA=\"+49;1\";+CSCA?\r\n", "\r\n+CSCA: \"+49;1\",145\r\n\r\nOK\r\n"},
               });
}

TEST(Framing, ErrorsFollowCmee)
{
    Desk desk;
    desk.order("sim failure");
    hold(desk, {
                   {"AT+CPIN?\r\n", "\r\n+CME ERROR: 13\r\n"},
                   {"AT+CMEE=2\r\n", "\r\nOK\r\n"},
                   {"AT+CPIN?\r\n", "\r\n+CME ERROR: SIM failure\r\n"},
                   {"AT+CMGS=20\r\n", "\r\n+CMS ERROR: 313\r\n"},
                   {"AT+CMEE=0\r\n", "\r\nOK\r\n"},
                   {"AT+CPIN?\r\n", "\r\nERROR\r\n"},
                   {"AT+CMEE=3\r\n", "\r\nERROR\r\n"},
               });
}

TEST(Framing, HostileInputStaysBounded)
{
    Desk desk;
    desk.host->send(std::string(100000, 'A'));
    desk.host->send("\r");
    EXPECT_HEARD(*desk.host, "\r\nERROR\r\n");
    std::string garbage;
    for (int i = 0; i < 20000; ++i)
        garbage += static_cast<char>(i * 7919 >> 3);
    desk.host->send(garbage);
    desk.host->receive();
    desk.host->send("\x1b\r");
    desk.host->receive();
    EXPECT_EQ(desk.ask("AT"), "\r\nOK\r\n");
    for (const LogEntry& entry : desk.modem.log())
        EXPECT_LT(entry.bytes.size(), 10000u);
}

TEST(Sim, PinPukAndTries)
{
    Desk desk;
    desk.order("sim pin 4711");
    hold(desk,
         {
             {"AT+CPIN?\r", "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n"},
             {"AT+CIMI\r", "\r\n+CME ERROR: 11\r\n"},
             {"AT+QCCID\r", "\r\n+QCCID: 89490200001234567890\r\n\r\nOK\r\n"},
             {"AT+CREG?\r", "\r\n+CREG: 0,0\r\n\r\nOK\r\n"},
             {"AT+CPIN=\"0000\"\r", "\r\n+CME ERROR: 16\r\n"},
             {"AT+CPIN=\"0001\"\r", "\r\n+CME ERROR: 16\r\n"},
             {"AT+QPINC?\r", "\r\n+QPINC: \"SC\",1,10\r\n\r\nOK\r\n"},
             {"AT+CPIN=\"4711\"\r", "\r\nOK\r\n\r\n+CPIN: READY\r\n\r\n+QUSIM: 1\r\n"
                                    "\r\n+QIND: PB DONE\r\n\r\n+QIND: SMS DONE\r\n"},
             {"AT+QPINC?\r", "\r\n+QPINC: \"SC\",3,10\r\n\r\nOK\r\n"},
             {"AT+CPIN=\"4711\"\r", "\r\n+CME ERROR: 3\r\n"},
             {"AT+CREG?\r", "\r\n+CREG: 0,1\r\n\r\nOK\r\n"},
             // the radio takes the card's power: the PIN is asked for again
             {"AT+CFUN=0\r", "\r\nOK\r\n\r\n+CPIN: NOT READY\r\n"},
             {"AT+CFUN=1\r", "\r\nOK\r\n\r\n+CPIN: SIM PIN\r\n"},
             {"AT+CPIN=\"1\"\r", "\r\n+CME ERROR: 16\r\n"},
             {"AT+CPIN=\"2\"\r", "\r\n+CME ERROR: 16\r\n"},
             {"AT+CPIN=\"3\"\r", "\r\n+CME ERROR: 16\r\n"},
             {"AT+CPIN?\r", "\r\n+CPIN: SIM PUK\r\n\r\nOK\r\n"},
             {"AT+CPIN=\"4711\"\r", "\r\n+CME ERROR: 16\r\n"},
             {"AT+CPIN=\"12345678\",\"9999\"\r", "\r\nOK\r\n\r\n+CPIN: READY\r\n\r\n+QUSIM: 1\r\n"
                                                 "\r\n+QIND: PB DONE\r\n\r\n+QIND: SMS DONE\r\n"},
         });
}

TEST(Sim, PulledAndPutBackBusyAndAirplane)
{
    Desk desk;
    hold(desk, {{"AT+QSIMSTAT=1;+CREG=1\r", "\r\nOK\r\n"}});
    desk.order("sim pull");
    EXPECT_HEARD(*desk.host, "\r\n+QSIMSTAT: 1,0\r\n\r\n+CREG: 0\r\n\r\n+CPIN: NOT READY\r\n");
    hold(desk, {{"AT+CPIN?\r", "\r\n+CME ERROR: 10\r\n"}});
    EXPECT_NE(desk.modem.order("sim pull"), "");
    desk.order("sim put");
    EXPECT_HEARD(*desk.host, "\r\n+QSIMSTAT: 1,1\r\n\r\n+CREG: 1\r\n\r\n+CPIN: READY\r\n\r\n"
                             "+QUSIM: 1\r\n\r\n+QIND: SMS DONE\r\n\r\n+QIND: PB DONE\r\n");
    desk.order("sim busy 300");
    EXPECT_EQ(desk.ask("AT+CNUM"), "\r\n+CME ERROR: 14\r\n");
    EXPECT_TRUE(
        eventually([&] { return desk.ask("AT+CPIN?") == "\r\n+CPIN: READY\r\n\r\nOK\r\n"; }));
    hold(desk, {
                   // flight mode keeps the card up: no READY afterwards
                   {"AT+CFUN=4\r", "\r\nOK\r\n\r\n+CREG: 0\r\n"},
                   {"AT+CPIN?\r", "\r\n+CPIN: READY\r\n\r\nOK\r\n"},
                   {"AT+COPS?\r", "\r\n+COPS: 0\r\n\r\nOK\r\n"},
                   {"AT+CFUN=1\r", "\r\nOK\r\n\r\n+CREG: 1\r\n"},
               });
}

TEST(Network, RegistrationReadAndReportForms)
{
    Desk desk("RM500Q");
    hold(desk, {
                   {"AT+CREG?\r", "\r\n+CREG: 0,1\r\n\r\nOK\r\n"},
                   {"AT+CREG=2;+CGREG=1\r", "\r\nOK\r\n"},
                   {"AT+CREG?\r", "\r\n+CREG: 2,1,\"5A1C\",\"7C4B10D\",7\r\n\r\nOK\r\n"},
                   {"AT+CREG=3\r", "\r\n+CME ERROR: 50\r\n"},
               });
    const struct {
        const char* order;
        const char* reports;
        const char* read;
    } steps[] = {
        {"reg searching", "\r\n+CREG: 2\r\n\r\n+CGREG: 2\r\n", "+CREG: 2,2"},
        {"reg roaming", "\r\n+CREG: 5,\"5A1C\",\"7C4B10D\",7\r\n\r\n+CGREG: 5\r\n",
         "+CREG: 2,5,\"5A1C\",\"7C4B10D\",7"},
        {"cell NR5G-SA", "\r\n+CREG: 5,\"3AA800\",\"3A5B4C104\",11\r\n",
         "+CREG: 2,5,\"3AA800\",\"3A5B4C104\",11"},
        {"reg denied creg", "\r\n+CREG: 3\r\n", "+CREG: 2,3"},
        {"reg denied creg", "", "+CREG: 2,3"},
    };
    for (const auto& step : steps) {
        desk.order(step.order);
        EXPECT_HEARD(*desk.host, step.reports) << step.order;
        EXPECT_EQ(desk.ask("AT+CREG?"), "\r\n" + std::string(step.read) + "\r\n\r\nOK\r\n");
    }
}

TEST(Network, OperatorFormatsAndServingCell)
{
    Desk desk("RM500Q");
    desk.order("cell NR5G-NSA");
    hold(desk,
         {
             {"AT+COPS?\r", "\r\n+COPS: 0,0,\"Telekom.de\",13\r\n\r\nOK\r\n"},
             {"AT+COPS=3,2\r", "\r\nOK\r\n"},
             {"AT+COPS?\r", "\r\n+COPS: 0,2,\"26201\",13\r\n\r\nOK\r\n"},
             {"AT+COPS=3,0;+CSCS=\"UCS2\"\r", "\r\nOK\r\n"},
             {"AT+COPS?\r",
              "\r\n+COPS: 0,0,\"00540065006C0065006B006F006D002E00640065\",13\r\n\r\nOK\r\n"},
             {"AT+CGACT=1,1\r", "\r\nOK\r\n"},
             {"AT+QENG=\"servingcell\"\r",
              "\r\n+QENG: \"servingcell\",\"CONNECT\"\r\n"
              "+QENG: \"LTE\",\"FDD\",262,01,7C4B10D,427,1350,3,5,5,5A1C,-94,-15,-58,9,5,100,-\r\n"
              "+QENG: \"NR5G-NSA\",262,01,920,-96,18,-10,648768,78,10,1\r\n\r\nOK\r\n"},
             {"AT+CFUN=4\r", "\r\nOK\r\n"},
             {"AT+QENG=\"servingcell\"\r", "\r\n+QENG: \"servingcell\",\"SEARCH\"\r\n\r\nOK\r\n"},
             {"AT+QNWINFO\r", "\r\n+QNWINFO: No Service\r\n\r\nOK\r\n"},
         });
}

TEST(Sms, PduOutWithPromptEchoAndResult)
{
    Desk desk("EC25", {{"echo", "1"}, {"message_reference", "255"}, {"cmgs_ms", "300"}});
    const std::string pdu = "0011000D91945111325476F80000AA07D4721B0E92C500";
    hold(desk,
         {{"AT+CMGF=0\r\n", "AT+CMGF=0\r\r\nOK\r\n"}, {"AT+CMGS=22\r\n", "AT+CMGS=22\r\r\n> "}});
    EXPECT_TRUE(desk.modem.wait_sent("> ", 0ms));
    desk.host->send(pdu + "\x1a\r\n");
    EXPECT_EQ(desk.host->receive(1s, "OK\r\n"), pdu + "\x1a\r\r\n+CMGS: 255\r\n\r\nOK\r\n");
    hold(desk, {{"AT+CMGS=21\r\n", "AT+CMGS=21\r\r\n> "}}); // the length is one short
    desk.host->send(pdu + "\x1a");
    EXPECT_EQ(desk.host->receive(1s, "304\r\n"), pdu + "\x1a\r\n+CMS ERROR: 304\r\n");
    hold(desk, {{"AT+CMGS=22\r\n", "AT+CMGS=22\r\r\n> "}, {"0011\x1b", "0011\r\nOK\r\n"}});
    const std::vector<SentMessage> sent = desk.modem.sent_messages();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].body, pdu);
    EXPECT_EQ(sent[0].reference, 255);
    EXPECT_EQ(sent[1].reference, -1);
}

TEST(Sms, TextOutNewPromptAtEachLineAndErrors)
{
    Desk desk;
    hold(desk, {{"AT+CMGF=1\r", "\r\nOK\r\n"},
                {"AT+CMGS=\"+4915112345678\"\r", "\r\n> "},
                {"one\r", "\r\n> "},
                {"two\x1a", "\r\n+CMGS: 0\r\n\r\nOK\r\n"}});
    ASSERT_EQ(desk.modem.sent_messages().size(), 1u);
    EXPECT_EQ(desk.modem.sent_messages()[0].target, "+4915112345678");
    EXPECT_EQ(desk.modem.sent_messages()[0].body, "one\ntwo");
    desk.order("cmgs error 38");
    hold(desk, {{"AT+CMGS=\"1\"\r", "\r\n> "}, {"x\x1a", "\r\n+CMS ERROR: 38\r\n"}});
    desk.order("cmgs silent");
    hold(desk, {{"AT+CMGS=\"1\"\r", "\r\n> "}, {"x\x1a", ""}, {"AT\r", "\r\nOK\r\n"}});
    desk.order("cmgs ok");
    desk.order("reg searching");
    hold(desk, {{"AT+CMGS=\"1\"\r", "\r\n> "}, {"x\x1a", "\r\n+CMS ERROR: 331\r\n"}});
}

// The PDUs were built and decoded by other programs.
TEST(Sms, InAsNoticeAsPduAndAsText)
{
    Desk desk;
    desk.order("sms text +4915111325467 nobody asked");
    EXPECT_HEARD(*desk.host, "\r\n+CMTI: \"ME\",0\r\n");
    hold(desk, {{"AT+CMGF=0;+CNMI=2,2,0,0,0\r", "\r\nOK\r\n"}});
    desk.order("sms text +4915112345678 Door 3 open");
    const std::string made = desk.host->receive();
    EXPECT_EQ(made, "\r\n+CMT: ,30\r\n0791947101670000040D91945111325476F8"
                    "0000425071900321800BC4F75B0E9A81DEF0B21B\r\n");
    const std::string alphanumeric = "0791947101670000040BD0D4329B5E660300004250719013008002C834";
    desk.order("sms pdu " + alphanumeric);
    EXPECT_HEARD(*desk.host, "\r\n+CMT: ,21\r\n" + alphanumeric + "\r\n");
    desk.order("set stamp 24/01/02,03:04:05-32");
    desk.order("sms text +8613912345678 告警 2");
    EXPECT_HEARD(*desk.host, "\r\n+CMT: ,28\r\n0791947101670000040D91683119325476F80008"
                             "4210203040502B08544A8B6600200032\r\n");
    hold(desk, {{"AT+CMGF=1\r", "\r\nOK\r\n"}});
    desk.order("sms text +4915112345678 Door 3 open");
    EXPECT_HEARD(*desk.host,
                 "\r\n+CMT: \"+4915112345678\",,\"24/01/02,03:04:05-32\"\r\nDoor 3 open\r\n");
    EXPECT_NE(desk.modem.order("sms pdu " + alphanumeric), "");
    EXPECT_NE(desk.modem.order("sms pdu 12ZZ"), "");
    EXPECT_EQ(desk.ask("AT+CMGR=0"), "\r\n+CMGR: \"REC UNREAD\",\"+4915111325467\",,"
                                     "\"24/05/17,09:30:12+08\"\r\nnobody asked\r\n\r\nOK\r\n");
    hold(desk, {{"AT+CMGD=0\r", "\r\nOK\r\n"}, {"AT+CMGL=\"ALL\"\r", "\r\nOK\r\n"}});
}

TEST(Calls, RingsWithNumberUntilHungUp)
{
    Desk desk("EC25", {{"ring_ms", "40"}});
    EXPECT_EQ(desk.ask("AT+CLIP=1"), "\r\nOK\r\n");
    desk.order("call +4915112345678");
    EXPECT_TRUE(desk.modem.wait_sent("+CLIP: \"+4915112345678\",145,,,,0", 2s, 3));
    EXPECT_NE(desk.ask("ATH").find("\r\nOK\r\n"), std::string::npos);
    const std::size_t rings = desk.modem.count_sent("RING");
    EXPECT_EQ(desk.host->receive(200ms), "");
    EXPECT_EQ(desk.modem.count_sent("RING"), rings);
    desk.order("call withheld");
    desk.order("call off");
    const std::string said = desk.host->receive();
    EXPECT_NE(said.find("+CLIP: \"\",128,,,,2\r\n"), std::string::npos);
    EXPECT_NE(said.find("\r\nNO CARRIER\r\n"), std::string::npos);
}

TEST(Files, UploadTakesRawBytesAndAnswersTheChecksum)
{
    Desk desk;
    const struct {
        const char* bytes;
        const char* sum;
    } rows[] = {
        {"1234567890", "3938"}, {"12345", "3706"}, {"hello", "6b09"}, {"A\rT\n\x1a", "f07"}};
    for (const auto& row : rows) {
        const std::string size = std::to_string(strlen(row.bytes));
        EXPECT_EQ(desk.ask("AT+QFUPL=\"RAM:x\"," + size + ",100"), "\r\nCONNECT\r\n");
        desk.host->send(row.bytes);
        EXPECT_HEARD(*desk.host, "\r\n+QFUPL: " + size + "," + row.sum + "\r\n\r\nOK\r\n");
        EXPECT_EQ(desk.ask("AT+QFDEL=\"RAM:x\""), "\r\nOK\r\n");
    }
    EXPECT_EQ(desk.ask("AT+QFDEL=\"RAM:x\""), "\r\n+CME ERROR: 405\r\n");
    EXPECT_EQ(desk.ask("AT+QFUPL=\"RAM:x\",9,1"), "\r\nCONNECT\r\n");
    EXPECT_EQ(desk.host->receive(1500ms, "421"), "\r\n+CME ERROR: 421\r\n");

    // Ahead of CONNECT nothing reaches the file, beyond its size everything is a command.
    desk.order("late 100 AT+QFUPL*");
    desk.host->send("AT+QFUPL=\"RAM:y\",5,100\r\nlost");
    EXPECT_HEARD(*desk.host, "\r\nCONNECT\r\n");
    desk.host->send("12345AT+CLIP?\r\n");
    EXPECT_HEARD(*desk.host, "\r\n+QFUPL: 5,3706\r\n\r\nOK\r\n\r\n+CLIP: 0,1\r\n\r\nOK\r\n");
}

TEST(Mqtt, WholeWayAndRefusals)
{
    Desk desk("EC25", {{"mqtt_ms", "5"}});
    hold(desk, {
                   {"AT+QMTCONN?\r", "\r\nOK\r\n"},
                   {"AT+QMTCONN=0,\"dev\",\"u\",\"p\"\r", "\r\nERROR\r\n"},
                   {"AT+QMTOPEN=0,\"mq.example.net\",1883\r", "\r\nOK\r\n\r\n+QMTOPEN: 0,0\r\n"},
                   {"AT+QMTOPEN=0,\"mq.example.net\",1883\r", "\r\nOK\r\n\r\n+QMTOPEN: 0,2\r\n"},
               });
    desk.order("mqtt refuse 4");
    hold(desk, {{"AT+QMTCONN=0,\"dev\",\"u\",\"p\"\r", "\r\nOK\r\n\r\n+QMTCONN: 0,0,4\r\n"},
                {"AT+QMTSUB=0,1,\"a/b\",1\r", "\r\nERROR\r\n"}});
    desk.order("mqtt ok");
    hold(desk, {{"AT+QMTCONN=0,\"dev\",\"u\",\"p\"\r", "\r\nOK\r\n\r\n+QMTCONN: 0,0,0\r\n"},
                {"AT+QMTSUB=0,1,\"a/b\",1\r", "\r\nOK\r\n\r\n+QMTSUB: 0,1,0,1\r\n"},
                {"AT+QMTCONN?\r", "\r\n+QMTCONN: 0,3\r\n\r\nOK\r\n"}});
    desk.order("mqtt message a/b {\"t\":21}");
    EXPECT_HEARD(*desk.host, "\r\n+QMTRECV: 0,0,\"a/b\",\"{\"t\":21}\"\r\n");
    desk.order("mqtt lost 1");
    EXPECT_HEARD(*desk.host, "\r\n+QMTSTAT: 0,1\r\n");
    hold(desk, {{"AT+QMTDISC=0\r", "\r\nERROR\r\n"}});
}

TEST(Gps, OnFixNoFixOff)
{
    Desk desk;
    hold(desk, {{"AT+QGPSLOC=2\r", "\r\n+CME ERROR: 505\r\n"},
                {"AT+QGPS=1\r", "\r\nOK\r\n"},
                {"AT+QGPS=1\r", "\r\n+CME ERROR: 504\r\n"},
                {"AT+QGPSLOC=2\r", "\r\n+QGPSLOC: 061951.0,31.22415,121.35479,0.7,62.2,2,0.00,0.0,"
                                   "0.0,110524,09\r\n\r\nOK\r\n"}});
    desk.order("gps nofix");
    hold(desk, {{"AT+QGPSLOC=2\r", "\r\n+CME ERROR: 516\r\n"},
                {"AT+QGPSEND\r", "\r\nOK\r\n"},
                {"AT+QGPSEND\r", "\r\n+CME ERROR: 505\r\n"}});
}

TEST(DialogueFile, EveryModelLoadsAndTellsItsName)
{
    std::size_t models = 0;
    for (const auto& file : std::filesystem::directory_iterator(KELO_TEST_DIALOGUES)) {
        if (file.path().extension() != ".dlg")
            continue;
        ++models;
        Desk desk(file.path().stem());
        const std::string answer = desk.ask("AT+CGMM");
        EXPECT_EQ(answer, "\r\n" + desk.modem.get("model") + "\r\n\r\nOK\r\n") << file.path();
        EXPECT_NE(desk.ask("AT+CPIN?").find("READY"), std::string::npos) << file.path();
    }
    EXPECT_GT(models, 0u);
}

TEST(DialogueFile, BadLinesAreNamedByFileAndLine)
{
    const struct {
        const char* text;
        const char* error;
    } rows[] = {
        {"var x = 1\nnonsense\n", "bad.dlg:2: `nonsense`"},
        {"# fine\n\n<< OK\n", "bad.dlg:3: `<<` stands outside a rule"},
        {">> AT\n<< x\n>> ATI\n<< OK\n", "bad.dlg:3: the rule above has neither"},
        {">> AT\n<< OK\n<< more\n", "bad.dlg:3: only `report`"},
        {">> AT\n<< +CME ERROR: SIM\n", "bad.dlg:2: an error result has a number"},
        {">> AT*\n<< ${2}\n<< OK\n", "bad.dlg:2: `${2}`"},
        {"\n>> AT\n<< ${who}\n<< OK\n", "bad.dlg:3: no `var who`"},
        {">> AT\n<< ${who\n<< OK\n", "bad.dlg:2: `${` without `}`"},
        {">> AT\nwait soon\n<< OK\n", "bad.dlg:2: expected `wait <ms>`"},
        {">> HELLO\n<< OK\n", "bad.dlg:1: a command begins with AT"},
        {"use radio-star\n", "bad.dlg:1: no built-in behaviour `radio-star`"},
        {"include bad.dlg\n", "bad.dlg:1: includes are nested too deeply"},
        {"\ninclude gone.inc\n", "bad.dlg:2: "},
        {"include sub.inc\n", "sub.inc:1: expected `name = value`"},
    };
    Folder folder;
    folder.write("sub.inc", "var x\n");
    for (const auto& row : rows) {
        folder.write("bad.dlg", row.text);
        Modem modem;
        Options options;
        options.model = "bad";
        options.port = folder.path + "/port";
        options.dialogues_dir = folder.path;
        const std::string error = modem.start(options);
        EXPECT_EQ(error.rfind(row.error, 0), 0u) << row.text << "drew: " << error;
        EXPECT_FALSE(std::filesystem::exists(options.port));
    }
}
