// Pre-treatment of the two commands whose value depends on the module most: band mask and scan
// mode. A module is added by a row.
#include "modules/modules.h"

#include "support/text.h"
#include "support/words.h"

#include <cstdio>
#include <cstdlib>

namespace kelo
{

namespace
{

enum class band_key { revision, model };

struct band_row {
    band_key key;
    const char* prefix;
    const char* mask;
};

// The first row that begins the module's text decides: a prefix stands behind the longer ones that
// begin with it. Masks in hexadecimal: GSM and WCDMA, LTE, TD-SCDMA.
// clang-format off
constexpr band_row band_rows[] = {
    {band_key::revision, "EC25AU",   "ff,80080000df,0"},
    {band_key::revision, "EC25AF",   "260,42000000000000381a,0"},
    {band_key::revision, "EC25E",    "d3,1a0000800d5,0"},
    {band_key::revision, "EC25A",    "260,80a,0"},
    {band_key::revision, "EC25V",    "0,1008,0"},
    {band_key::revision, "EC25J",    "190,10002060085,0"},
    {band_key::revision, "EC20CE",   "493,1e000000085,21"},
    {band_key::revision, "EC20C",    "493,1e000000085,21"},
    {band_key::revision, "EC21E",    "d3,800d5,0"},
    {band_key::revision, "EC21V",    "0,1008,0"},
    {band_key::revision, "EC21AUTL", "0,8000044,0"},
    {band_key::revision, "EC21AUT",  "50,8000055,0"},
    {band_key::revision, "EC21AU",   "ff,80080000df,0"},
    {band_key::revision, "EC21A",    "260,80a,0"},
    {band_key::revision, "EC21J",    "0,2060085,0"},
    {band_key::revision, "EC21KT",   "0,d5,0"},
    {band_key::revision, "EC21KL",   "0,d5,0"},
    {band_key::revision, "EC21CL",   "0,15,0"},
    {band_key::revision, "EP06APAC", "fff0,1e0021600d5,20"},
    {band_key::revision, "EP06A",    "260,2000001003301185a,0"},
    {band_key::revision, "EP06E",    "4d0,1a0080800d5,0"},
    {band_key::revision, "EP06LA",   "6e0,80800de,0"},
    {band_key::revision, "EG25G",    "3ff,1e00b0e18df,0"},
    {band_key::model,    "U9300C",   "896,1272,131072"},
    {band_key::model,    "EG95",     "260,300181a,0"},
};
// clang-format on

const char* band_mask(const char* revision, const char* model)
{
    for (const band_row& row : band_rows) {
        if (text_begins(row.key == band_key::revision ? revision : model, row.prefix))
            return row.mask;
    }
    return nullptr;
}

bool command_has(const at_info* at, const char* text)
{
    return at->cmd != nullptr && text_has(at->cmd, text);
}

struct mode_value {
    int scanmode;
    const char* value;
    const char* nr_alone; // when set, cell_network_switch chooses: 0 value, 1 this one, else none
};

struct mode_model {
    const char* prefix;
    bool mapped; // the value is the number that the modem reports in currscanmode, too
    const mode_value* values;
    std::size_t count;
    const char* otherwise; // for the scan modes without a row
};

// clang-format off
constexpr mode_value u9300c_modes[] = {
    {0, "2", nullptr},
    {1, "3", nullptr},
    {2, "7", nullptr},
    {3, "5", nullptr},
};
constexpr mode_value le910_modes[] = {
    {0, "25", nullptr},
    {1, "12", nullptr},
    {2, "22", nullptr},
    {3, "28", nullptr},
};
constexpr mode_value rm_modes[] = {
    {0,  "AUTO",     nullptr},
    {1,  "AUTO",     nullptr},
    {2,  "WCDMA",    nullptr},
    {3,  "LTE",      nullptr},
    {9,  "LTE:NR5G", "NR5G"},
    {10, "NR5G",     nullptr},
};
constexpr mode_value mh5000_modes[] = { // whole commands
    {0,  "AT^SYSCFGEX=\"030802\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,,", nullptr},
    {2,  "AT^SYSCFGEX=\"02\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,,",     nullptr},
    {3,  "AT^SYSCFGEX=\"03\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,,",     nullptr},
    {9,  "AT^C5GOPTION=0,1,0", "AT^C5GOPTION=1,0,1"},
    {10, "AT^C5GOPTION=1,0,1", nullptr},
};
// clang-format on

template <std::size_t count>
constexpr mode_model model_row(const char* prefix, bool mapped, const mode_value (&values)[count],
                               const char* otherwise)
{
    return {prefix, mapped, values, count, otherwise};
}

// clang-format off
constexpr mode_model mode_models[] = {
    model_row("U9300C",  true,  u9300c_modes, ""),
    model_row("E9720",   true,  u9300c_modes, ""),
    model_row("LE910",   true,  le910_modes,  ""),
    model_row("RM500Q",  false, rm_modes,     "AUTO"),
    model_row("RM510Q",  false, rm_modes,     "AUTO"),
    model_row("RG500Q",  false, rm_modes,     "AUTO"),
    model_row("RG510Q",  false, rm_modes,     "AUTO"),
    model_row("MH5000",  false, mh5000_modes, ""),
    model_row("AI-NR11", false, mh5000_modes, ""),
};
// clang-format on

const mode_model* find_mode_model(const char* model)
{
    for (const mode_model& row : mode_models) {
        if (text_begins(model, row.prefix))
            return &row;
    }
    return nullptr;
}

// The value for a scan mode on such a model; empty where the model has none.
const char* mode_text(const mode_model& row, int scanmode)
{
    for (std::size_t i = 0; i < row.count; i++) {
        const mode_value& entry = row.values[i];
        if (entry.scanmode != scanmode)
            continue;
        if (entry.nr_alone == nullptr)
            return entry.value;
        const int choice = word_get(cell_network_switch);
        return choice == 0 ? entry.value : choice == 1 ? entry.nr_alone : "";
    }
    return row.otherwise;
}

} // namespace

int cband_pre_treat(gsm_mobile* rec, at_info* at)
{
    char revision[sizeof rec->revision];
    char model[sizeof rec->model];
    char reported[128];
    lock_scope hold(record_lock);
    text_set(revision, rec->revision);
    text_set(model, rec->model);
    std::snprintf(reported, sizeof reported, ",%s,%s,%s", rec->band_gsm, rec->band_lte,
                  rec->band_tds);
    hold.release();

    const char* const mask = band_mask(revision, model);
    if (mask == nullptr)
        return general_pre_treat(rec, at);
    at_fill(at, "$BAND", mask);
    // The mask stands behind a comma in some modules' commands, behind the equals sign in others.
    bool has_it = command_has(at, reported);
    reported[0] = '=';
    has_it = has_it || command_has(at, reported);
    if (has_it)
        at_set_flags(at, AT_FLAG_SKIP);
    return 0;
}

int netmode_pre_treat(gsm_mobile* rec, at_info* at)
{
    char model[sizeof rec->model];
    lock_scope hold(record_lock);
    text_set(model, rec->model);
    const int wanted = rec->scanmode;
    const int current = rec->currscanmode;
    hold.release();

    char value[64];
    int mapped = -1;
    const mode_model* const row = find_mode_model(model);
    if (row != nullptr) {
        text_set(value, mode_text(*row, wanted));
        if (row->mapped && *value != '\0')
            mapped = std::atoi(value);
    } else {
        std::snprintf(value, sizeof value, "%d", wanted);
    }
    at_fill(at, "$MODE", value);
    if (wanted == current || mapped == current)
        at_set_flags(at, AT_FLAG_SKIP);
    return 0;
}

} // namespace kelo
