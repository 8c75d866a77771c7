// The settings of the active SIM on their way into the modem record.
#include "link/init.h"

#include "api/api.h"

namespace kelo
{

namespace
{

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

// One text of the active SIM; null while the host has put something else than 1 or 2 there.
const char* active_text(const char* cell_sim_cfg::*field)
{
    const cell_sim_cfg* const slot = cell_sim_config(word_get(selected_card));
    if (slot == nullptr)
        return nullptr;
    const lock_scope hold(record_lock);
    return slot->*field;
}

} // namespace

int select_scanmode(int sim)
{
    const cell_sim_cfg* const slot = cell_sim_config(sim);
    if (slot == nullptr)
        return -1;
    lock_scope hold(record_lock);
    const int scan_code = slot->scan_code;
    hold.release();
    libgsm_set_scanmode(scanmode_of(scan_code));
    return 0;
}

const char* cellular_get_pincode()
{
    return active_text(&cell_sim_cfg::pin);
}
const char* cellular_get_smscenter()
{
    return active_text(&cell_sim_cfg::smsc);
}

} // namespace kelo
