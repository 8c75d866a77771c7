// SPDX-License-Identifier: MIT
#include "tests/testing.h"

#include <kelo/log.h>

#include <mutex>

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

struct heard {
    std::mutex mutex;
    std::string lines;
};

// Says a line in turn for each that it hears, as a handler does that calls the library.
void hear(kelo_log_level level, const char* line, void* argument)
{
    auto& to = *static_cast<heard*>(argument);
    const std::scoped_lock guard(to.mutex);
    to.lines += std::to_string(level) + line + "|";
    if (std::strcmp(line, "unset") == 0)
        kelo_set_log(nullptr, nullptr);
    else
        diag_plain("to %s", line);
}

// Catches: a handler that locks itself up or never ends, a call under a lock, lost or raw lines.
TEST(Diag, AHandlerGetsEachLineInPlaceOfTheStreams)
{
    captured out;
    heard host;
    kelo_set_log(hear, &host);
    {
        const lock_scope<flow_lock> flow;
        diag_error("a\r\n\nb\n\n");
        EXPECT_EQ(host.lines, "");
    }
    EXPECT_EQ(host.lines + out.text(), "0a|0b|1to a|1to b|");
    diag_plain("unset\nrest\n\n"); // in the middle of a text
    diag_plain("again");
    EXPECT_EQ(host.lines, "0a|0b|1to a|1to b|1unset|");
    EXPECT_EQ(out.text(), "rest\n\nagain\n");
}

// A slow reader of the output must not hold up a thread that waits for a lock.
TEST(Diag, WhatIsSaidUnderALockComesAfterTheLastOneInOrder)
{
    captured out;
    {
        lock_scope<flow_lock> flow;
        diag_plain("first");
        {
            lock_scope<record_lock> record;
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
    lock_scope<flow_lock> again; // it was let go
    EXPECT_TRUE(out.text().ends_with("third\nunlocked\n"));
}

// Catches: a modem, a dialer and a stop that wait for ever for somebody to read what they say.
TEST(Diag, AReaderThatHasStoppedCostsASecondOnce)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int saved = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 2000; i++)
        diag_plain("%s", std::string(99, 'x').c_str());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    std::string read_again(65536, '\0'); // what a pipe holds
    read_again.resize(static_cast<std::size_t>(read(ends[0], read_again.data(), 65536)));
    const auto whole = std::count(read_again.begin(), read_again.end(), '\n');
    diag_plain("again");
    read_again.resize(static_cast<std::size_t>(read(ends[0], read_again.data(), 65536)));
    EXPECT_EQ(read_again, in_words(2000 - whole, " lines were dropped, nobody read them\nagain\n"));
    dup2(saved, STDOUT_FILENO);
    close(saved);
    close(ends[0]);
}
