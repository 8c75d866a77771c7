// A restart that meets a stop.
#include "link/init.h"
#include "testing.h"
#include <kelo/settings.h>

using namespace kelo;
using namespace kelo::test;

namespace
{

int restarts;

// A start behind a stop that was refused would run beside the task that was not stopped.
TEST(Stopping, ARestartWhoseStopIsRefusedStartsNothing)
{
    const captured out;
    word_set(cell_start_lock, 1); // another start is under way
    restart_cellular_thread(nullptr);
    EXPECT_TRUE(out.has("cellular stop thread has been locked!\n"));
    EXPECT_FALSE(out.has("cellular_start"));
    EXPECT_EQ(word_get(cell_repower_lock), 0);
}

// The radio reset takes three seconds, in which a host may stop the library.
TEST(Stopping, ADialerThatIsStoppedDuringTheResetDoesNotRestart)
{
    dialer_tools tools = real_dialer_tools;
    tools.restart = [] { return ++restarts; };
    for (const bool stopped : {false, true}) {
        if (stopped)
            tools.reset_radio = [] { return global_quagga_stop = 1; };
        else
            tools.reset_radio = [] { return 0; };
        dialer_state state;
        state.tools = &tools;
        state.sim_wait_ticks = 251;
        g_netWorkCardFlag = 1;
        restarts = 0;
        dialer_pass(state);
        EXPECT_EQ(restarts, stopped ? 0 : 1);
    }
}

} // namespace
