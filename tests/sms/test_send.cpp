// SPDX-License-Identifier: MIT
// Sending: what the step's answers mean, and the bytes behind the prompt.
#include "tests/handlers/feed.h"
#include "tests/sms/messages.h"

TEST(SmsSend, AnswersInOrder)
{
    const story stories[] = {
        // whether the modem has taken it
        {"", sms_send_handler, "OK", 0, 0, "0"}, // ahead of the prompt
        {"", sms_send_handler, "+CMGS: 17", GSM_EVENT_SMS_SEND_OK, 0, "1"},
        {"", sms_send_handler, "+CMGS: 17|OK", GSM_EVENT_SMS_SEND_OK, 1, "1"},
        {"", sms_send_handler, "+CMS ERROR: 304", GSM_EVENT_SMS_SEND_FAILED, 1, "0"},
        {"", sms_send_handler, "+CMGS: OK|AT+CMGS=17", 0, 0, "0"}}; // "OK" is looked for first
    run(
        stories, [] {}, [] { return in_words(g_mobile.reg_seen); });
}

// The body goes out once for each send, whichever handler the prompt comes under. A prompt that is
// late, or left by a process before, is taken back; any other is the host's own.
TEST(SmsSend, PromptDrawsTheBodyOnce)
{
    constexpr const char* anew = "";
    // The body of a send that begins, `anew` for a port that is opened, or null; a line, of its own
    // step or not; what is written.
    constexpr std::tuple<const char*, const char*, bool, const char*> rows[] = {
        {nullptr, "> ", true, ""}, // for a command of the host
        {anew, "OK", true, ""},
        {nullptr, "\r> ", false, "\x1b"},
        {nullptr, "> ", false, ""},
        {"07 A", "AT+CMGS=7", true, ""},
        {nullptr, "\r> ", true, "07 A\x1a\r\n"},
        {nullptr, "07 A", true, ""},
        {nullptr, "> ", true, ""},
        {"a > b\r> c", "> ", true, "a > b\r> c\x1a\r\n"},
        {nullptr, "a > b", true, ""}, // its echo
        {nullptr, "> ", true, ""},    // for the line end in it
        {"c\nd", "> ", true, "c\nd\x1a\r\n"},
        {nullptr, "> ", true, ""}, // for that one
        {"07 B", "+COPS: 0,0,\"a> b\"", false, ""},
        {nullptr, "> ", false, "07 B\x1a\r\n"}, // late
        {"07 C", "OK", true, ""},
        {"07 D", "> ", false, "07 D\x1a\r\n"}, // a newer send
        {anew, "OK", true, ""},
        {"e\nf", "> ", false, "e\nf\x1a\r\n"},
        {nullptr, "> ", false, ""},     // for the line end in it,
        {nullptr, "> ", false, "\x1b"}, // and one of before
    };
    modem_port port;
    for (const auto& [body, line, own_step, written] : rows) {
        if (body == anew) {
            sms_port_fresh(&g_mobile);
        } else if (body != nullptr) {
            text_set(g_mobile.sms_text, body);
            sms_send_begins(&g_mobile);
            text_set(g_mobile.sms_text, "the next one, chosen already");
        }
        if (own_step)
            feed(sms_send_handler, line);
        else
            sms_watch_prompt(&g_mobile, line);
        EXPECT_EQ(port.heard(), written) << line;
    }
}

namespace
{

// A message in parts; with a number each of them waits for the answer to the one before.
void queue(const char* tag, int parts, int number)
{
    sms_job* const job = sms_job_create(tag, "+49123", parts, {number});
    list_head all = LIST_HEAD_INIT(all);
    for (int i = 1; i <= parts; i++)
        list_add_tail(&sms_part_create(0, tag, "+49123", 20, "0011", job, i)->node, &all);
    ASSERT_TRUE(sms_outbox_append(all));
}

// What a script makes of it. Its words: a queued message ("a2" or "A2" with a number, of two
// parts), "take" and "begin" of the next part, seconds that pass, and lines of the modem, with '_'
// for a blank. Gives what was taken, and the results.
std::string fates(modem_port& port, const std::string& script)
{
    std::string told;
    std::int64_t ahead_ms = 0;
    std::istringstream words(script);
    for (std::string word; words >> word;) {
        std::replace(word.begin(), word.end(), '_', ' ');
        const std::int64_t now = monotonic_ms() + ahead_ms;
        if (word == "take") {
            const sms_part* const part = sms_send_next(now);
            told += part != nullptr ? in_words(part->sms_tag[0], part->number, ' ') : "- ";
        } else if (word == "begin") {
            sms_send_begins(&g_mobile);
        } else if (word == "reload") {
            sms_send_interrupted();
        } else if (word == "lost") {
            sms_port_lost();
        } else if (word == "cancel") {
            told += in_words("cancel", kelo_cancel_sms(1), ' ');
        } else if (word == "> ") {
            sms_watch_prompt(&g_mobile, "> ");
        } else if (std::isdigit(word[0])) {
            ahead_ms += 1000 * std::stoi(word);
            sms_look_at_clock(monotonic_ms() + ahead_ms);
        } else if (word[0] == '+' || word == "ERROR") {
            sms_watch_answer(word.c_str());
        } else {
            queue(word.c_str(), word[1] - '0', word[0] < 'a');
        }
    }
    kelo_sms_result result;
    while (kelo_take_sms_result(&result, sizeof result) == 1) {
        told += in_words(result.tag, '=', kelo_sms_state_name(result.state), ' ', result.confirmed,
                         '/', result.parts);
        if (result.error != 0)
            told += in_words(" error ", result.error, ':', result.error_number);
        for (int i = 0; i < result.parts && result.state == KELO_SMS_SENT; i++)
            told += in_words(" #", int(result.references[i]));
        told += ' ';
    }
    port.heard(1);
    sms_port_lost();
    while (sms_outbox_item* const item = sms_outbox_deq())
        sms_outbox_free(item);
    while (kelo_take_sms_result(&result, sizeof result) == 1)
        continue;
    return told;
}

} // namespace

// Each part has one fate, of the answer that is its own, and a message that of its parts.
TEST(SmsSend, Fates)
{
    constexpr std::pair<const char*, const char*> rows[] = {
        // Answers come in order, whenever they come; a command of before may be answered by none.
        {"a1 take begin >_ +CMGS:_7", "a1 a1=sent 1/1 #7 "},
        {"a1 b1 take begin >_ take begin >_ +CMGS:_7 +CMS_ERROR:_38",
         "a1 b1 a1=sent 1/1 #7 b1=failed 0/1 error 1:38 "},
        {"a2 take begin >_ take begin >_ +CMGS:_255 +CMGS:_0", "a1 a2 a2=sent 2/2 #255 #0 "},
        {"+CMGS:_9 a1 take begin +CMGS:_9 >_ +CMGS:_7", "a1 a1=sent 1/1 #7 "},
        // The modem refuses the command itself.
        {"a1 take begin +CMS_ERROR:_304 take", "a1 - a1=failed 0/1 error 1:304 "},
        {"a1 take begin >_ +CME_ERROR:_14", "a1 a1=failed 0/1 error 2:14 "},
        {"a1 take begin ERROR", "a1 a1=failed 0/1 error 3:-1 "},
        // With a number: one part behind the other's answer, and none behind one that failed.
        {"A2 take begin >_ take 3 take +CMGS:_1 take begin >_ +CMGS:_2",
         "A1 - - A2 A2=sent 2/2 #1 #2 "},
        {"A3 take begin >_ +CMGS:_1 take begin >_ +CMS_ERROR:_21 take",
         "A1 A2 - A3=failed 1/3 error 1:21 "},
        {"a2 take begin >_ +CMS_ERROR:_21 take begin >_ +CMGS:_5",
         "a1 a2 a2=failed 1/2 error 1:21 "},
        // A body that is out and not answered.
        {"A2 take begin >_ 119 take 1 take begin >_ +CMGS:_3", "A1 - A2 A2=unknown 1/2 "},
        {"a1 take begin >_ lost take", "a1 - a1=unknown 0/1 "},
        // A body that is not out goes out later, ahead of the others.
        {"a1 b1 take reload take begin >_ +CMGS:_1", "a1 a1 a1=sent 1/1 #1 "},
        {"a1 b1 take begin lost take begin >_ +CMGS:_1", "a1 a1 a1=sent 1/1 #1 "},
        {"a1 b1 take begin reload >_ +CMGS:_1", "a1 a1=sent 1/1 #1 "},
        {"a1 b1 take begin 29 take 1 take begin >_ +CMGS:_1", "a1 - a1 a1=sent 1/1 #1 "},
        {"a1 take begin 30 take begin 30 take begin 30 take begin 30 take begin 30 take begin 30 "
         "take begin 30 take begin 30 take begin 30 take begin 30 take",
         "a1 a1 a1 a1 a1 a1 a1 a1 a1 a1 - a1=not written 0/1 "},
        // A flow that passes the command over.
        {"a1 b1 take take", "a1 b1 a1=refused 0/1 "},
        // Taken back, or too late.
        {"A2 cancel take", "cancel1 - "},
        {"A2 take cancel begin >_ cancel", "A1 cancel0 cancel0 "},
        {"a2 cancel", "cancel0 "},
    };
    modem_port port;
    const captured quiet;
    for (const auto& [script, told] : rows)
        EXPECT_EQ(fates(port, script), told) << script;
}

// An answer is one wherever a read cuts it, and beside a report that has the read for itself.
TEST(SmsSend, AnswersBesideReportsAndOverReads)
{
    const std::string report = in_words("+CMT: ,30\r\n", pdu_door, "\r\n");
    const std::vector<std::string> rows[] = {
        {"\r\n+CMGS: 77\r\n\r\nOK\r\n", report},      {"\r\n+CM", "GS: 7", "7\r\n\r\nOK\r\n"},
        {"\r\n+CMGS: 77\r\n\r\nOK\r\n" + report},     {report + "\r\n+CMGS: 77\r\n\r\nOK\r\n"},
        {"\r\n+CMTI: \"SM\",3\r\n\r\n+CMGS: 77\r\n"},
    };
    modem_port port;
    at_info at = {};
    at.handler = general_handler;
    const captured quiet;
    for (const auto& reads : rows) {
        queue("a", 1, 1);
        ASSERT_NE(sms_send_next(monotonic_ms()), nullptr);
        sms_send_begins(&g_mobile);
        sms_watch_prompt(&g_mobile, "> ");
        for (const std::string& read : reads)
            hear(port, &at, read);
        kelo_sms_result result = {};
        EXPECT_EQ(kelo_take_sms_result(&result, sizeof result), 1) << reads[0];
        EXPECT_EQ(result.references[0], 77);
    }
    EXPECT_EQ(kelo_is_sms_received(), 1);
}

// From the command that draws the prompt to the body, though a report stands between them and in
// the same read as the prompt; and nothing of another thread comes between.
TEST(SmsSend, PromptBehindAReport)
{
    modem_port port;
    at_list list = LIST_HEAD_INIT(list);
    at_info* const at = add_node(list, 63, 1, "AT+CMGS=7", 1);
    at->handler = sms_send_handler;
    cur_at_list = &list;
    text_set(g_mobile.sms_text, "0011");
    constexpr const char* reads[] = {
        "AT+CMGS=7\r\r\n\r\n+CMTI: \"SM\",3\r\n\r\n> ",
        "AT+CMGS=7\r\r\n\r\n> \r\n+CMTI: \"SM\",3\r\n",
    };
    for (const char* read : reads) {
        at->flags = 0;
        at_seq_cursor = 0;
        bool ended = false;
        EXPECT_EQ(libgsm_send_atcommand(&g_mobile, ended), at);
        EXPECT_EQ(port.heard(), "AT+CMGS=7\r\n");
        std::thread other([] { libgsm_send_at("AT+QENG"); }); // would become part of the message
        usleep(100000);
        hear(port, at, read);
        other.join();
        EXPECT_EQ(port.heard(), "0011\x1a\r\nAT+QENG\r\n") << read;
    }
    // The task that has to read the prompt waits for nothing, and puts its own off.
    mobile_task_begins();
    sms_send_begins(&g_mobile);
    libgsm_send_at("AT+CNMA");
    EXPECT_EQ(port.heard(), "");
    hear(port, at, "\r\n> ");
    exchange_write_deferred(&g_mobile);
    EXPECT_EQ(port.heard(), "0011\x1a\r\nAT+CNMA\r\n");
    cur_at_list = nullptr;
    at_info_free(at);
}

// Catches: a message cut where the modem takes no more for a while, whose end draws the commands
// behind it into it.
TEST(SmsSend, BodyGoesOutInAsManyWritesAsItTakes)
{
    modem_port port;
    const captured said;
    const auto is_short = [&] { return said.has("short write, "); };
    std::string heard;
    std::thread modem([&] {
        EXPECT_TRUE(wait_until(is_short));
        usleep(300000); // meanwhile the rest has no room at all
        heard = port.heard(2000);
    });
    const std::string body(1000, 'b');
    std::string written;
    while (!is_short() && written.size() < 1000 * body.size()) {
        EXPECT_EQ(write_sms_msg(&g_mobile, body.c_str()), 0);
        written += body + "\x1a\r\n";
    }
    modem.join();
    EXPECT_TRUE(heard == written) << heard.size() << " of " << written.size();
}

// Catches: a modem that waits on for a body which the port did not take, and a message lost by it.
TEST(SmsSend, BodyWithoutRoomIsTakenBack)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    // As small as it can be, and full but for one byte: what is longer goes in whole or not at all.
    const std::string full(static_cast<std::size_t>(fcntl(ends[1], F_SETPIPE_SZ, 1)) - 1, '.');
    ASSERT_EQ(write(ends[1], full.data(), full.size()), static_cast<ssize_t>(full.size()));
    g_mobile.fd = ends[1];
    text_set(g_mobile.sms_text, "0011");
    queue("a", 1, 1);
    const captured quiet;
    for (const char* const taken : {"\x1b", "0011\x1a\r\n"}) {
        ASSERT_NE(sms_send_next(monotonic_ms()), nullptr); // the same again
        sms_send_begins(&g_mobile);
        sms_watch_prompt(&g_mobile, "> ");
        std::string all(full.size() + 10, '.');
        EXPECT_GT(read(ends[0], all.data(), all.size()), 0);
        std::erase(all, '.');
        EXPECT_EQ(all, taken);
    }
    g_mobile.fd = -1;
}

namespace
{

// What becomes of a message with these options: its PDUs, each with its length and number.
std::string wished(const char* number, const std::string& text, const kelo_sms_options& options)
{
    std::string all = kelo_send_sms(number, text.c_str(), &options) > 0 ? "" : "refused";
    while (sms_outbox_item* const item = sms_outbox_deq()) {
        std::string body = item->sms_body;
        EXPECT_EQ(body.size(), 2u * (static_cast<std::size_t>(item->sms_length) + 1));
        if (body.size() > 36)
            body.replace(28, 2, ".."); // the reference is anybody's guess
        all += in_words(item->sms_tag, ' ', item->sms_number, ' ', item->sms_length, ' ',
                        body.substr(0, 36), "; ");
        sms_outbox_free(item);
    }
    return all;
}

kelo_sms_options options_with(unsigned validity = 0, int report = 0, int flash = 0)
{
    kelo_sms_options options{};
    options.size = sizeof options;
    options.validity = validity;
    options.report = report;
    options.flash = flash;
    return options;
}

} // namespace

// Catches: a wish that does not reach the PDU, a figure out of its range that does, a part that is
// lost on its way to the outbox.
TEST(SmsSend, WishesOfATextReachItsPdus)
{
    const captured quiet;
    const std::string digits(21, '1');
    const std::tuple<const char*, std::string, kelo_sms_options, std::string> rows[] = {
        {"+123", "Hi", options_with(), "kelo +123 12 001100039121F30000FF02C834; "},
        {"+123", "Hi", options_with(5, 1, 1), "kelo +123 12 003100039121F300100002C834; "},
        {"123", "Hi", options_with(635040), "kelo 123 12 001100038121F30000FF02C834; "},
        {"+123", std::string(161, 'a'), options_with(6),
         "kelo +123 150 005100039121F3000001A0050003..0201C2; kelo +123 24 "
         "005100039121F30000010F050003..0202C2; "},
        {"+123", "Hi", options_with(4), "refused"},
        {"+123", "Hi", options_with(635041), "refused"},
        {"+123", "Hi", options_with(0, 2), "refused"},
        {"+123", "Hi", options_with(0, -1), "refused"},
        {"+123", "Hi", options_with(0, 0, 2), "refused"},
        {"+123", "Hi", options_with(0, 0, -1), "refused"},
        {"+", "Hi", options_with(), "refused"},
        {"", "Hi", options_with(), "refused"},
        {digits.c_str(), "Hi", options_with(), "refused"},
        {"+123", "", options_with(), "refused"},
        {"+123", "\xff", options_with(), "refused"},
        {"+123", std::string(65537, 'a'), options_with(), "refused"}};
    for (const auto& [number, text, options, told] : rows)
        EXPECT_EQ(wished(number, text, options), told) << text.substr(0, 9);
    kelo_sms_options small = options_with();
    small.size = sizeof small.size - 1;
    EXPECT_EQ(kelo_send_sms("1", "Hi", &small), 0);
    EXPECT_EQ(kelo_send_sms(nullptr, "Hi", nullptr), 0);
    EXPECT_EQ(kelo_send_sms("1", nullptr, nullptr), 0);
    const std::string ten(153 * 10, 'a');
    for (int i = 0; i < KELO_SMS_OUTBOX / 10; i++)
        EXPECT_GT(kelo_send_sms("+1", ten.c_str(), nullptr), 0);
    EXPECT_EQ(kelo_send_sms("+1", ten.c_str(), nullptr), 0) << "no place for all of it";
    EXPECT_EQ(sent_pdus().size(), KELO_SMS_OUTBOX / 10u * 10);
}
