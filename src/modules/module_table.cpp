// SPDX-License-Identifier: MIT
// The modules, a row each: what they are asked, in which order, and how they want to be told.

#include "modules/modules.h"

#include "modules/commands.h"
#include "support/rows.h"
#include "support/text.h"

namespace kelo
{

namespace
{

using namespace command;

// Steps as {seq, command}. A seq is a position, not a count: the gaps leave room for the commands
// of a host.
// clang-format off

// EC, EG and EP modules
constexpr flow_step start_ec[] = {
    {40, mbn_autosel}, {42, cpin}, {43, send_pin}, {45, cimi}, {48, get_iccid}, {49, cgsn},
    {53, get_mbn_list}, {54, set_apn}, {57, get_network}, {60, network_auto}, {92, cgreg},
    {94, cops},
};
constexpr flow_step reload_ec[] = {
    {1, cfun_mini}, {2, cfun_full}, {42, cpin}, {43, send_pin}, {45, cimi}, {48, get_iccid},
    {54, get_mbn_list}, {55, set_apn}, {57, get_network}, {60, network_auto},
};

// EC25V
constexpr flow_step start_ec25v[] = {
    {33, cgmi}, {36, cgsn}, {39, qgps_1}, {40, mbn_autosel}, {42, cpin}, {43, send_pin}, {45, cimi},
    {48, get_iccid}, {50, get_band}, {51, cband}, {52, set_net_seq}, {54, set_cont1},
    {55, set_cont3}, {57, get_network}, {60, network_auto}, {63, clip_enabled}, {66, cgreg_2},
    {69, sms_set_charset}, {72, mode}, {75, cnum}, {78, gsm}, {81, set_smsc}, {90, set_net_urc},
    {91, check_network}, {92, cgreg}, {93, cops_long}, {94, cops}, {95, csq},
};
constexpr flow_step reload_ec25v[] = {
    {1, cfun_mini}, {2, cfun_full}, {42, cpin}, {43, send_pin}, {45, cimi}, {48, get_iccid},
    {54, set_cont1}, {55, set_cont3}, {57, get_network}, {60, network_auto}, {63, clip_enabled},
    {66, cgreg_2}, {69, sms_set_charset}, {72, mode}, {75, cnum}, {78, gsm}, {81, set_smsc},
    {84, get_band}, {90, set_net_urc}, {91, check_network}, {92, cgreg}, {93, cops_long},
    {94, cops}, {95, csq},
};

// UC15 and UC20
constexpr flow_step start_uc[] = {
    {33, cgmi}, {39, cgsn}, {42, cpin}, {43, send_pin}, {45, cimi}, {48, get_iccid}, {51, cband},
    {54, set_net_seq}, {57, get_network}, {60, network_auto}, {63, clip_enabled}, {66, cgreg_2},
    {69, sms_set_charset}, {72, mode}, {75, cnum}, {78, gsm}, {81, set_smsc}, {84, get_band},
    {90, set_net_urc}, {91, check_network}, {92, cgreg}, {93, cops_long}, {94, cops}, {95, csq},
};
constexpr flow_step reload_uc[] = {
    {1, cfun_mini}, {2, cfun_full}, {42, cpin}, {43, send_pin}, {45, cimi}, {48, get_iccid},
    {57, get_network}, {60, network_auto}, {63, clip_enabled}, {66, cgreg_2}, {69, sms_set_charset},
    {72, mode}, {75, cnum}, {78, gsm}, {81, set_smsc}, {84, get_band}, {90, set_net_urc},
    {91, check_network}, {92, cgreg}, {93, cops_long}, {94, cops}, {95, csq},
};

// E9720 and U9300C
constexpr flow_step start_e9720[] = {
    {33, cgmi}, {36, cgsn}, {42, cpin}, {43, send_pin}, {45, cimi}, {48, get_iccid}, {50, get_band},
    {51, cband}, {52, set_net_seq}, {54, set_apn}, {55, set_user_pwd}, {56, active_cont},
    {57, get_network}, {60, network_auto}, {63, clip_enabled}, {66, cgreg_2}, {69, sms_set_charset},
    {72, mode}, {75, cnum}, {78, gsm}, {81, set_smsc}, {90, set_net_urc}, {91, check_network},
    {92, cgreg}, {93, cops_long}, {94, cops}, {95, cops_numeric}, {96, cops}, {97, csq},
};
constexpr flow_step reload_e9720[] = {
    {1, cfun_mini}, {2, cfun_full}, {42, cpin}, {43, send_pin}, {45, cimi}, {48, get_iccid},
    {57, get_network}, {60, network_auto}, {63, clip_enabled}, {66, cgreg_2}, {69, sms_set_charset},
    {72, mode}, {75, cnum}, {78, gsm}, {81, set_smsc}, {84, get_band}, {90, set_net_urc},
    {91, check_network}, {92, cgreg}, {93, cops_long}, {94, cops}, {95, cops_numeric}, {96, cops},
    {97, csq},
};

// LE910
constexpr flow_step start_le910[] = {
    {33, cgmi}, {39, cgsn}, {42, cpin}, {43, send_pin}, {45, cimi}, {48, get_iccid}, {51, cband},
    {60, network_auto}, {63, clip_enabled}, {66, cgreg_2}, {69, sms_set_charset}, {72, mode},
    {75, cnum}, {78, gsm}, {81, set_smsc}, {90, set_net_urc}, {91, check_network}, {92, cgreg},
    {93, cops_long}, {94, cops}, {95, csq},
};
constexpr flow_step reload_le910[] = {
    {1, cfun_mini}, {2, cfun_full}, {42, cpin}, {43, send_pin}, {45, cimi}, {48, get_iccid},
    {57, get_network}, {60, network_auto}, {92, cgreg}, {93, cops_long}, {94, cops}, {95, csq},
};

// V1.0.1-B7
constexpr flow_step start_v101b7[] = {
    {33, cgmi}, {39, cgsn}, {40, qgps_1}, {42, cpin}, {43, send_pin}, {45, cimi},
    {63, clip_enabled}, {66, cgreg_2}, {69, sms_set_charset}, {92, cgreg}, {93, cops_long},
    {94, cops}, {95, csq},
};
constexpr flow_step reload_v101b7[] = {
    {1, cfun_mini}, {2, cfun_full}, {42, cpin}, {43, send_pin}, {45, cimi}, {66, cgreg_2},
    {92, cgreg}, {93, cops_long}, {94, cops}, {95, csq},
};

// RM and RG modules
constexpr flow_step start_rm[] = {
    {30, sel_simslot}, {33, cgmi}, {36, cgsn}, {39, qgps_1}, {40, mbn_autosel}, {42, cpin},
    {43, send_pin}, {45, cimi}, {48, get_iccid}, {54, set_apn}, {55, active_cont},
    {57, get_network}, {60, network_auto}, {63, clip_enabled}, {66, creg_2}, {69, sms_set_charset},
    {72, mode}, {78, gsm}, {79, set_smsc}, {80, clir_2}, {81, call_state_init}, {82, clvl_4},
    {83, audio_pcm_slave}, {84, qmic}, {85, qrxgain}, {86, set_volte}, {87, creg_2},
    {90, set_net_urc}, {91, check_network}, {92, creg}, {93, cops_long}, {94, cops}, {95, csq},
    {96, get_servingcell},
};
constexpr flow_step reload_rm[] = {
    {1, sel_simslot}, {2, cfun_mini}, {3, cfun_full}, {42, cpin}, {43, send_pin}, {45, cimi},
    {48, get_iccid}, {54, set_apn}, {55, active_cont}, {57, get_network}, {60, network_auto},
    {63, clip_enabled}, {66, creg_2}, {69, sms_set_charset}, {72, mode}, {78, gsm}, {81, set_smsc},
    {90, set_net_urc}, {91, check_network}, {92, creg}, {93, cops_long}, {94, cops}, {95, csq},
    {96, get_servingcell},
};

// MH5000-31
constexpr flow_step start_mh5000[] = {
    {33, cgmi}, {36, cgsn}, {42, cpin}, {43, send_pin}, {45, cimi}, {48, get_iccid},
    {50, get_band_unread}, {54, set_apn}, {57, get_network}, {60, network_auto}, {63, clip_enabled},
    {66, cereg_2}, {69, sms_set_charset}, {75, cnum}, {78, gsm}, {79, set_smsc}, {82, clvl_4},
    {86, cops_long}, {90, cops}, {91, check_network}, {92, cereg}, {93, cops_numeric}, {94, cops},
    {95, csq},
};
constexpr flow_step reload_mh5000[] = {
    {1, cfun_mini}, {2, cfun_full}, {42, cpin}, {43, send_pin}, {45, cimi}, {48, get_iccid},
    {54, set_apn}, {57, get_network}, {60, network_auto}, {63, clip_enabled}, {66, cereg_2},
    {69, sms_set_charset}, {75, cnum}, {78, gsm}, {81, set_smsc}, {84, get_band_unread},
    {86, cops_long}, {90, cops}, {91, check_network}, {92, cereg}, {93, cops_numeric}, {94, cops},
    {95, csq},
};

// Every module sends its messages in the same way.
constexpr flow_step sms_text[] = {{1, send_sms_text_mode}, {2, gsm}, {3, send_sms_des}};
constexpr flow_step sms_pdu[] = {{1, send_sms_pdu_mode}, {2, ucs2}, {3, send_sms_len}};

// Of FLOW_START, FLOW_RELOAD, FLOW_SMS_TEXT and FLOW_SMS_PDU, in this order.
using steps = std::span<const flow_step>;
constexpr steps ec[] = {start_ec, reload_ec, sms_text, sms_pdu};
constexpr steps ec_mute[] = {start_ec, reload_ec, {}, {}};
constexpr steps ec25v[] = {start_ec25v, reload_ec25v, sms_text, sms_pdu};
constexpr steps uc[] = {start_uc, reload_uc, sms_text, sms_pdu};
constexpr steps e9720[] = {start_e9720, reload_e9720, sms_text, sms_pdu};
constexpr steps le910[] = {start_le910, reload_le910, sms_text, sms_pdu};
constexpr steps v101b7[] = {start_v101b7, reload_v101b7, sms_text, sms_pdu};
constexpr steps rm[] = {start_rm, reload_rm, sms_text, sms_pdu};
constexpr steps mh5000[] = {start_mh5000, reload_mh5000, sms_text, sms_pdu};

constexpr mode_value u9300c_values[] = {{0, "2"}, {1, "3"}, {2, "7"}, {3, "5"}};
constexpr mode_value le910_values[] = {{0, "25"}, {1, "12"}, {2, "22"}, {3, "28"}};
constexpr mode_value rm_values[] = {
    {0, "AUTO"}, {1, "AUTO"}, {2, "WCDMA"}, {3, "LTE"}, {9, "LTE:NR5G", "NR5G"}, {10, "NR5G"},
};
constexpr mode_value mh5000_values[] = { // whole commands
    {0,  "AT^SYSCFGEX=\"030802\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,,"},
    {2,  "AT^SYSCFGEX=\"02\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,,"},
    {3,  "AT^SYSCFGEX=\"03\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,,"},
    {9,  "AT^C5GOPTION=0,1,0", "AT^C5GOPTION=1,0,1"},
    {10, "AT^C5GOPTION=1,0,1"},
};
constexpr mode_values u9300c_modes = {u9300c_values, "", true};
constexpr mode_values le910_modes = {le910_values, "", true};
constexpr mode_values rm_modes = {rm_values, "AUTO", false};
constexpr mode_values mh5000_modes = {mh5000_values, "", false};

// A module is added by a row, or by several where variants share a model text: what a row leaves
// out is looked for in the others. The first row that fits decides, so a longer key stands ahead of
// the shorter one that it begins with.
struct module_row {
    const char* key;

    // The key is looked for in the answer to AT+CGMM, at this place in the order, from 1.
    signed char place = 0;

    // Of a revision that begins with the key, or a model that the key begins with. For one flow,
    // rows without steps of it are passed over, and the order of all the others counts.
    const steps* flows = nullptr;

    // In hexadecimal: GSM and WCDMA, LTE, TD-SCDMA. That of a model counts where no row fits the
    // revision.
    const char* revision_mask = nullptr;
    const char* model_mask = nullptr;

    // Of a model that begins with the key.
    const mode_values* modes = nullptr;
    apn_form apn = apn_form::context;
    const char* net_sequence = nullptr;

    char network[5] = "LTE"; // of the model that is the key
};

constexpr module_row module_table[] = {
    {.key = "EC20",      .place = 2},
    {.key = "EC20CE",    .flows = ec,      .revision_mask = "493,1e000000085,21"},
    {.key = "EC20C",     .flows = ec,      .revision_mask = "493,1e000000085,21"},
    {.key = "EC20F",     .flows = ec},
    {.key = "EC21",      .place = 3},
    {.key = "EC21E",     .flows = ec,      .revision_mask = "d3,800d5,0"},
    {.key = "EC21V",     .flows = ec,      .revision_mask = "0,1008,0"},
    {.key = "EC21AUTL",  .flows = ec,      .revision_mask = "0,8000044,0"},
    {.key = "EC21AUT",   .flows = ec,      .revision_mask = "50,8000055,0"},
    {.key = "EC21AU",    .flows = ec,      .revision_mask = "ff,80080000df,0"},
    {.key = "EC21A",     .flows = ec,      .revision_mask = "260,80a,0"},
    {.key = "EC21J",     .flows = ec,      .revision_mask = "0,2060085,0"},
    {.key = "EC21KT",    .flows = ec,      .revision_mask = "0,d5,0"},
    {.key = "EC21KL",                      .revision_mask = "0,d5,0"},
    {.key = "EC21CL",    .flows = ec,      .revision_mask = "0,15,0"},
    {.key = "EC25",      .place = 4},
    {.key = "EC25AU",    .flows = ec,      .revision_mask = "ff,80080000df,0"},
    {.key = "EC25AF",    .flows = ec,      .revision_mask = "260,42000000000000381a,0"},
    {.key = "EC25A",     .flows = ec,      .revision_mask = "260,80a,0"},
    {.key = "EC25E",     .flows = ec,      .revision_mask = "d3,1a0000800d5,0"},
    {.key = "EC25J",     .flows = ec,      .revision_mask = "190,10002060085,0"},
    {.key = "EC25V",     .flows = ec25v,   .revision_mask = "0,1008,0"},

    // A reload tries EG95 ahead of EP06, which cannot be seen: they walk the same steps.
    {.key = "EG25",      .place = 5,  .flows = ec_mute},
    {.key = "EG25G",                       .revision_mask = "3ff,1e00b0e18df,0"},
    {.key = "EP06",      .place = 6,  .flows = ec_mute},
    {.key = "EP06APAC",                    .revision_mask = "fff0,1e0021600d5,20"},
    {.key = "EP06A",                       .revision_mask = "260,2000001003301185a,0"},
    {.key = "EP06E",                       .revision_mask = "4d0,1a0080800d5,0"},
    {.key = "EP06LA",                      .revision_mask = "6e0,80800de,0"},
    {.key = "EG95",      .place = 12, .flows = ec_mute, .model_mask = "260,300181a,0"},

    {.key = "UC20",      .place = 11, .flows = uc,      .network = "UMTS"},
    {.key = "UC15",      .place = 10, .flows = uc,      .network = "UMTS"},
    {.key = "E9720",     .place = 1,  .flows = e9720,   .modes = &u9300c_modes, .apn = apn_form::name,
                         .net_sequence = "17"},
    {.key = "U9300C",    .place = 8,  .flows = e9720,   .model_mask = "896,1272,131072",
                         .modes = &u9300c_modes, .apn = apn_form::name, .net_sequence = "17"},
    {.key = "LE910",     .place = 9,  .flows = le910,   .modes = &le910_modes},
    {.key = "V1.0.1-B7", .place = 18, .flows = v101b7},
    {.key = "RM500",     .place = 13},
    {.key = "RM500Q",    .flows = rm,      .modes = &rm_modes},
    {.key = "RM510",     .place = 14},
    {.key = "RM510Q",    .flows = rm,      .modes = &rm_modes},
    {.key = "RG500",     .place = 15},
    {.key = "RG500Q",    .flows = rm,      .modes = &rm_modes},
    {.key = "RG510",     .place = 16},
    {.key = "RG510Q",    .flows = rm,      .modes = &rm_modes},
    {.key = "MH5000",    .place = 17, .modes = &mh5000_modes, .apn = apn_form::name_with_protocol},
    {.key = "MH5000-31", .flows = mh5000},
    {.key = "AI-NR11",   .modes = &mh5000_modes},
    {.key = "ML303",     .apn = apn_form::name},
    {.key = "Quectel_M35", .place = 7},
    {.key = "M35",       .network = "GSM"},  {.key = "M95",    .network = "GSM"},
    {.key = "SIM800",    .network = "GSM"},  {.key = "SIM900", .network = "GSM"},
    {.key = "SIM5215",   .network = "UMTS"}, {.key = "SIM2000", .network = "CDMA"},
    // LTE, and known by no more than that.
    {.key = "EC200T"}, {.key = "F03X"}, {.key = "GM800"}, {.key = "T99W175"}, {.key = "FM150"}, {.key = "N510M"},
};
// clang-format on

// The column of the first row that has one, of those whose key begins the text.
template <class Column> Column first_of(const char* text, Column module_row::*column)
{
    const module_row* const row = find_row(module_table, [&](const module_row& tried) {
        return tried.*column != Column() && text_begins(text, tried.key);
    });
    return row == nullptr ? Column() : row->*column;
}

// Others say no more than a mask or a type of network.
bool is_name(const module_row& row)
{
    return row.place != 0 || row.flows != nullptr;
}

std::span<const flow_step> listed_steps(const char* model, const char* revision, int flow)
{
    if (flow < FLOW_START || flow > FLOW_SMS_PDU)
        return {};
    for (const module_row& row : module_table)
        if (row.flows != nullptr && !row.flows[flow - FLOW_START].empty() &&
            (text_begins(revision, row.key) || text_begins(row.key, model)))
            return row.flows[flow - FLOW_START];
    return {};
}

} // namespace

const cfg_file* module_brought(const char* model, const char* revision)
{
    const cfg_file* const file = module_file(model);
    return file != nullptr && listed_steps(model, revision, FLOW_START).empty() ? file : nullptr;
}

const char* module_alike(const char* model, const char* revision)
{
    const cfg_file* const file = module_brought(model, revision);
    return file != nullptr ? file->like : model;
}

std::span<const flow_step> module_steps(const char* model, const char* revision, int flow)
{
    const cfg_file* const file = module_brought(model, revision);
    return file != nullptr ? listed_steps(file->like, file->like, flow)
                           : listed_steps(model, revision, flow);
}

bool module_is_listed(const char* name)
{
    const module_row* const row = find_row(module_table, [&](const module_row& tried) {
        return is_name(tried) && std::strcmp(tried.key, name) == 0;
    });
    return row != nullptr && !listed_steps(name, name, FLOW_START).empty();
}

const char* module_named_with(const char* text)
{
    const module_row* const row = find_row(module_table, [&](const module_row& tried) {
        return is_name(tried) && text_begins(tried.key, text);
    });
    return row == nullptr ? nullptr : row->key;
}

const char* module_in(const char* line)
{
    const module_row* first = nullptr;
    for (const module_row& row : module_table)
        if (row.place != 0 && text_has(line, row.key) &&
            (first == nullptr || row.place < first->place))
            first = &row;
    return first == nullptr ? nullptr : text_find(line, first->key);
}

const char* module_network(const char* model)
{
    const module_row* const row = find_row(
        module_table, [&](const module_row& tried) { return std::strcmp(model, tried.key) == 0; });
    return row == nullptr ? "LTE" : row->network;
}

const char* module_band_mask(const char* model, const char* revision)
{
    const char* const mask = first_of(revision, &module_row::revision_mask);
    return mask != nullptr ? mask : first_of(model, &module_row::model_mask);
}

const mode_values* module_modes(const char* model)
{
    return first_of(model, &module_row::modes);
}

apn_form module_apn_form(const char* model)
{
    return first_of(model, &module_row::apn);
}

const char* module_net_sequence(const char* model)
{
    const char* const sequence = first_of(model, &module_row::net_sequence);
    return sequence != nullptr ? sequence : "00";
}

std::span<const flow_step> common_message_steps()
{
    return sms_pdu;
}

const char* module_key(std::size_t index)
{
    return index < std::size(module_table) ? module_table[index].key : nullptr;
}

} // namespace kelo
