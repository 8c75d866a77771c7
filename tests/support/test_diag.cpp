#include "tests/testing.h"

// A host reads whole lines from a pipe: one call is one line with one end, at once.
TEST(Diag, EachCallIsOneWholeLine)
{
    captured out;
    std::string want;
    const auto say = [&](const std::string& text) {
        diag_plain("%s", text.c_str());
        want += text.empty() || text.back() != '\n' ? text + "\n" : text;
        EXPECT_EQ(out.text(), want) << text.size();
    };
    say("");
    for (const std::size_t length : {5u, 509u, 510u, 511u, 512u, 513u, 5000u}) {
        say(std::string(length, 'x'));
        say(std::string(length - 1, 'y') + "\n");
    }
}

// A slow reader of the output must not hold up a thread that waits for a lock.
TEST(Diag, WhatIsSaidUnderALockComesAfterTheLastOneInOrder)
{
    captured out;
    {
        lock_scope flow(flow_lock);
        diag_plain("first");
        {
            lock_scope record(record_lock);
            diag_plain("%s", std::string(2000, 'x').c_str());
        }
        diag_plain("third");
        std::thread([] { diag_plain("another thread"); }).join();
        EXPECT_EQ(out.text(), "another thread\n");
        flow.release();
        flow.release(); // only once
        EXPECT_EQ(out.text(), "another thread\nfirst\n" + std::string(2000, 'x') + "\nthird\n");
        diag_plain("unlocked");
    }
    lock_scope again(flow_lock); // it was let go
    EXPECT_TRUE(out.text().ends_with("third\nunlocked\n"));
}
