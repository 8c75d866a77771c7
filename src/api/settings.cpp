// What the host configures: the working copy, the slot of each SIM and its texts, and the way of a
// change into them.
#include "api/api.h"

#include "support/diag.h"
#include "support/shell.h"
#include "support/sleeps.h"
#include "support/text.h"

#include <iterator>

// Written by init and kelo_set_cellular; read by the host alone.
cellular_setting g_cellSet = {};

// Written by the host's calls, read by the dialer thread at every pass.
int g_netWorkCardFlag = 0;

// Texts that the slot of SIM 1 points at; guarded by settings_lock.
char g_Apn[32] = {};
char g_Usr[32] = {};
char g_passWard[32] = {};
char g_Pin[32] = {};
char g_Auth[32] = {};

namespace kelo
{

// Written by set_5G_para, read by kelo_get_cellular.
int g_mode_no_service = 0;

// Written by set_attach_timeout; nothing reads it yet.
int attach_timeout = 50;

namespace
{

constexpr int attach_timeout_floor = 50;

// The working copy: written by the host's calls, read by the dialer at every dial and ping. Guarded
// by settings_lock.
cellular_setting g_startCellSet = {};

// Slots of SIM 1 and 2, guarded by settings_lock.
cell_sim_cfg slots[2];

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
    // mode  start  change  first command          second command
    {  1,    2,     2,      MODE_PREF("LTE"),      NR5G_DISABLE("0")},
    {  2,    4,     4,      MODE_PREF("WCDMA"),    NR5G_DISABLE("0")},
    {  3,    6,     0,      MODE_PREF("AUTO"),     NR5G_DISABLE("0")},
    {  4,    7,     7,      MODE_PREF("LTE:NR5G"), NR5G_DISABLE("1")},
    {  5,    8,     8,      MODE_PREF("NR5G"),     NR5G_DISABLE("2")},
};
constexpr net_mode_row automatic =
    {  0,    0,     0,      MODE_PREF("AUTO"),     NR5G_DISABLE("0")};
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
    const lock_scope hold(record_lock);
    const gsm_mobile* const rec = modem_record();
    return rec != nullptr && std::strcmp(rec->oper, "CHN-UNICOM") == 0;
}

const char* auth_text(int auth)
{
    constexpr const char* texts[] = {"none", "pap", "chap", "ms-chap", "ms-chapv2"};
    return auth >= 1 && auth < static_cast<int>(std::size(texts)) ? texts[auth] : texts[0];
}

const char* or_null(const char* text)
{
    return *text != '\0' ? text : nullptr;
}

bool fits(const char* what, const char* text, const char* otherwise)
{
    const std::size_t most = sizeof g_Usr - 1;
    if (std::strlen(text) <= most)
        return true;
    diag_plain("set_5G_para: %s of more than %zu characters, %s\n", what, most, otherwise);
    return false;
}

// The texts of the slot, by way of their narrower buffers. A PIN is not cut: each wrong one that
// the SIM gets to see brings it closer to its lock.
void fill_texts(const cellular_setting& wanted)
{
    text_set(g_Apn, wanted.apn);
    fits("user", wanted.user, "cut");
    text_set(g_Usr, wanted.user);
    text_set(g_passWard, wanted.password);
    text_set(g_Pin, fits("pin", wanted.pin, "left out") ? wanted.pin : "");
    text_set(g_Auth, auth_text(wanted.auth));
}

void fill_slot(const cellular_setting& wanted, int scan_code)
{
    const lock_scope hold(settings_lock);
    fill_texts(wanted);
    slots[0].scan_code = scan_code;
    slots[0].apn = or_null(g_Apn);
    slots[0].user = or_null(g_Usr);
    slots[0].password = or_null(g_passWard);
    slots[0].pin = or_null(g_Pin);
    slots[0].auth = g_Auth;
}

} // namespace

cellular_setting settings_cleaned(const cellular_setting& from)
{
    cellular_setting clean = from;
    text_set(clean.apn, from.apn);
    text_set(clean.user, from.user);
    text_set(clean.password, from.password);
    text_set(clean.pin, from.pin);
    text_set(clean.ping_target, from.ping_target);
    return clean;
}

cellular_setting start_settings_copy()
{
    const lock_scope hold(settings_lock);
    return g_startCellSet;
}

void settings_store(const cellular_setting& wanted)
{
    const lock_scope hold(settings_lock);
    g_cellSet = wanted;
    g_startCellSet = wanted;
}

void start_settings_store(const cellular_setting& wanted)
{
    const lock_scope hold(settings_lock);
    g_startCellSet = wanted;
}

void net_mode_to_scan_code(int net_mode)
{
    const lock_scope hold(settings_lock);
    slots[0].scan_code = net_mode_find(net_mode).start_code;
}

} // namespace kelo

using namespace kelo;

struct cell_sim_cfg* cell_sim_config(int sim)
{
    return sim == 1 || sim == 2 ? &slots[sim - 1] : nullptr;
}

struct cellular_setting* get_start_cellular_status(void)
{
    return &g_startCellSet;
}

void set_network_card_flag(int value)
{
    word_set(g_netWorkCardFlag, value);
}

void set_attach_timeout(int value)
{
    word_set(attach_timeout, value < attach_timeout_floor ? attach_timeout_floor : value);
}

void set_5G_para(const struct cellular_setting* settings, int apply_attach)
{
    word_set(g_mode_no_service, 0);
    if (settings == nullptr) {
        diag_plain("set_5G_para pass parameter error!!!!\n");
        return;
    }
    const cellular_setting wanted = settings_cleaned(*settings);
    const bool unserved = wanted.net_mode == 2 && !operator_serves_3g();
    const net_mode_row& mode = unserved ? automatic : net_mode_find(wanted.net_mode);
    fill_slot(wanted, mode.change_code);
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
