// Which commands each module's flows hold, and in which order. One table per flow; a row of it
// names the steps of the modules whose key it is. Rows are tried in order, so a longer key stands
// ahead of the shorter one that it begins with.

#include "modules/modules.h"

#include <iterator>

namespace kelo
{

namespace
{

// Steps as {seq, id}. A seq is a position, not a count: the gaps leave room for custom commands.
// clang-format off

// EC, EG and EP modules
constexpr flow_step start_ec[] = {
    {40, 64}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {49, 12}, {53, 105}, {54, 50}, {57, 14},
    {60, 47}, {92, 29}, {94, 32},
};
constexpr flow_step reload_ec[] = {
    {1, 49}, {2, 48}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {54, 105}, {55, 50}, {57, 14},
    {60, 47},
};

// EC25V
constexpr flow_step start_ec25v[] = {
    {33, 10}, {36, 12}, {39, 1}, {40, 64}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {50, 25},
    {51, 35}, {52, 36}, {54, 54}, {55, 55}, {57, 14}, {60, 47}, {63, 17}, {66, 43}, {69, 19},
    {72, 20}, {75, 21}, {78, 22}, {81, 57}, {90, 28}, {91, 24}, {92, 29}, {93, 30}, {94, 32},
    {95, 27},
};
constexpr flow_step reload_ec25v[] = {
    {1, 49}, {2, 48}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {54, 54}, {55, 55}, {57, 14},
    {60, 47}, {63, 17}, {66, 43}, {69, 19}, {72, 20}, {75, 21}, {78, 22}, {81, 57}, {84, 25},
    {90, 28}, {91, 24}, {92, 29}, {93, 30}, {94, 32}, {95, 27},
};

// UC15 and UC20
constexpr flow_step start_uc[] = {
    {33, 10}, {39, 12}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {51, 35}, {54, 36}, {57, 14},
    {60, 47}, {63, 17}, {66, 43}, {69, 19}, {72, 20}, {75, 21}, {78, 22}, {81, 57}, {84, 25},
    {90, 28}, {91, 24}, {92, 29}, {93, 30}, {94, 32}, {95, 27},
};
constexpr flow_step reload_uc[] = {
    {1, 49}, {2, 48}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {57, 14}, {60, 47}, {63, 17},
    {66, 43}, {69, 19}, {72, 20}, {75, 21}, {78, 22}, {81, 57}, {84, 25}, {90, 28}, {91, 24},
    {92, 29}, {93, 30}, {94, 32}, {95, 27},
};

// E9720 and U9300C
constexpr flow_step start_e9720[] = {
    {33, 10}, {36, 12}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {50, 25}, {51, 35}, {52, 36},
    {54, 50}, {55, 51}, {56, 53}, {57, 14}, {60, 47}, {63, 17}, {66, 43}, {69, 19}, {72, 20},
    {75, 21}, {78, 22}, {81, 57}, {90, 28}, {91, 24}, {92, 29}, {93, 30}, {94, 32}, {95, 31},
    {96, 32}, {97, 27},
};
constexpr flow_step reload_e9720[] = {
    {1, 49}, {2, 48}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {57, 14}, {60, 47}, {63, 17},
    {66, 43}, {69, 19}, {72, 20}, {75, 21}, {78, 22}, {81, 57}, {84, 25}, {90, 28}, {91, 24},
    {92, 29}, {93, 30}, {94, 32}, {95, 31}, {96, 32}, {97, 27},
};

// LE910
constexpr flow_step start_le910[] = {
    {33, 10}, {39, 12}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {51, 35}, {60, 47}, {63, 17},
    {66, 43}, {69, 19}, {72, 20}, {75, 21}, {78, 22}, {81, 57}, {90, 28}, {91, 24}, {92, 29},
    {93, 30}, {94, 32}, {95, 27},
};
constexpr flow_step reload_le910[] = {
    {1, 49}, {2, 48}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {57, 14}, {60, 47}, {92, 29},
    {93, 30}, {94, 32}, {95, 27},
};

// V1.0.1-B7
constexpr flow_step start_v101b7[] = {
    {33, 10}, {39, 12}, {40, 1}, {42, 13}, {43, 56}, {45, 34}, {63, 17}, {66, 43}, {69, 19},
    {92, 29}, {93, 30}, {94, 32}, {95, 27},
};
constexpr flow_step reload_v101b7[] = {
    {1, 49}, {2, 48}, {42, 13}, {43, 56}, {45, 34}, {66, 43}, {92, 29}, {93, 30}, {94, 32},
    {95, 27},
};

// RM and RG modules
constexpr flow_step start_rm[] = {
    {30, 73}, {33, 10}, {36, 12}, {39, 1}, {40, 64}, {42, 13}, {43, 56}, {45, 34}, {48, 15},
    {54, 50}, {55, 53}, {57, 14}, {60, 47}, {63, 17}, {66, 18}, {69, 19}, {72, 20}, {78, 22},
    {79, 57}, {80, 65}, {81, 66}, {82, 67}, {83, 68}, {84, 69}, {85, 70}, {86, 71}, {87, 18},
    {90, 28}, {91, 24}, {92, 46}, {93, 30}, {94, 32}, {95, 27}, {96, 72},
};
constexpr flow_step reload_rm[] = {
    {1, 73}, {2, 49}, {3, 48}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {54, 50}, {55, 53},
    {57, 14}, {60, 47}, {63, 17}, {66, 18}, {69, 19}, {72, 20}, {78, 22}, {81, 57}, {90, 28},
    {91, 24}, {92, 46}, {93, 30}, {94, 32}, {95, 27}, {96, 72},
};

// MH5000-31
constexpr flow_step start_mh5000[] = {
    {33, 10}, {36, 12}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {50, 38}, {54, 50}, {57, 14},
    {60, 47}, {63, 17}, {66, 78}, {69, 19}, {75, 21}, {78, 22}, {79, 57}, {82, 67}, {86, 30},
    {90, 32}, {91, 24}, {92, 79}, {93, 31}, {94, 32}, {95, 27},
};
constexpr flow_step reload_mh5000[] = {
    {1, 49}, {2, 48}, {42, 13}, {43, 56}, {45, 34}, {48, 15}, {54, 50}, {57, 14}, {60, 47},
    {63, 17}, {66, 78}, {69, 19}, {75, 21}, {78, 22}, {81, 57}, {84, 38}, {86, 30}, {90, 32},
    {91, 24}, {92, 79}, {93, 31}, {94, 32}, {95, 27},
};

// Every module sends its messages in the same way.
constexpr flow_step sms_text_steps[] = {{1, 58}, {2, 22}, {3, 62}};
constexpr flow_step sms_pdu_steps[] = {{1, 59}, {2, 61}, {3, 63}};

template <int count> constexpr model_flow flow(const char* key, const flow_step (&steps)[count])
{
    return {key, count, steps};
}

constexpr model_flow start_rows[] = {
    flow("EC20CE",    start_ec),
    flow("EC20C",     start_ec),
    flow("EC20F",     start_ec),
    flow("EC21E",     start_ec),
    flow("EC21V",     start_ec),
    flow("EC21AUTL",  start_ec),
    flow("EC21AUT",   start_ec),
    flow("EC21AU",    start_ec),
    flow("EC21A",     start_ec),
    flow("EC21J",     start_ec),
    flow("EC21KT",    start_ec),
    flow("EC21CL",    start_ec),
    flow("EC25AU",    start_ec),
    flow("EC25AF",    start_ec),
    flow("EC25A",     start_ec),
    flow("EC25E",     start_ec),
    flow("EC25J",     start_ec),
    flow("EC25V",     start_ec25v),
    flow("EG25",      start_ec),
    flow("EP06",      start_ec),
    flow("EG95",      start_ec),
    flow("UC20",      start_uc),
    flow("UC15",      start_uc),
    flow("E9720",     start_e9720),
    flow("U9300C",    start_e9720),
    flow("LE910",     start_le910),
    flow("V1.0.1-B7", start_v101b7),
    flow("RM500Q",    start_rm),
    flow("RM510Q",    start_rm),
    flow("RG500Q",    start_rm),
    flow("RG510Q",    start_rm),
    flow("MH5000-31", start_mh5000),
};

constexpr model_flow reload_rows[] = {
    flow("EC20CE",    reload_ec),
    flow("EC20C",     reload_ec),
    flow("EC20F",     reload_ec),
    flow("EC21E",     reload_ec),
    flow("EC21V",     reload_ec),
    flow("EC21AUTL",  reload_ec),
    flow("EC21AUT",   reload_ec),
    flow("EC21AU",    reload_ec),
    flow("EC21A",     reload_ec),
    flow("EC21J",     reload_ec),
    flow("EC21KT",    reload_ec),
    flow("EC21CL",    reload_ec),
    flow("EC25AU",    reload_ec),
    flow("EC25AF",    reload_ec),
    flow("EC25A",     reload_ec),
    flow("EC25E",     reload_ec),
    flow("EC25J",     reload_ec),
    flow("EC25V",     reload_ec25v),
    flow("EG25",      reload_ec),
    flow("EG95",      reload_ec),
    flow("EP06",      reload_ec),
    flow("UC20",      reload_uc),
    flow("UC15",      reload_uc),
    flow("E9720",     reload_e9720),
    flow("U9300C",    reload_e9720),
    flow("LE910",     reload_le910),
    flow("V1.0.1-B7", reload_v101b7),
    flow("RM500Q",    reload_rm),
    flow("RM510Q",    reload_rm),
    flow("RG500Q",    reload_rm),
    flow("RG510Q",    reload_rm),
    flow("MH5000-31", reload_mh5000),
};

constexpr model_flow sms_text_rows[] = {
    flow("EC20CE",    sms_text_steps),
    flow("EC20C",     sms_text_steps),
    flow("EC20F",     sms_text_steps),
    flow("EC21E",     sms_text_steps),
    flow("EC21V",     sms_text_steps),
    flow("EC21AUTL",  sms_text_steps),
    flow("EC21AUT",   sms_text_steps),
    flow("EC21AU",    sms_text_steps),
    flow("EC21A",     sms_text_steps),
    flow("EC21J",     sms_text_steps),
    flow("EC21KT",    sms_text_steps),
    flow("EC21CL",    sms_text_steps),
    flow("EC25AU",    sms_text_steps),
    flow("EC25AF",    sms_text_steps),
    flow("EC25A",     sms_text_steps),
    flow("EC25E",     sms_text_steps),
    flow("EC25J",     sms_text_steps),
    flow("EC25V",     sms_text_steps),
    flow("UC20",      sms_text_steps),
    flow("UC15",      sms_text_steps),
    flow("E9720",     sms_text_steps),
    flow("U9300C",    sms_text_steps),
    flow("LE910",     sms_text_steps),
    flow("V1.0.1-B7", sms_text_steps),
    flow("RM500Q",    sms_text_steps),
    flow("RM510Q",    sms_text_steps),
    flow("RG500Q",    sms_text_steps),
    flow("RG510Q",    sms_text_steps),
    flow("MH5000-31", sms_text_steps),
};

constexpr model_flow sms_pdu_rows[] = {
    flow("EC20CE",    sms_pdu_steps),
    flow("EC20C",     sms_pdu_steps),
    flow("EC20F",     sms_pdu_steps),
    flow("EC21E",     sms_pdu_steps),
    flow("EC21V",     sms_pdu_steps),
    flow("EC21AUTL",  sms_pdu_steps),
    flow("EC21AUT",   sms_pdu_steps),
    flow("EC21AU",    sms_pdu_steps),
    flow("EC21A",     sms_pdu_steps),
    flow("EC21J",     sms_pdu_steps),
    flow("EC21KT",    sms_pdu_steps),
    flow("EC21CL",    sms_pdu_steps),
    flow("EC25AU",    sms_pdu_steps),
    flow("EC25AF",    sms_pdu_steps),
    flow("EC25A",     sms_pdu_steps),
    flow("EC25E",     sms_pdu_steps),
    flow("EC25J",     sms_pdu_steps),
    flow("EC25V",     sms_pdu_steps),
    flow("UC20",      sms_pdu_steps),
    flow("UC15",      sms_pdu_steps),
    flow("E9720",     sms_pdu_steps),
    flow("U9300C",    sms_pdu_steps),
    flow("LE910",     sms_pdu_steps),
    flow("V1.0.1-B7", sms_pdu_steps),
    flow("RM500Q",    sms_pdu_steps),
    flow("RM510Q",    sms_pdu_steps),
    flow("RG500Q",    sms_pdu_steps),
    flow("RG510Q",    sms_pdu_steps),
    flow("MH5000-31", sms_pdu_steps),
};

// clang-format on

template <int count> constexpr model_table table(const model_flow (&rows)[count])
{
    return {rows, count};
}

} // namespace

const model_table flow_start_models = table(start_rows);
const model_table flow_reload_models = table(reload_rows);
const model_table flow_sms_text_models = table(sms_text_rows);
const model_table flow_sms_pdu_models = table(sms_pdu_rows);

const modem_network modem_network_table[] = {
    {"SIM900", "GSM", 0},     {"SIM800", "GSM", 5},     {"M35", "GSM", 2},
    {"M95", "GSM", 3},        {"SIM2000", "CDMA", 4},   {"SIM5215", "UMTS", 1},
    {"UC15", "UMTS", 6},      {"UC20", "UMTS", 7},      {"EC200T", "LTE", 17},
    {"EC20", "LTE", 8},       {"EC21", "LTE", 9},       {"EC25", "LTE", 10},
    {"U9300C", "LTE", 11},    {"LE910", "LTE", 12},     {"EP06", "LTE", 13},
    {"EG25", "LTE", 14},      {"V1.0.1-B7", "LTE", 15}, {"E9720", "LTE", 16},
    {"RM500Q", "LTE", 18},    {"RM510Q", "LTE", 18},    {"RG500Q", "LTE", 18},
    {"RG510Q", "LTE", 18},    {"ML303", "LTE", 19},     {"F03X", "LTE", 20},
    {"GM800", "LTE", 21},     {"T99W175", "LTE", 22},   {"FM150", "LTE", 23},
    {"MH5000-31", "LTE", 24}, {"AI-NR11", "LTE", 25},   {"N510M", "LTE", 26},
    {"EG95", "LTE", 27},
};
const std::size_t modem_network_rows = std::size(modem_network_table);

} // namespace kelo
