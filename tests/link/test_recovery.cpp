// SPDX-License-Identifier: MIT
// The SIM switch, as its driver would see it, and the radio reset.
#include "tests/testing.h"

#include <cstdarg>
#include <sys/resource.h>
#include <sys/syscall.h>

static std::string asked; // of the switch
static int switch_fd = -1;

// What the switch was asked for, and the card that counts as selected.
static std::string switched_to(int sim)
{
    asked.clear();
    mobile_select_simcard(sim);
    EXPECT_EQ(fcntl(switch_fd, F_GETFD), -1) << "stays open";
    return in_words(asked, " ", selected_card);
}

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
    asked = in_words(fcntl(fd, F_GETFL) & O_ACCMODE, *static_cast<int*>(argument));
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
    EXPECT_EQ(switched_to(2), " 1");
    EXPECT_EQ(open("/dev/null", O_RDONLY), STDIN_FILENO);
    EXPECT_EQ(switched_to(2), "20 2"); // opened for both ways, level 0
    EXPECT_EQ(switched_to(1), "21 1");
    EXPECT_EQ(switched_to(-5), "20 -5"); // only the message tells
    EXPECT_TRUE(said.has("gpio_select_simcard: failed to ioctl(-5), ret -1!\n"));
    is_quectel = 14;
    EXPECT_EQ(switched_to(2), " -5");
    EXPECT_EQ(g_mobile.simslot, 2);
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
