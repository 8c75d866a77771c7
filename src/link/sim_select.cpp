// SPDX-License-Identifier: MIT
// SIM selection: the switch from one card to the other.

#include "link/link.h"

#include "core/family.h"
#include "support/diag.h"

#include <cstdint>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kelo
{

namespace
{

// The switch between the two cards: one request, whose argument points at a 32-bit int, 1 for the
// first card, 0 for any other.
constexpr char gpio_device[] = "/dev/brgpio";
constexpr unsigned long gpio_request = 0x4004AF74; // write, type 0xAF, number 0x74, 4 bytes

} // namespace

int gpio_select_simcard(int sim)
{
    const int fd = open(gpio_device, O_RDWR | O_CLOEXEC);
    if (fd <= 0) {
        if (fd == 0)
            close(fd);
        diag_error("%s: open failed\n", gpio_device);
        return -1;
    }
    word_set(selected_card, sim);
    diag_at(plain, __func__, "switch to SIM%d\n\n", sim);
    std::int32_t level = sim == 1 ? 1 : 0;
    const int result = ioctl(fd, gpio_request, &level);
    if (result < 0)
        diag_at(plain, "init", "%s: failed to ioctl(%d), ret %d!\n", __func__, sim, result);
    close(fd);
    return 0;
}

} // namespace kelo

using namespace kelo;

int mobile_select_simcard(int sim)
{
    if (slot_by_command())
        libgsm_set_simslot(sim);
    else
        gpio_select_simcard(sim);
    return 0;
}

int cellular_switch_simcard(void)
{
    return 0;
}
