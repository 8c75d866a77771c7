// SPDX-License-Identifier: MIT
// New settings on their way into a library that runs.
#include "api/api.h"

#include "at/at.h"
#include "support/diag.h"
#include "support/shell.h"
#include "support/sleeps.h"

#include <cstring>

namespace kelo
{

namespace
{

// What a net_mode means. The scan code of the start is not always that of a change.
struct net_mode_row {
    int net_mode;
    int start_code;  // scan_code by net_mode_to_scan_code
    int change_code; // scan_code by set_5G_para
    const char* mode_pref;
    const char* nr5g_disable_mode;
};

#define MODE_PREF(mode) "AT+QNWPREFCFG= \"mode_pref\"," mode
#define NR5G_DISABLE(n) "AT+QNWPREFCFG=\"nr5g_disable_mode\"," n

// clang-format off
constexpr net_mode_row net_modes[] = {
    // mode               start                     change                    first command          second command
    {KELO_NET_LTE,        KELO_SCAN_CODE_LTE,       KELO_SCAN_CODE_LTE,       MODE_PREF("LTE"),       NR5G_DISABLE("0")},
    {KELO_NET_UMTS,       KELO_SCAN_CODE_WCDMA,     KELO_SCAN_CODE_WCDMA,     MODE_PREF("WCDMA"),     NR5G_DISABLE("0")},
    {KELO_NET_MODULE,     KELO_SCAN_CODE_MODULE,    KELO_SCAN_CODE_AUTOMATIC, MODE_PREF("AUTO"),      NR5G_DISABLE("0")},
    {KELO_NET_LTE_AND_NR, KELO_SCAN_CODE_SWITCHED,  KELO_SCAN_CODE_SWITCHED,  MODE_PREF("LTE:NR5G"),  NR5G_DISABLE("1")},
    {KELO_NET_NR,         KELO_SCAN_CODE_NR,        KELO_SCAN_CODE_NR,        MODE_PREF("NR5G"),      NR5G_DISABLE("2")},
};
constexpr net_mode_row automatic =
    {KELO_NET_AUTOMATIC,  KELO_SCAN_CODE_AUTOMATIC, KELO_SCAN_CODE_AUTOMATIC, MODE_PREF("AUTO"),      NR5G_DISABLE("0")};
// clang-format on

const net_mode_row& net_mode_find(int net_mode)
{
    for (const net_mode_row& row : net_modes)
        if (row.net_mode == net_mode)
            return row;
    return automatic;
}

// The one operator that still serves the 3G mode.
bool operator_serves_3g()
{
    const lock_scope<record_lock> hold;
    const gsm_mobile* const rec = modem_record();
    return rec != nullptr && std::strcmp(rec->oper, "CHN-UNICOM") == 0;
}

} // namespace

void net_mode_to_scan_code(int net_mode)
{
    sim_slot_set_scan_code(net_mode_find(net_mode).start_code);
}

} // namespace kelo

using namespace kelo;

void set_5G_para(const struct cellular_setting* settings, int apply_attach)
{
    word_set(g_mode_no_service, 0);
    if (settings == nullptr) {
        diag_plain("set_5G_para pass parameter error!!!!\n");
        return;
    }
    const cellular_setting wanted = settings_cleaned(*settings);
    const bool unserved = wanted.net_mode == KELO_NET_UMTS && !operator_serves_3g();
    const net_mode_row& mode = unserved ? automatic : net_mode_find(wanted.net_mode);
    sim_slot_fill(wanted, mode.change_code);
    word_set(g_mode_no_service, unserved ? 1 : 0);
    libgsm_send_at(mode.mode_pref);
    seconds_sleep(1);
    libgsm_send_at(mode.nr5g_disable_mode);
    if (apply_attach != 0) {
        set_attach_timeout(wanted.attach_timeout);
        set_cell_pdpdeact(1);
    }
}

int kelo_set_cellular(const struct cellular_setting* settings)
{
    if (settings == nullptr) {
        diag_plain("set5Gfunc pass parameter error\n");
        return 0;
    }
    if (refused_in_fork(__func__))
        return 0;
    const cellular_setting wanted = settings_cleaned(*settings);
    diag_plain("init 5G module，setstatus5G->enable = %d !!!\n\n", wanted.enable);
    settings_store(wanted);
    if (wanted.enable != 0) {
        set_network_card_flag(1);
        set_5G_para(&wanted, 1);
        return 1;
    }
    set_network_card_flag(0);
    shell_run_by_host("ifconfig wwan0 down");
    shell_run_by_host("ifconfig wwan0.1 down");
    return 1;
}
