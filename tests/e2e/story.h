// SPDX-License-Identifier: MIT
// What the stories share: a modem, the library in this process, what both said, and waiting.
//
// Each case runs in a process of its own, so a story starts with the library as just loaded.
#pragma once

#include "emulator/modem.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <kelo/kelo.h>
#include <kelo/mqtt.h>
#include <kelo/settings.h>
#include <string>
#include <thread>
#include <vector>

namespace kelo_story
{

using namespace std::chrono_literals;
using kelo_emulator::milliseconds;
using kelo_emulator::monotonic_clock;
using line_list = std::vector<std::string>;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

// Stories run this many times as fast, but for those that are about times. A modem then has a tenth
// of a second for an answer; a sanitizer's run time gives it more.
inline constexpr int quick = sanitized ? 4 : 10;

// The library's own time, in which the stories are told. The library spends nearly all of its time
// waiting: for its pace, for a second of silence on the port, between two looks at the link. The
// program of the stories has a select, a poll and a usleep ahead of libc's; in them the waits of
// libkelo.so, and of nobody else, are pace() times shorter. The library is the one that ships.
inline std::atomic<int> pace = 1;           // set ahead of the start; 1 in a story about times
inline milliseconds real(milliseconds told) // on the clock of the test
{
    return told / pace.load();
}
bool in_library(const void* caller); // whether a return address stands in libkelo.so

// An upper limit of time. The library keeps the written one on an idle machine; a sanitizer's run
// time and a dozen stories at once on two cores get more.
constexpr milliseconds within(milliseconds limit)
{
    return sanitized ? 3 * limit + 1s : limit + limit / 2;
}

bool eventually(const std::function<bool()>& test, milliseconds limit);
#define EXPECT_SOON(condition)                                                                     \
    EXPECT_TRUE(eventually([&] { return condition; }, within(3s))) << #condition
milliseconds since(monotonic_clock::time_point start);
std::string text_of(const std::string& path); // of a file
line_list words(const std::string& text);     // parted by blanks and line ends
std::size_t count_of(const std::string& text, const std::string& part);

// An exported word, as another thread may write it at any time.
template <class Word> Word word(Word& exported)
{
    return std::atomic_ref<Word>(exported).load();
}

std::size_t heap_bytes();                     // in use, of the whole process
std::int64_t thread_cpu_us(const char* name); // -1: no thread of that name

class Story : public testing::Test
{
  protected:
    static constexpr const char* port = "/dev/ttyUSB2";
    kelo_emulator::emulated_modem modem;

    void SetUp() override;
    void TearDown() override;

    void plug(const std::string& model, const std::map<std::string, std::string>& variables = {});
    // A module that no table knows: its start flow is the first four commands alone.
    void plug_unknown() { plug("EC25", {{"model", "Quectel_M35"}, {"revision", "M35FAR01A01"}}); }
    void order(const std::string& text) { ASSERT_EQ(modem.order(text), "") << text; }

    // A change of one command of the start flow of SIM 1; to be made ahead of the start.
    void change(int id, int timeout, int ignore = 0, const char* cmd = nullptr, int seq = 0);
    static void quiet(milliseconds told); // the library's time goes by
    void start();                         // cellular_gsm_init and cellular_start
    milliseconds stop();                  // cellular_stop, which has to succeed
    void start_and_come_to_rest();        // an unknown module, until nothing runs
    bool wire(const std::string& pattern, milliseconds limit, std::size_t times = 1);

    gsm_mobile record() const;
    std::string said() const; // standard output and error stream since the start of the story
    bool says(const std::string& text, milliseconds limit) const;

    // Times of the commands on the wire.
    std::vector<std::pair<milliseconds, std::string>> command_times() const;
    milliseconds gap_behind(const std::string& command) const; // to the next command

  private:
    int stdout_ = -1, stderr_ = -1, output_ = -1;
    std::vector<std::unique_ptr<at_config_item>> changes_;
};

} // namespace kelo_story
