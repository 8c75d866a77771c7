// SPDX-License-Identifier: MIT
// Messages on their way out, from the host's call to the PDUs in the outbox, and read back.
#include "tests/sms/messages.h"

// Sends a text and gives the TP-UDL of its parts. Each has to fit a message, and a receiver who
// puts them together to read the text.
static std::vector<int> round_trip(const std::string& text, const std::string& read)
{
    EXPECT_EQ(send(text), 0);
    const std::vector<std::string> pdus = sent_pdus();
    std::vector<int> udl;
    std::string all;
    for (const std::string& pdu : pdus) {
        EXPECT_LE(pdu.size() - 22, 2u * 140) << text;
        udl.push_back(gsm_hex2int(pdu.data() + 20, 2));
        const auto [readable, complete, message] = sms_read_pdu(delivered(pdu));
        EXPECT_TRUE(readable && complete);
        EXPECT_TRUE(message.total == 0 || message.number == static_cast<int>(udl.size()));
        EXPECT_TRUE(message.total == 0 || message.total == static_cast<int>(pdus.size()));
        all += message.text;
    }
    EXPECT_EQ(all, read);
    return udl;
}

TEST(Encoder, Pdus)
{
    // Length without the service centre, and PDU.
    constexpr std::array<const char*, 3> rows[] = {
        {"", "+123", "+123|12|003100039121F300000002C834"},
        {"123", "+123", "+123|12|039121F33100039121F300000002C834"},
        {"+123", "+123", "+123|12|039121F33100039121F300000002C834"},
        {"no\"digits", "12345", "12345|13|00310005812143F500000002C834"}};
    for (const auto& [sca, number, queued] : rows) {
        text_set(g_mobile.smscenter, sca);
        EXPECT_EQ(send("Hi", number), 0);
        sms_outbox_item* const i = sms_outbox_deq();
        EXPECT_EQ(joined(i->sms_number, i->sms_length, i->sms_body), queued);
        sms_outbox_free(i);
    }
}

// Lengths around every limit. Each part is within a message's room, and the text comes back whole.
TEST(Encoder, Parts)
{
    const std::string nul(1, '\0');
    const std::string raw = nul + "A";
    struct {
        std::string text;
        std::vector<int> udl;
        std::string read = text.c_str();
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
        {repeat("a", 161) + nul, {159, 18}},                   // not the terminator
        {repeat("告", 70), {140}},
        {repeat("告", 71), {138, 16}},
        {repeat("告", 132), {138, 138}},
        {repeat("告", 133), {138, 138, 8}},
        {"ä", {2}}, // counted by threes it would be in no part
        {repeat("ä", 100), {138, 74}},
        {repeat("告", 70) + "ä", {138, 16}},
        {repeat("😀", 36), {138, 18}}, // two units each
        {"a" + repeat("😀", 66), {136, 138, 10}},
        {repeat("a", 70) + "`", {138, 16}},
        // UCS-2 of the host's own. The first byte of U+4ECE and the next of U+0042 are no Greek
        // letter, and both halves of a character stay in one part.
        {"\x4E\xCE" + nul + "B", {4}, "从B"},
        {repeat(raw, 70), {140}, repeat("A", 70)},
        {repeat(raw, 71), {138, 16}, repeat("A", 71)},
        {repeat(raw, 65) + "\xD8\x3D\xDE" + nul + repeat(raw, 9),
         {136, 28},
         repeat("A", 65) + "😀" + repeat("A", 9)},
    };
    for (const auto& c : cases)
        EXPECT_EQ(round_trip(c.text, c.read), c.udl) << c.text;

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

TEST(Encoder, RefusesAPartWithoutRoom)
{
    sms_pdu_msg msg = {};
    text_set(msg.da, "+123");
    char out[1024];
    for (const auto& [coding, header, n] :
         {std::tuple(0, 0, 161), {0, 1, 154}, {1, 0, 71}, {2, 0, 141}, {1, 1, 1023}}) {
        msg.coding = coding;
        msg.udhl = header;
        const std::string part(static_cast<std::size_t>(n), 'x');
        EXPECT_EQ(corvel_mobile_encode_pdu_sms(&g_mobile, &msg, part.c_str(), out, n, 1), -1);
    }
    msg = {};
    text_set(msg.da, "+123");
    for (const auto& [capitals, length] : {std::pair(160, 22 + 2 * 140), {161, -1}}) {
        const std::string part = repeat("Ω", capitals); // two bytes of text, one septet
        EXPECT_EQ(corvel_mobile_encode_pdu_sms(&g_mobile, &msg, part.c_str(), out, 0, 1), length);
    }
}

// What comes of a call: its result, the count of unanswered messages, and what is queued.
TEST(Submit, Results)
{
    const std::string long_number = "+" + std::string(130, '1');
    const std::tuple<std::string, const char*, int, int, std::size_t> rows[] = {
        {"a", "1x", 0, 0, 0}, // no number: counted, nothing queued
        {"a", nullptr, 0, 0, 0},
        {"a", long_number.c_str(), 0, 0, 0}, // never a shorter number in its place
        {repeat("a", 151 * 255), "+1", 0, 0, 255},
        {repeat("a", 151 * 255 + 1), "+1", 0, -1, 0},
        {repeat("ä", 66 * 255 + 1), "+1", 0, -1, 0},
        {repeat("a", 70000), "+1", 0, -1, 0},
        {"a\nb", "+1", 7, 0, 1},
        {"", "+1", 1, -1, 0},
        {"a\x1a", "+1", 1, -1, 0},
        {"a\x1b", "+1", 1, -1, 0},
        {std::string("a\0b", 3), "+1", 1, -1, 0},
        {"a", "1\"", 1, -1, 0},
        {"a", "1\r", 1, -1, 0},
    };
    for (const auto& [text, number, mode, result, queued] : rows) {
        sms_pending_count = 0;
        EXPECT_EQ(send(text, number, mode), result);
        EXPECT_EQ(sms_pending_count, result + 1) << text.substr(0, 20);
        EXPECT_EQ(sent_pdus().size(), queued) << text.substr(0, 20);
    }
    for (const char* tag : {"", static_cast<const char*>(nullptr)})
        EXPECT_EQ(send("a", "+1", 0, tag), -1);
    EXPECT_EQ(libgsm_send_sms_from_buffer("t", "+1", 0, "a", -3), -1);
    const captured quiet;
    const scratch message("/tmp/message");
    const scratch longer("/tmp/longer");
    std::ofstream("/tmp/message") << std::string(160, 'a');
    std::ofstream("/tmp/longer") << std::string(1 << 20, 'a');
    for (const char* path : {"/tmp/message", "/tmp/longer", "/nowhere/message", "/tmp"})
        corvel_mobile_send_pdu_from_file(&g_mobile, "+1", path, "t", "UTF-8");
    const std::vector<std::string> pdus = sent_pdus();
    EXPECT_EQ(pdus.size(), 1u) << "neither from no file, nor from a folder";
    EXPECT_EQ(pdus.at(0).substr(18, 2), "A0");
    EXPECT_EQ(gsm_send_pdu(&g_mobile, "+1", nullptr, nullptr, "t"), -1);
    EXPECT_EQ(gsm_send_pdu(nullptr, "+1", pdus[0].c_str(), nullptr, "t"), -1);
    EXPECT_EQ(gsm_send_pdu(&g_mobile, "+1", pdus[0].c_str(), nullptr, "t"), 0);
    EXPECT_EQ(sent_pdus(), pdus);
    EXPECT_EQ(send(repeat("a", 161)), 0);
    for (const int number : {1, 2})
        EXPECT_EQ(sms_send_next(monotonic_ms())->number, number);
}

// Parts of one message stay together and share a reference that the next message does not have,
// whoever else sends, and no message is lost.
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
    std::thread a(fill, "+12");
    std::thread b(fill, "+34");
    a.join();
    b.join();
    EXPECT_EQ(sms_pending_count, 2 * messages);
    const std::vector<std::string> pdus = sent_pdus();
    ASSERT_EQ(pdus.size(), 2u * 3 * messages);
    for (std::size_t i = 0; i < pdus.size(); i++) {
        const std::size_t first = i / 3 * 3; // of the message: number, header and count are its own
        EXPECT_EQ(pdus[i].substr(0, 18), pdus[first].substr(0, 18));
        EXPECT_EQ(pdus[i].substr(20, 12), pdus[first].substr(20, 12));
        EXPECT_EQ(pdus[i].substr(32, 2), "0" + std::to_string(i - first + 1));
        EXPECT_TRUE(i != first || i == 0 || pdus[i].substr(28, 2) != pdus[i - 1].substr(28, 2));
    }
}
