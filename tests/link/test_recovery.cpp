// The SIM switch, as its driver would see it, and the radio reset.
#include "link/link.h"
#include "tests/testing.h"
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
