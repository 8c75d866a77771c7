// SPDX-License-Identifier: MIT
// A host that sleeps until kelo_event_fd wakes it, and looks at nothing in between.
#include "tests/e2e/story.h"

#include <atomic>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <thread>

using namespace kelo_story;

struct EventFd : Story {
    void SetUp() override
    {
        Story::SetUp();
        fd = kelo_event_fd();
        ASSERT_GT(fd, 2);
    }

    // Whether it comes to be so, as seen by a host that looks when it is woken.
    bool sees(const std::function<bool()>& so, milliseconds limit = 20s) const
    {
        const auto begin = monotonic_clock::now();
        while (since(begin) < within(limit)) {
            pollfd news = {fd, POLLIN, 0};
            eventfd_t times = 0;
            if (poll(&news, 1, static_cast<int>(within(limit).count())) == 1 &&
                eventfd_read(fd, &times) == 0 && so())
                return true;
        }
        return false;
    }

    static void init()
    {
        static cellular_setting settings = {};
        std::atomic_ref(global_quagga_stop).store(0);
        kelo_init_cellular(&settings, 0);
    }
    static bool is(kelo_reason reason) { return kelo_get_reason() == reason; }

    int fd = -1;
};

// Catches: news of which a host that waits never hears, and which it would find only by a look of
// its own.
TEST_F(EventFd, WakesForAllThatAHostPollsFor)
{
    EXPECT_EQ(kelo_event_fd(), fd);
    EXPECT_TRUE(sees([] { return true; })) << "what came before is news, too";
    EXPECT_FALSE(sees([] { return true; }, 200ms)) << "nothing is new";

    kelo_keep(nullptr);
    init();
    EXPECT_TRUE(sees([] { return is(KELO_REASON_NO_PORT); }));
    plug("RM500Q", {{"prompt_ms", "30"}, {"cmgs_ms", "50"}});
    EXPECT_TRUE(sees([] { return mobile_is_ready() != 0; }));
    EXPECT_TRUE(sees([] { return is(KELO_REASON_ONLINE); }));

    kelo_answer answer;
    kelo_message message;
    char text[KELO_ANSWER_LONGEST + 1];
    ASSERT_GT(kelo_ask("AT+CSQ", 0), 0);
    EXPECT_TRUE(
        sees([&] { return kelo_take_answer(&answer, sizeof answer, text, sizeof text) == 1; }));
    EXPECT_EQ(answer.size, sizeof answer);

    EXPECT_EQ(kelo_take_message(&message, sizeof message, text, sizeof text), 0);
    order("sms text +4930 hello");
    EXPECT_TRUE(
        sees([&] { return kelo_take_message(&message, sizeof message, text, sizeof text) == 1; }));
    EXPECT_EQ(message.size, sizeof message);
    kelo_sms_result result = {};
    ASSERT_GT(kelo_send_sms("+491511", "hello", nullptr), 0);
    EXPECT_TRUE(sees([&] { return kelo_take_sms_result(&result, sizeof result) == 1; }));
    EXPECT_EQ(result.size, sizeof result);

    order("call +491512");
    EXPECT_TRUE(sees([&] { return kelo_take_caller(text, sizeof text) == 1; }));
    modem.stop();
    EXPECT_TRUE(sees([] { return is(KELO_REASON_NO_PORT); }));
    kelo_keep_stop();
    EXPECT_TRUE(sees([] { return is(KELO_REASON_STOPPED); }));
    kelo_deinit_cellular();
}

// Catches: a descriptor that a stop or a further start leaves dead; a last part that never comes,
// of which nobody tells.
TEST_F(EventFd, LivesOverStopsAndTellsOfWhatDoesNotCome)
{
    plug("RM500Q");
    kelo_set_sms_patience(1);
    for (int run = 0; run < 2; run++) {
        init();
        EXPECT_TRUE(sees([] { return mobile_is_ready() != 0; })) << run;
        EXPECT_EQ(kelo_event_fd(), fd);
        if (run == 0) {
            kelo_message message;
            char text[1024];
            EXPECT_EQ(kelo_take_message(&message, sizeof message, text, sizeof text), 0);
            EXPECT_FALSE(sees([] { return false; }, 3s)); // the flow is through, nobody says a word
            // The first of two parts, 3GPP TS 23.040 9.2.3.24.1.
            order("sms pdu 0791947101670000440D91945111325476F8000042507190230080160500035A0202E061"
                  "391D44BFBF416F33887E7F03");
            EXPECT_TRUE(sees([&] {
                return kelo_take_message(&message, sizeof message, text, sizeof text) == 1;
            }));
            EXPECT_EQ(message.missing, 1);
        }
        kelo_deinit_cellular();
        EXPECT_TRUE(sees([] { return true; })) << run;
        EXPECT_SOON(thread_cpu_us("MobileTask") == -1);
    }
}
