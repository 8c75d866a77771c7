// Messages on their way out, from the host's call to the PDUs in the outbox, and read back.
#include "messages.h"

using namespace kelo;
using namespace kelo::test;

namespace
{

std::string repeat(const char* piece, int times)
{
    std::string all;
    while (times-- > 0)
        all += piece;
    return all;
}

// TP-UDL of a PDU to +123 without a service centre.
int udl_of(const std::string& pdu)
{
    return gsm_hex2int(pdu.data() + 20, 2);
}

// Sends a text and gives the TP-UDL of its parts. Each has to fit a message, and a receiver who
// puts them together to read the text.
std::vector<int> round_trip(const std::string& text, const std::string& read)
{
    EXPECT_EQ(send(text), 0);
    const std::vector<std::string> pdus = sent_pdus();
    std::vector<int> udl;
    std::string all;
    for (const std::string& pdu : pdus) {
        EXPECT_LE(pdu.size() - 22, 2u * 140) << text;
        udl.push_back(udl_of(pdu));
        kelo_sms message = {};
        bool complete = false;
        EXPECT_TRUE(sms_read_pdu(delivered(pdu).c_str(), message, complete) && complete);
        if (message.total != 0) {
            EXPECT_EQ(message.number, static_cast<int>(udl.size()));
            EXPECT_EQ(message.total, static_cast<int>(pdus.size()));
        }
        all += message.text;
    }
    EXPECT_EQ(all, read);
    return udl;
}

} // namespace

TEST(Encoder, Pdus)
{
    struct {
        const char *sca, *number, *pdu;
    } const cases[] = {{"", "+123", "003100039121F300000002C834"},
                       {"123", "+123", "039121F33100039121F300000002C834"},
                       {"+123", "+123", "039121F33100039121F300000002C834"},
                       {"no\"digits", "12345", "00310005812143F500000002C834"}};
    for (const auto& c : cases) {
        std::snprintf(g_mobile.smscenter, sizeof g_mobile.smscenter, "%s", c.sca);
        EXPECT_EQ(send("Hi", c.number), 0);
        sms_outbox_item* const item = sms_outbox_deq();
        ASSERT_NE(item, nullptr);
        EXPECT_STREQ(item->sms_body, c.pdu);
        EXPECT_STREQ(item->sms_number, c.number);
        const int service_centre = 1 + gsm_hex2int(c.pdu, 2);
        EXPECT_EQ(item->sms_length, static_cast<int>(std::strlen(c.pdu)) / 2 - service_centre);
        sms_outbox_free(item);
    }
}

// Lengths around every limit. Each part is within a message's room, and the text comes back whole.
TEST(Encoder, Parts)
{
    struct {
        std::string text;
        std::vector<int> udl;
    } const cases[] = {
        {"", {0}},
        {repeat("a", 160), {160}},
        {repeat("a", 161), {159, 18}},
        {repeat("a", 302), {159, 159}},
        {repeat("a", 303), {159, 159, 9}},
        {repeat("a", 150) + "[" + repeat("b", 20), {158, 30}}, // two septets stay together
        {repeat("[", 80), {160}},
        {repeat("[", 81), {160, 2}}, // up to 160 bytes: no header, two messages
        {repeat("a", 150) + "Ω" + repeat("b", 20), {158, 29}}, // a pair of bytes too
        {repeat("a", 161) + '\0', {159, 18}},                  // not the terminator
        {repeat("告", 70), {140}},
        {repeat("告", 71), {138, 16}},
        {repeat("告", 132), {138, 138}},
        {repeat("告", 133), {138, 138, 8}},
        {"ä", {2}}, // counted by threes it would be in no part
        {repeat("ä", 70), {140}},
        {repeat("ä", 100), {138, 74}},
        {repeat("告", 70) + "ä", {138, 16}},
        {repeat("😀", 35), {140}}, // two units each
        {repeat("😀", 36), {138, 18}},
        {"a" + repeat("😀", 66), {136, 138, 10}},
        {repeat("a", 69) + "`", {140}},
        {repeat("a", 70) + "`", {138, 16}}};
    for (const auto& c : cases)
        EXPECT_EQ(round_trip(c.text, c.text.c_str()), c.udl) << c.text;

    // Where characters of all widths mix, any text comes back whole.
    const char* const pieces[] = {"ä", "告", "x", "😀", "Ω", "1 ", "ß€"};
    unsigned random = 1;
    for (int round = 0; round < 300; round++) {
        std::string text = "é";
        for (int i = 0; i < round; i++)
            text += pieces[((random = random * 1103515245 + 12345) >> 16) % std::size(pieces)];
        round_trip(text, text);
    }
}

TEST(Encoder, RawUcs2)
{
    const auto units = [](int count) {
        std::string text;
        for (int i = 0; i < count; i++)
            text += std::string("\0A", 2);
        return text;
    };
    const std::string nul(1, '\0');
    // The first byte of U+4ECE and the next of U+0042 are no Greek letter.
    EXPECT_EQ(round_trip("\x4E\xCE" + nul + "B", "从B"), std::vector<int>({4}));
    EXPECT_EQ(round_trip(units(70), repeat("A", 70)), std::vector<int>({140}));
    EXPECT_EQ(round_trip(units(71), repeat("A", 71)), std::vector<int>({138, 16}));
    // Both halves of a character stay in one part.
    EXPECT_EQ(round_trip(units(65) + "\xD8\x3D\xDE" + nul + units(9),
                         repeat("A", 65) + "😀" + repeat("A", 9)),
              std::vector<int>({136, 28}));
    ASSERT_EQ(send(units(70) + "A"), 0); // half a unit goes as it is
    EXPECT_EQ(udl_of(sent_pdus().at(1)), 15);
}

TEST(Encoder, ReferencesDiffer)
{
    std::vector<std::string> references;
    for (int i = 0; i < 3; i++) {
        ASSERT_EQ(send(repeat("a", 200)), 0);
        const std::vector<std::string> pdus = sent_pdus();
        EXPECT_EQ(pdus.at(0).substr(22, 10), "06080400" + pdus[0].substr(30, 2));
        EXPECT_EQ(pdus.at(0).substr(30, 4), pdus.at(1).substr(30, 4)); // and the count
        EXPECT_EQ(pdus[0].substr(34, 2) + pdus[1].substr(34, 2), "0102");
        references.push_back(pdus[0].substr(30, 2));
    }
    EXPECT_NE(references[0], references[1]);
    EXPECT_NE(references[1], references[2]);
}

TEST(Encoder, RefusesAPartWithoutRoom)
{
    sms_pdu_msg msg = {};
    text_set(msg.da, "+123");
    char out[1024];
    const std::string bytes(1023, 'x');
    for (const int coding : {0, 1, 2})
        for (const int udhl : {0, 1}) {
            msg.coding = coding;
            msg.udhl = udhl;
            EXPECT_EQ(corvel_mobile_encode_pdu_sms(&g_mobile, &msg, bytes.c_str(), out, 1023, 1),
                      -1);
        }
    EXPECT_EQ(corvel_mobile_encode_pdu_sms(&g_mobile, nullptr, "a", out, 1, 1), -1);
    text_set(msg.da, "12a");
    EXPECT_EQ(corvel_mobile_encode_pdu_sms(&g_mobile, &msg, "a", out, 1, 1), -1);
}

// What comes of a call: its result, the count of unanswered messages, and what is queued.
TEST(Submit, Results)
{
    const std::string long_number = "+" + std::string(130, '1');
    struct {
        std::string text;
        const char* number;
        int mode;
        const char* tag;
        int result;
        std::size_t queued;
    } const cases[] = {
        {"a", "+1", 0, "t", 0, 1},
        {repeat("a", 400), "+1", 0, "t", 0, 3},
        {"a", "1x", 0, "t", 0, 0}, // no number: counted, nothing queued
        {"a", "", 0, "t", 0, 0},
        {"a", nullptr, 0, "t", 0, 0},
        {"a", long_number.c_str(), 0, "t", 0, 0}, // never a shorter number in its place
        {"a", "+1", 0, "", -1, 0},
        {"a", "+1", 0, nullptr, -1, 0},
        {repeat("a", 151 * 255), "+1", 0, "t", 0, 255},
        {repeat("a", 151 * 255 + 1), "+1", 0, "t", -1, 0},
        {repeat("ä", 66 * 255 + 1), "+1", 0, "t", -1, 0},
        {repeat("a", 70000), "+1", 0, "t", -1, 0},
        {"body", "+1", 1, "t", 0, 1},
        {"a\nb", "+1", 7, "t", 0, 1},
        {"", "+1", 1, "t", -1, 0},
        {"a\x1a", "+1", 1, "t", -1, 0},
        {"a\x1b", "+1", 1, "t", -1, 0},
        {std::string("a\0b", 3), "+1", 1, "t", -1, 0},
        {"a", "1\"", 1, "t", -1, 0},
        {"a", "1\r", 1, "t", -1, 0}};
    for (const auto& c : cases) {
        sms_pending_count = 0;
        EXPECT_EQ(send(c.text, c.number, c.mode, c.tag), c.result);
        EXPECT_EQ(sms_pending_count, c.result + 1) << c.number << c.text.substr(0, 20);
        std::size_t queued = 0;
        while (sms_outbox_item* const item = sms_outbox_deq()) {
            queued++;
            EXPECT_EQ(item->sms_mode, c.mode);
            sms_outbox_free(item);
        }
        EXPECT_EQ(queued, c.queued) << c.text.substr(0, 20);
    }
    sms_pending_count = 0;
    EXPECT_EQ(libgsm_send_sms_from_buffer("t", "+1", 0, nullptr, 3), -1);
    EXPECT_EQ(libgsm_send_sms_from_buffer("t", "+1", 0, "a", -3), -1);
    gsm_mobile* place = &g_mobile;
    libgsm_mobile_free(&place);
    EXPECT_EQ(libgsm_send_sms_from_buffer("t", "+1", 0, "a", 1), -1);
    EXPECT_EQ(sms_pending_count, 0);
}

TEST(Submit, FromAFile)
{
    const auto send_file = [](const char* path) {
        return corvel_mobile_send_pdu_from_file(&g_mobile, "+123", path, "t", "UTF-8");
    };
    const captured output;
    std::ofstream("/tmp/message") << std::string(160, 'a');
    std::ofstream("/tmp/empty");
    EXPECT_EQ(send_file("/tmp/message"), 0);
    EXPECT_EQ(send_file("/tmp/empty"), 0);
    const std::vector<std::string> pdus = sent_pdus();
    ASSERT_EQ(pdus.size(), 2u);
    EXPECT_EQ(udl_of(pdus[0]), 160);
    EXPECT_EQ(udl_of(pdus[1]), 0);
    EXPECT_EQ(send_file(nullptr), -1);
    EXPECT_TRUE(output.has("Mobile send SMS File is NULL\n"));
    EXPECT_EQ(send_file("/nowhere/message"), -1);
    EXPECT_TRUE(output.has("Didn`t open SMS File\n"));
    EXPECT_EQ(send_file("/tmp"), -1); // a folder
    EXPECT_EQ(gsm_send_pdu(&g_mobile, "+1", "07", nullptr, "t"), 0);
    EXPECT_EQ(gsm_send_pdu(nullptr, "+1", "07", nullptr, "t"), -1);
}

// Parts of one message stay together whoever else sends, and no message is lost.
TEST(Submit, FromManyThreads)
{
    constexpr int messages = 100;
    const captured quiet;
    const auto fill = [](const char* number) {
        const std::string text(310, 'a');
        for (int i = 0; i < messages; i++)
            EXPECT_EQ(libgsm_send_sms_from_buffer("t", number, 0, text.data(), 310), 0);
    };
    sms_pending_count = 0;
    std::thread a(fill, "+1");
    std::thread b(fill, "+2");
    a.join();
    b.join();
    EXPECT_EQ(sms_pending_count, 2 * messages);
    int parts = 0;
    std::string number;
    while (sms_outbox_item* const item = sms_outbox_deq()) {
        if (parts++ % 3 != 0) {
            EXPECT_EQ(number, item->sms_number);
        }
        number = item->sms_number;
        EXPECT_EQ(gsm_hex2int(item->sms_body + 32, 2), (parts - 1) % 3 + 1);
        sms_outbox_free(item);
    }
    EXPECT_EQ(parts, 2 * 3 * messages);
}
