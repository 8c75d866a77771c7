// SPDX-License-Identifier: MIT
#include "support/threads.h"
#include "tests/testing.h"

#include <csignal>

// Catches: a handler of the host that runs on a thread of ours, a reader of our lines whose end is
// ours too.
TEST(Threads, LeaveTheSignalsToTheHost)
{
    static sigset_t theirs;
    static std::atomic<bool> seen = false;
    const auto look = [](void*) -> void* {
        pthread_sigmask(SIG_SETMASK, nullptr, &theirs);
        seen = true;
        return nullptr;
    };
    ASSERT_TRUE(thread_start_detached(look, nullptr));
    ASSERT_TRUE(wait_until([] { return seen.load(); }));
    for (const int number : {SIGTERM, SIGINT, SIGPIPE, SIGCHLD, SIGALRM})
        EXPECT_EQ(sigismember(&theirs, number), 1) << number;
    EXPECT_EQ(sigismember(&theirs, SIGSEGV), 0) << "a fault has to be seen where it happens";
    sigset_t ours;
    pthread_sigmask(SIG_SETMASK, nullptr, &ours);
    EXPECT_EQ(sigismember(&ours, SIGTERM), 0);
}
