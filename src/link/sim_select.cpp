// SIM selection: the switch from one card to the other, and the settings of the active one on their
// way into the modem record.
#include "link/init.h"

#include "api/api.h"
#include "support/diag.h"
#include "support/text.h"

#include <cstdint>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kelo
{

namespace
{

// Set by sim_switch_flag_set; nothing reads it.
int sim_switch_flag = 0;

// The switch between the two cards: one request, whose argument points at a 32-bit int, 1 for the
// first card, 0 for any other.
constexpr char gpio_device[] = "/dev/brgpio";
constexpr unsigned long gpio_request = 0x4004AF74; // write, type 0xAF, number 0x74, 4 bytes

struct scan_row {
    int scan_code;
    int scanmode;
};

constexpr scan_row scan_rows[] = {{2, 3}, {4, 2}, {6, 1}, {7, 9}, {8, 10}};

int scanmode_of(int scan_code)
{
    for (const scan_row& row : scan_rows) {
        if (row.scan_code == scan_code)
            return row.scanmode;
    }
    return 0;
}

// The active SIM's slot; null while the host has put something else than 1 or 2 there.
const cell_sim_cfg* active_slot()
{
    return cell_sim_config(word_get(selected_card));
}

// One text of the active SIM. The caller holds settings_lock.
const char* active_text(const char* cell_sim_cfg::*field)
{
    const cell_sim_cfg* const slot = active_slot();
    return slot != nullptr ? slot->*field : nullptr;
}

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
    diag_plain("%s:%d switch to SIM%d\n\n", __func__, __LINE__, sim);
    std::int32_t level = sim == 1 ? 1 : 0;
    const int result = ioctl(fd, gpio_request, &level);
    if (result < 0)
        diag_plain("%s:%d %s: failed to ioctl(%d), ret %d!\n", "init", __LINE__, __func__, sim,
                   result);
    close(fd);
    return 0;
}

int select_scanmode(int sim)
{
    const cell_sim_cfg* const slot = cell_sim_config(sim);
    if (slot == nullptr)
        return -1;
    lock_scope hold(settings_lock);
    const int scan_code = slot->scan_code;
    hold.release();
    libgsm_set_scanmode(scanmode_of(scan_code));
    return 0;
}

const char* cellular_get_pincode()
{
    const lock_scope hold(settings_lock);
    return active_text(&cell_sim_cfg::pin);
}
const char* cellular_get_smscenter()
{
    const lock_scope hold(settings_lock);
    return active_text(&cell_sim_cfg::smsc);
}

// Held over both: a change of the settings rewrites the very texts that the slot points at.
void copy_sim_settings()
{
    const lock_scope hold(settings_lock);
    libgsm_set_pincode(active_text(&cell_sim_cfg::pin));
    libgsm_set_smscenter(active_text(&cell_sim_cfg::smsc));
}

} // namespace kelo

using namespace kelo;

int mobile_select_simcard(int sim)
{
    if (word_get(is_quectel) == 14)
        libgsm_set_simslot(sim);
    else
        gpio_select_simcard(sim);
    return 0;
}

int cellular_switch_simcard(void)
{
    return 0;
}

void sim_switch_flag_set(int value)
{
    word_set(sim_switch_flag, value);
}
