// The restart's gates: one restart at a time, whoever asks, and no gate left shut.
#include "link/init.h"

#include "support/sleeps.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

using namespace kelo;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

namespace
{

int restart_threads()
{
    int count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task", error)) {
        std::string name;
        std::ifstream(entry.path() / "comm") >> name;
        count += name == "RestartCellular";
    }
    return count;
}

bool comes_true(const auto& condition)
{
    for (int i = 0; i < 1000 && !condition(); i++)
        microseconds_sleep(10000);
    return condition();
}

bool at_rest()
{
    return word_get(cell_repower_lock) == 0 && word_get(restart_gate) == 0;
}

void ask_from_threads(int count)
{
    std::vector<std::thread> askers;
    int go = 0;
    for (int i = 0; i < count; i++)
        askers.emplace_back([&go] {
            while (word_get(go) == 0)
                std::this_thread::yield();
            EXPECT_EQ(cellular_module_restart_extern(), 0);
        });
    word_set(go, 1);
    for (std::thread& asker : askers)
        asker.join();
}

} // namespace

// The stop waits for a mobile task, so the restart is under way for as long as we like.
TEST(Restart, OneAtATime)
{
    word_set(mobile_task_stopped, 0);
    cell_restart_flag_reset();
    ask_from_threads(8);
    EXPECT_EQ(cell_restart_flag_get(), 1);
    ASSERT_TRUE(comes_true([] { return word_get(cell_repower_lock) == 1; }));
    EXPECT_EQ(restart_threads(), 1);

    cell_restart_flag_reset();
    ask_from_threads(8);
    EXPECT_EQ(cell_restart_flag_get(), 0) << "a refused call must not swallow the next new SIM";
    EXPECT_EQ(restart_threads(), 1);
    EXPECT_EQ(cellular_reload(), -1);

    word_set(mobile_task_stopped, 1);
    EXPECT_TRUE(comes_true(at_rest));
    EXPECT_TRUE(comes_true([] { return restart_threads() == 0; }));
}

// A stop that is refused ends the restart at once: the gates open again, round after round.
TEST(Restart, GatesOpenAgain)
{
    word_set(cell_start_lock, 1);
    for (int round = 0; round < 50; round++) {
        cell_restart_flag_reset();
        ask_from_threads(4);
        EXPECT_EQ(cell_restart_flag_get(), 1);
        ASSERT_TRUE(comes_true(at_rest)) << round;
    }
    word_set(cell_start_lock, 0);
}

TEST(Restart, NoThreadLeavesNoGateShut)
{
    if (sanitized)
        GTEST_SKIP() << "a sanitizer does not live without memory";
    cell_restart_flag_reset();
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    rlimit none = before;
    none.rlim_cur = 1;
    testing::internal::CaptureStderr();
    ASSERT_EQ(setrlimit(RLIMIT_AS, &none), 0);
    const int result = cellular_module_restart_extern();
    setrlimit(RLIMIT_AS, &before);
    EXPECT_EQ(result, 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("failed to create thread!"),
              std::string::npos);
    EXPECT_TRUE(at_rest());
    EXPECT_EQ(cell_restart_flag_get(), 0);
}

TEST(Restart, ThreadThatFindsTheLockTakenGivesUp)
{
    word_set(cell_repower_lock, 1);
    testing::internal::CaptureStdout();
    std::thread([] { restart_cellular_thread(nullptr); }).join();
    EXPECT_NE(testing::internal::GetCapturedStdout().find("repower thread has been locked!"),
              std::string::npos);
    EXPECT_EQ(word_get(cell_repower_lock), 1);
    EXPECT_EQ(word_get(mobile_task_run), 0) << "no start went through";
}
