// Sending: what the step's answers mean, and the bytes behind the prompt.
#include "sms/sms.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

using namespace kelo;

namespace
{

int answer(const char* text)
{
    std::string line = text;
    const event* const raised = sms_send_handler(&g_mobile, line.data());
    return raised != nullptr ? raised->code : 0;
}

} // namespace

TEST(SmsSend, AnswersInOrder)
{
    struct {
        const char* line;
        int seen;
        int code;
        int seen_after;
        int done_after;
    } const cases[] = {
        {"OK", 0, 0, 0, 0}, // ahead of the prompt
        {"OK", 1, 0, 1, 1},
        {"+CMGS: 17", 0, GSM_EVENT_SMS_SEND_OK, 1, 0},
        {"+CMS ERROR: 304", 0, GSM_EVENT_SMS_SEND_FAILED, 0, 1},
        {"ERROR", 0, 0, 0, 0},
        {"+CMGS: OK", 0, 0, 0, 0}, // "OK" is looked for first
        {"AT+CMGS=17", 0, 0, 0, 0},
    };
    for (const auto& c : cases) {
        g_mobile.reg_seen = c.seen;
        g_mobile.at_done = 0;
        EXPECT_EQ(answer(c.line), c.code) << c.line;
        EXPECT_EQ(g_mobile.reg_seen, c.seen_after) << c.line;
        EXPECT_EQ(g_mobile.at_done, c.done_after) << c.line;
    }
    char line[] = "OK";
    EXPECT_EQ(sms_send_handler(nullptr, line), nullptr);
    EXPECT_EQ(sms_send_handler(&g_mobile, nullptr), nullptr);
}

TEST(SmsSend, PromptDrawsTheBodyAndCtrlZ)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    g_mobile.fd = ends[0];
    std::snprintf(g_mobile.sms_text, sizeof g_mobile.sms_text, "two\nlines");
    EXPECT_EQ(answer("> "), 0);
    char bytes[64];
    const ssize_t count = read(ends[1], bytes, sizeof bytes);
    EXPECT_EQ(std::string(bytes, static_cast<std::size_t>(count)), "two\nlines\x1a\r\n");
    g_mobile.fd = -1;
    EXPECT_EQ(write_sms_msg(&g_mobile, "x"), -1);
    EXPECT_EQ(write_sms_msg(nullptr, "x"), -1);
    EXPECT_EQ(write_sms_msg(&g_mobile, nullptr), -1);
    close(ends[0]);
    close(ends[1]);
}

// Four attempts, a second apart, and then the step's timer ends it.
TEST(SmsSend, RefusedWriteIsTriedFourTimes)
{
    g_mobile.fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    testing::internal::CaptureStdout();
    EXPECT_EQ(write_sms_msg(&g_mobile, "body"), 0);
    const std::string said = testing::internal::GetCapturedStdout();
    std::size_t at = 0;
    for (const char* left : {"[2/3]", "[1/3]", "[0/3]"}) {
        const std::size_t found =
            said.find(std::string(left) + " failed to write command('body')", at);
        ASSERT_NE(found, std::string::npos) << said;
        at = found + 1;
    }
    EXPECT_EQ(said.find("failed", at + 10), std::string::npos);
    close(g_mobile.fd);
    g_mobile.fd = -1;
}
