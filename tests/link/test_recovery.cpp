// What stops, switches or resets the modem: the SIM switch, as its driver would see it, and the
// settings of the active SIM; the restart's gates; the radio reset.
#include "link/init.h"
#include "testing.h"
#include <kelo/settings.h>

#include <cstdarg>
#include <sys/resource.h>
#include <sys/syscall.h>

using namespace kelo;
using namespace kelo::test;

namespace
{

std::string asked; // of the switch
int switch_fd = -1;

std::string switched_to(int sim)
{
    asked.clear();
    mobile_select_simcard(sim);
    EXPECT_EQ(fcntl(switch_fd, F_GETFD), -1) << "stays open";
    return asked;
}

bool at_rest()
{
    return word_get(cell_repower_lock) == 0 && word_get(restart_gate) == 0;
}

void ask_from_threads(int count)
{
    std::vector<std::thread> askers;
    for (int i = 0; i < count; i++)
        askers.emplace_back(cellular_module_restart_extern);
    for (std::thread& asker : askers)
        asker.join();
}

} // namespace

// Ahead of the C library: the driver of the switch, which fails, behind a device node that is none.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list values;
    va_start(values, request);
    void* const argument = va_arg(values, void*);
    va_end(values);
    if (request != 0x4004af74)
        return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    switch_fd = fd;
    asked = std::to_string(fcntl(fd, F_GETFL) & O_ACCMODE) +
            std::to_string(*static_cast<int*>(argument));
    return -1;
}

// The card stays without a device, with one whose descriptor counts as failure (and must not stay
// open), and on a module that is switched by command.
TEST(SimSelect, RequestOfTheSwitch)
{
    captured said;
    EXPECT_EQ(gpio_select_simcard(2), -1);
    ASSERT_EQ(symlink("/dev/null", "/dev/brgpio"), 0);
    close(switch_fd = STDIN_FILENO);
    EXPECT_EQ(switched_to(2), "");
    EXPECT_EQ(selected_card, 1);
    EXPECT_EQ(open("/dev/null", O_RDONLY), STDIN_FILENO);
    EXPECT_EQ(switched_to(2), "20"); // opened for both ways, level 0
    EXPECT_EQ(switched_to(1), "21");
    EXPECT_EQ(switched_to(-5), "20");
    EXPECT_TRUE(said.has("gpio_select_simcard: failed to ioctl(-5), ret -1!\n"));
    EXPECT_EQ(selected_card, -5) << "only the message tells";
    is_quectel = 14;
    EXPECT_EQ(switched_to(2), "");
    EXPECT_EQ(g_mobile.simslot, 2);
    EXPECT_EQ(selected_card, -5);
    unlink("/dev/brgpio");
}

// The stop waits for a mobile task, so the restart is under way for as long as we like.
TEST(Restart, OneAtATime)
{
    set_5g_debug(1);
    captured said;
    word_set(mobile_task_stopped, 0);
    cell_restart_flag_reset();
    ask_from_threads(8);
    EXPECT_EQ(cell_restart_flag_get(), 1);
    ASSERT_TRUE(wait_until([] { return word_get(cell_repower_lock) == 1; }));
    cell_restart_flag_reset();
    ask_from_threads(8);
    EXPECT_EQ(cell_restart_flag_get(), 0) << "a refused call must not swallow the next new SIM";
    EXPECT_EQ(count_of(said.text(), "===cellular module restart!"), 1);
    EXPECT_EQ(cellular_reload(), -1);
    restart_cellular_thread(nullptr); // one that comes too late gives up
    EXPECT_TRUE(said.has("repower thread has been locked!"));
    EXPECT_EQ(word_get(cell_repower_lock), 1);
    word_set(mobile_task_stopped, 1);
    EXPECT_TRUE(wait_until(at_rest));
}

TEST(RadioReset, ApnGoesOutWhileTheRadioIsOffInLowPowerAlone)
{
    cellular_gsm_init(0);
    modem_port port;
    libgsm_reset_base_station();
    EXPECT_EQ(port.heard(), "AT+CFUN=0\r\nAT+CFUN=1\r\n");
    libgsm_set_low_power(1);
    libgsm_reset_base_station();
    EXPECT_EQ(port.heard(), "AT+CFUN=0\r\nAT+QICSGP=1,1,\"\",\"\",\"\",0\r\nAT+CFUN=1\r\n");
}
