// What the host configures per SIM.
#include "api/api.h"


namespace
{
cell_sim_cfg slots[2]; // guarded by record_lock
}

struct cell_sim_cfg* cell_sim_config(int sim)
{
    return sim == 1 || sim == 2 ? &slots[sim - 1] : nullptr;
}
