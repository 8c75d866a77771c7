// SPDX-License-Identifier: MIT
// What the host configures: the library's two copies of its settings, the slot of each SIM with its
// texts, and the way of the active slot into the modem record.

#include "core/core.h"
#include "support/diag.h"
#include "support/text.h"

#include <iterator>

// Written by init and kelo_set_cellular; read by the host alone.
cellular_setting g_cellSet = {};

// Texts that the slot of SIM 1 points at; guarded by settings_lock.
char g_Apn[32] = {};
char g_Usr[32] = {};
char g_passWard[32] = {};
char g_Pin[32] = {};
char g_Auth[32] = {};

namespace kelo
{

namespace
{

// The working copy: written by the host's calls, read by the dialer at every dial and ping. Guarded
// by settings_lock.
cellular_setting g_startCellSet = {};

// Slots of SIM 1 and 2, guarded by settings_lock.
cell_sim_cfg slots[2];

struct scan_row {
    int scan_code;
    int scanmode;
};

constexpr scan_row scan_rows[] = {{KELO_SCAN_CODE_LTE, KELO_SCAN_LTE},
                                  {KELO_SCAN_CODE_WCDMA, KELO_SCAN_WCDMA},
                                  {KELO_SCAN_CODE_MODULE, KELO_SCAN_MODULE},
                                  {KELO_SCAN_CODE_SWITCHED, KELO_SCAN_SWITCHED},
                                  {KELO_SCAN_CODE_NR, KELO_SCAN_NR}};

int scanmode_of(int scan_code)
{
    for (const scan_row& row : scan_rows)
        if (row.scan_code == scan_code)
            return row.scanmode;
    return KELO_SCAN_AUTOMATIC;
}

const char* auth_text(int auth)
{
    static constexpr const char* texts[] = {"none", "pap", "chap", "ms-chap", "ms-chapv2"};
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

// One text of the active SIM; null also while the host has put something else than 1 or 2 there.
// The caller holds settings_lock.
const char* active_text(const char* cell_sim_cfg::*field)
{
    const cell_sim_cfg* const slot = cell_sim_config(word_get(selected_card));
    return slot != nullptr ? slot->*field : nullptr;
}

} // namespace

void sim_slot_fill(const cellular_setting& wanted, int scan_code)
{
    sim_slot_set_scan_code(scan_code);
    sim_slot_fill_texts(wanted);
}

void sim_slot_fill_texts(const cellular_setting& wanted)
{
    const lock_scope<settings_lock> hold;
    fill_texts(wanted);
    slots[0].apn = or_null(g_Apn);
    slots[0].user = or_null(g_Usr);
    slots[0].password = or_null(g_passWard);
    slots[0].pin = or_null(g_Pin);
    slots[0].auth = g_Auth;
}

void sim_slot_set_scan_code(int scan_code)
{
    const lock_scope<settings_lock> hold;
    slots[0].scan_code = scan_code;
}

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
    const lock_scope<settings_lock> hold;
    return g_startCellSet;
}

ping_settings start_ping_settings()
{
    ping_settings now;
    const lock_scope<settings_lock> hold;
    now.enable = g_startCellSet.ping_enable;
    text_set(now.target, g_startCellSet.ping_target);
    return now;
}

void settings_store(const cellular_setting& wanted)
{
    const lock_scope<settings_lock> hold;
    g_cellSet = wanted;
    g_startCellSet = wanted;
}

void start_settings_store(const cellular_setting& wanted)
{
    const lock_scope<settings_lock> hold;
    g_startCellSet = wanted;
}

int select_scanmode(int sim)
{
    const cell_sim_cfg* const slot = cell_sim_config(sim);
    if (slot == nullptr)
        return -1;
    lock_scope<settings_lock> hold;
    const int scan_code = slot->scan_code;
    hold.release();
    libgsm_set_scanmode(scanmode_of(scan_code));
    return 0;
}

const char* cellular_get_pincode()
{
    const lock_scope<settings_lock> hold;
    return active_text(&cell_sim_cfg::pin);
}
const char* cellular_get_smscenter()
{
    const lock_scope<settings_lock> hold;
    return active_text(&cell_sim_cfg::smsc);
}

// A card's PIN counts as a try on any other: no slot lends its own. The settings' PIN is that of
// SIM 1.
void pin_of_slot(int sim, char (&pin)[64])
{
    const lock_scope<settings_lock> hold;
    const cell_sim_cfg* const slot = cell_sim_config(sim);
    const char* const own = slot != nullptr ? slot->pin : nullptr;
    text_set(pin, own != nullptr ? own : sim == 1 ? g_startCellSet.pin : "");
}

// Held over both: a change of the settings rewrites the very texts that the slot points at.
void copy_sim_settings()
{
    const lock_scope<settings_lock> hold;
    libgsm_set_pincode(active_text(&cell_sim_cfg::pin));
    libgsm_set_smscenter(active_text(&cell_sim_cfg::smsc));
}

} // namespace kelo

using namespace kelo;

struct cell_sim_cfg* cell_sim_config(int sim)
{
    return sim == 1 || sim == 2 ? &slots[sim - 1] : nullptr;
}

int kelo_set_cellular_but_mode(const struct cellular_setting* settings)
{
    if (settings == nullptr) {
        diag_plain("%s pass parameter error\n", __func__);
        return 0;
    }
    if (refused_in_fork(__func__))
        return 0;
    const cellular_setting wanted = settings_cleaned(*settings);
    settings_store(wanted);
    set_network_card_flag(wanted.enable != 0 ? 1 : 0);
    sim_slot_fill_texts(wanted);
    set_attach_timeout(wanted.attach_timeout);
    return 1;
}

struct cellular_setting* get_start_cellular_status(void)
{
    return &g_startCellSet;
}
