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

// The body goes out once for each send, whichever handler the prompt comes under, and a prompt that
// nothing is due for is taken back.
TEST(SmsSend, PromptDrawsTheBodyOnce)
{
    // The body of a send that begins, or null; a line, of its own step or not; what is written.
    constexpr std::tuple<const char*, const char*, bool, const char*> rows[] = {
        {nullptr, "> ", true, "\x1b"}, // nothing was sent at all
        {"07 A", "AT+CMGS=7", true, ""},
        {nullptr, "\r> ", true, "07 A\x1a\r\n"},
        {nullptr, "07 A", true, ""},
        {nullptr, "> ", true, "\x1b"},
        {"a > b\r> c", "> ", true, "a > b\r> c\x1a\r\n"},
        {nullptr, "a > b", true, ""}, // its echo
        {nullptr, "> ", true, ""},    // for the line end in it
        {"07 B", "+COPS: 0,0,\"a> b\"", false, ""},
        {nullptr, "> ", false, "07 B\x1a\r\n"}, // late
        {nullptr, "> ", false, "\x1b"},
        {"07 C", "OK", true, ""},
        {"07 D", "> ", false, "07 D\x1a\r\n"} // a newer send
    };
    modem_port port;
    for (const auto& [body, line, own_step, written] : rows) {
        if (body != nullptr) {
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
    cur_at_list = nullptr;
    at_info_free(at);
}
