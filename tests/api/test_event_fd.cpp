// SPDX-License-Identifier: MIT
// What wakes a host that waits at kelo_event_fd, and what does not.
#include "tests/testing.h"

#include <kelo/event.h>
#include <kelo/keeper.h>
#include <sys/eventfd.h>

namespace
{

// Whether it was readable; it no longer is.
bool woken()
{
    eventfd_t times = 0;
    return eventfd_read(kelo_event_fd(), &times) == 0;
}

} // namespace

// Catches: news without a wake, which a host sees late or never; a wake by what the host does when
// it is awake, which keeps it awake for ever.
TEST(EventFd, RaisedByNewsAlone)
{
    constexpr std::tuple<const char*, void (*)(), bool> rows[] = {
        {"the first call", [] {}, true},
        {"nothing", [] {}, false},
        {"status bits", [] { cellular_set_status(CELL_STATUS_READY); }, true},
        {"the same", [] { cellular_set_status(CELL_STATUS_READY); }, false},
        {"other bits go", [] { cellular_clear_status(CELL_STATUS_UP); }, false},
        {"they go", [] { cellular_clear_status(CELL_STATUS_READY); }, true},
        {"status reset", [] { cellular_reset_status(); }, true},
        {"SIM status", [] { set_sim_status(KELO_SIM_FAILED); }, true},
        {"the same SIM status", [] { set_sim_status(KELO_SIM_FAILED); }, false},
        {"a call", [] { cellular_set_call_received(1); }, true},
        {"is taken down", [] { kelo_clean_call_received(); }, false},
        {"reload flag", [] { cell_reload_flag_set(); }, true},
        {"start flag", [] { cell_start_flag_set(); }, true},
        {"flags down", [] { cell_reload_flag_unset(), cell_start_flag_unset(); }, false},
        {"context lost", [] { set_cell_pdpdeact(1); }, true},
        {"taken down", [] { set_cell_pdpdeact(0); }, false},
        {"a part", [] { sms_queue_add({}); }, true},
        {"a report", [] { sms_report_came({}); }, true},
        {"a stop", [] { cellular_stop(); }, true},
        {"polls",
         [] {
             cellular_status status;
             kelo_sms sms;
             kelo_sms_report report;
             kelo_get_cellular(&status);
             EXPECT_EQ(kelo_take_sms(&sms) + kelo_take_sms_report(&report, sizeof report), 2);
         },
         false}};
    for (const auto& [what, act, news] : rows) {
        act();
        EXPECT_EQ(woken(), news) << what;
    }
}

// Catches: a descriptor that a program started by the host inherits, or at which a read waits; a
// host that closes it and has the library write into its next file; a child that wakes its parent.
TEST(EventFd, IsAGoodDescriptor)
{
    close(STDIN_FILENO);
    const int fd = kelo_event_fd();
    EXPECT_GT(fd, STDERR_FILENO);
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(woken());
    life_set(&lifecycle::mobile_task_stopped, false); // as if the library ran
    const pid_t child = fork();
    if (child == 0) {
        cell_reload_flag_set();
        _exit(kelo_event_fd() == -1 ? 0 : 1);
    }
    life_set(&lifecycle::mobile_task_stopped, true);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(woken());
    close(fd);
    const int file = memfd_create("next", MFD_CLOEXEC);
    ASSERT_EQ(dup2(file, fd), fd);
    cell_reload_flag_set();
    EXPECT_EQ(lseek(file, 0, SEEK_END), 0);
}
