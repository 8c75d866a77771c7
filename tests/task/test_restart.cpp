// SPDX-License-Identifier: MIT
#include "tests/testing.h"

static void ask_from_threads(int count)
{
    cell_restart_flag_reset();
    std::vector<std::jthread> askers;
    for (int i = 0; i < count; i++)
        askers.emplace_back(cellular_module_restart_extern);
}

// The stop waits for a mobile task, so the restart is under way for as long as we like.
TEST(Restart, OneAtATime)
{
    set_5g_debug(1);
    captured said;
    life_set(&lifecycle::mobile_task_stopped, false);
    ask_from_threads(8);
    EXPECT_EQ(cell_restart_flag_get(), 1);
    ASSERT_TRUE(wait_until([] { return word_get(cell_repower_lock) == 1; }));
    ask_from_threads(8);
    EXPECT_EQ(cell_restart_flag_get(), 0) << "a refused call must not swallow the next new SIM";
    EXPECT_EQ(count_of(said.text(), "===cellular module restart!"), 1);
    EXPECT_EQ(cellular_reload(), -1);
    restart_cellular_thread(nullptr); // one that comes too late gives up
    EXPECT_TRUE(said.has("repower thread has been locked!"));
    EXPECT_EQ(word_get(cell_repower_lock), 1);
    life_set(&lifecycle::mobile_task_stopped, true);
    EXPECT_TRUE(
        wait_until([] { return in_life([](lifecycle& now) { return now.nothing_runs(); }); }));
}

// A start behind a stop that was refused would run beside the task that was not stopped.
TEST(Restart, WhoseStopIsRefusedStartsNothing)
{
    const captured said;
    life_set(&lifecycle::cell_start_lock, true); // another start is under way
    restart_cellular_thread(nullptr);
    EXPECT_TRUE(said.has("cellular stop thread has been locked!\n"));
    EXPECT_FALSE(said.has("cellular_start"));
    EXPECT_EQ(word_get(cell_repower_lock), 0);
}
