// SPDX-License-Identifier: MIT
#include "host/state/network.h"

#include <kelo/questions.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <optional>
#include <span>
#include <vector>

namespace kelo_host
{

namespace
{

// ---- What is asked. Each answer is read, and costs less than a second.

constexpr const char* of_quectel[] = {"AT+CSQ", "AT+QNWINFO", "AT+QENG=\"servingcell\""};
constexpr const char* of_quectel_umts[] = {"AT+CSQ", "AT+QNWINFO"};
constexpr const char* of_longsung[] = {"AT+CSQ", "AT+PSRAT"};
constexpr const char* of_telit[] = {"AT+CSQ", "AT#RFSTS"};
constexpr const char* of_huawei[] = {"AT+CSQ", "AT^HCSQ?"};
constexpr const char* of_unisoc[] = {"AT+CSQ",
                                     "AT+COPS=3,2;+COPS?;+COPS=3,0"}; // names again behind it
constexpr const char* of_any[] = {"AT+CSQ"};

struct question_row {
    const char* model; // its beginning
    std::span<const char* const> commands;
};
constexpr question_row question_rows[] = {
    {"EC", of_quectel},  {"EG", of_quectel},      {"EP", of_quectel},       {"RM", of_quectel},
    {"RG", of_quectel},  {"UC", of_quectel_umts}, {"U9300C", of_longsung},  {"E9720", of_longsung},
    {"LE910", of_telit}, {"MH5000", of_huawei},   {"V1.0.1-B7", of_unisoc}, {"", of_any},
};

// ---- The serving cell

enum class generation { unknown, other, umts, lte, nr };

generation generation_of(int stem) // gsm_mobile::qeng_net_stem
{
    return stem == 9   ? generation::nr
           : stem == 3 ? generation::lte
           : stem == 2 ? generation::umts
           : stem == 1 ? generation::other
                       : generation::unknown;
}

generation generation_of(std::string_view act) // in the modem's words
{
    const auto has = [&](std::string_view part) { return act.find(part) != act.npos; };
    return has("5G") || has("NR")                                   ? generation::nr
           : has("LTE")                                             ? generation::lte
           : has("CDMA") || has("HS") || has("UTRA") || has("UMTS") ? generation::umts
           : act.empty()                                            ? generation::unknown
                                                                    : generation::other;
}

// <AcT>, 3GPP TS 27.007 10.1.20. The library reads two digits of +CEREG as hexadecimal.
const char* technology_of(int act)
{
    switch (act) {
    case 0:
        return "GSM";
    case 2:
        return "UTRAN";
    case 3:
        return "EDGE";
    case 4:
        return "HSDPA";
    case 5:
        return "HSUPA";
    case 6:
        return "HSPA";
    case 7:
    case 10: // on a 5G core
    case 0x10:
    case 13: // with NR beside it
    case 0x13:
        return "LTE";
    case 9:
        return "NB-IoT";
    case 11:
    case 0x11:
    case 12:
    case 0x12:
        return "NR";
    default:
        return nullptr;
    }
}

// Its report of the serving cell says less than the words of the modem, and comes oftener: the
// words count while they mean the same.
json_value technology(const gsm_mobile& mobile)
{
    const generation cell = generation_of(mobile.qeng_net_stem);
    const generation words = generation_of(std::string_view(mobile.act));
    if (cell > generation::other && words != cell)
        return cell == generation::nr ? "NR" : cell == generation::lte ? "LTE" : "UTRAN";
    if (words != generation::unknown)
        return printable(mobile.act);
    // A registration line that names the area names the technology too.
    const char* const name = mobile.lac[0] != '\0' ? technology_of(mobile.tech) : nullptr;
    return name != nullptr ? json_value(name) : json_value(nullptr);
}

// The band of a downlink channel of LTE, 3GPP TS 36.101 5.7.3: where its channels begin.
struct band_row {
    int first, band;
};
constexpr band_row lte_bands[] = {
    {0, 1},      {600, 2},    {1200, 3},   {1950, 4},   {2400, 5},   {2650, 6},   {2750, 7},
    {3450, 8},   {3800, 9},   {4150, 10},  {4750, 11},  {4950, 0},   {5010, 12},  {5180, 13},
    {5280, 14},  {5380, 0},   {5730, 17},  {5850, 18},  {6000, 19},  {6150, 20},  {6450, 21},
    {6600, 22},  {7400, 0},   {7500, 23},  {7700, 24},  {8040, 25},  {8690, 26},  {9040, 27},
    {9210, 28},  {9660, 29},  {9770, 30},  {9870, 31},  {9920, 32},  {10360, 0},  {36000, 33},
    {36200, 34}, {36350, 35}, {36950, 36}, {37550, 37}, {37750, 38}, {38250, 39}, {38650, 40},
    {39650, 41}, {41590, 42}, {43590, 43}, {45590, 44}, {46590, 45}, {46790, 46}, {54540, 47},
    {55240, 48}, {56740, 49}, {58240, 50}, {59090, 51}, {59140, 52}, {60140, 53}, {60255, 0},
    {65536, 65}, {66436, 66}, {67336, 67}, {67536, 68}, {67836, 69}, {68336, 70}, {68586, 71},
    {68936, 72}, {68986, 73}, {69036, 74}, {69466, 75}, {70316, 76}, {70366, 85}, {70546, 0},
};

json_value lte_band(int channel)
{
    const auto* const next =
        std::upper_bound(std::begin(lte_bands), std::end(lte_bands), channel,
                         [](int value, const band_row& row) { return value < row.first; });
    if (next == std::begin(lte_bands) || next[-1].band == 0)
        return nullptr;
    return "LTE BAND " + std::to_string(next[-1].band);
}

// Where mobile networks have codes of three digits throughout, they are written so from 0 on.
std::string plmn_text(int mcc, int mnc)
{
    const bool three_digits = mnc > 99 || mcc == 302 || (mcc >= 310 && mcc <= 316);
    char text[32];
    std::snprintf(text, sizeof text, three_digits ? "%03d%03d" : "%03d%02d", mcc, mnc);
    return text;
}

bool all_digits(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The library takes a code of six digits for a name.
bool is_code(std::string_view oper)
{
    return (oper.size() == 5 || oper.size() == 6) && all_digits(oper);
}

// ---- Names in UTF-16

// Scripts that do not stand in one name together; what stands in no row is in no name.
struct script_row {
    char32_t first, last;
    int script; // 0: with any
};
constexpr script_row scripts[] = {
    {0x20, 0x7e, 0},       {0xa0, 0x24f, 0},       {0x370, 0x3ff, 1},    {0x400, 0x52f, 2},
    {0x531, 0x58f, 3},     {0x590, 0x5ff, 4},      {0x600, 0x6ff, 5},    {0x750, 0x77f, 5},
    {0x8a0, 0x8ff, 5},     {0x900, 0x97f, 6},      {0x980, 0x9ff, 7},    {0xa00, 0xa7f, 8},
    {0xa80, 0xaff, 9},     {0xb00, 0xb7f, 10},     {0xb80, 0xbff, 11},   {0xc00, 0xc7f, 12},
    {0xc80, 0xcff, 13},    {0xd00, 0xd7f, 14},     {0xd80, 0xdff, 15},   {0xe00, 0xe7f, 16},
    {0xe80, 0xeff, 17},    {0xf00, 0xfff, 18},     {0x1000, 0x109f, 19}, {0x10a0, 0x10ff, 20},
    {0x1100, 0x11ff, 21},  {0x1200, 0x137f, 22},   {0x1780, 0x17ff, 23}, {0x1800, 0x18af, 24},
    {0x1e00, 0x1eff, 0},   {0x1f00, 0x1fff, 1},    {0x2010, 0x2027, 0},  {0x2030, 0x205e, 0},
    {0x20a0, 0x20bf, 0},   {0x2100, 0x214f, 0},    {0x3000, 0x303f, 0},  {0x3041, 0x30ff, 25},
    {0x3130, 0x318f, 21},  {0x3400, 0x4dbf, 25},   {0x4e00, 0x9fff, 25}, {0xac00, 0xd7a3, 21},
    {0xf900, 0xfaff, 25},  {0xfb50, 0xfdfb, 5},    {0xfe70, 0xfefc, 5},  {0xff01, 0xffef, 0},
    {0x1f300, 0x1faff, 0}, {0x20000, 0x3134f, 25},
};

std::optional<int> script_of(char32_t point)
{
    for (const script_row& row : scripts)
        if (point >= row.first && point <= row.last)
            return row.script;
    return std::nullopt;
}

void add_utf8(std::string& text, char32_t point)
{
    const auto add = [&](char32_t octet) { text += static_cast<char>(octet); };
    if (point < 0x80)
        return add(point);
    if (point < 0x800) {
        add(0xc0 | point >> 6);
    } else if (point < 0x10000) {
        add(0xe0 | point >> 12);
        add(0x80 | (point >> 6 & 0x3f));
    } else {
        add(0xf0 | point >> 18);
        add(0x80 | (point >> 12 & 0x3f));
        add(0x80 | (point >> 6 & 0x3f));
    }
    add(0x80 | (point & 0x3f));
}

// Of hexadecimal digits in one case; none where they are no UTF-16.
std::optional<std::u32string> points_of(std::string_view hex)
{
    const auto any = [&](char from, char to) {
        return std::any_of(hex.begin(), hex.end(), [=](char c) { return c >= from && c <= to; });
    };
    if (hex.size() < 8 || hex.size() % 4 != 0 || (any('a', 'f') && any('A', 'F')))
        return std::nullopt;
    std::u32string points;
    char32_t high = 0; // the first half of a pair
    for (size_t at = 0; at < hex.size(); at += 4) {
        unsigned unit = 0;
        const char* const end = hex.data() + at + 4;
        const auto [stop, error] = std::from_chars(hex.data() + at, end, unit, 16);
        const bool is_low = unit >= 0xdc00 && unit <= 0xdfff;
        if (error != std::errc{} || stop != end || is_low != (high != 0))
            return std::nullopt;
        if (is_low)
            points.push_back(0x10000 + ((high - 0xd800) << 10) + (unit - 0xdc00));
        high = unit >= 0xd800 && unit <= 0xdbff ? unit : 0;
        if (high == 0 && !is_low)
            points.push_back(unit);
    }
    return high == 0 ? std::optional(points) : std::nullopt;
}

} // namespace

std::string operator_name(const std::string& oper)
{
    const auto points = points_of(oper);
    if (!points)
        return oper;
    // Digits alone are a number, unless each four of them begin with 0, as letters do.
    const auto is_low = [](char32_t point) { return point < 0x1000; };
    if (all_digits(oper) && !std::all_of(points->begin(), points->end(), is_low))
        return oper;
    std::string name;
    int script = 0;
    for (const char32_t point : *points) {
        const auto own = script_of(point);
        if (!own || (*own != 0 && script != 0 && *own != script))
            return oper;
        script = *own != 0 ? *own : script;
        add_utf8(name, point);
    }
    return name;
}

void ask_for_figures(std::string_view model, int seconds, bool name)
{
    for (const question_row& row : question_rows) {
        if (!model.starts_with(row.model))
            continue;
        std::vector<const char*> commands(row.commands.begin(), row.commands.end());
        if (name)
            commands.push_back("AT+COPS?");
        kelo_set_questions(commands.data(), static_cast<int>(commands.size()), seconds);
        return;
    }
}

bool is_registered(const gsm_mobile& mobile)
{
    return mobile.reg_status == KELO_REGISTRATION_HOME ||
           mobile.reg_status == KELO_REGISTRATION_ROAMING;
}

void add_network(json_value& status, const gsm_mobile& mobile)
{
    const bool registered = is_registered(mobile);
    const generation cell_is = generation_of(mobile.qeng_net_stem);
    const bool served = cell_is > generation::other; // else its figures are of a cell before
    const bool measured = served && mobile.rsrp != KELO_RSRP_UNKNOWN;
    const bool detailed = measured && !std::string_view(mobile.model).starts_with("LE910");
    constexpr int unmeasured = -32768; // as the modem has it
    const auto figure = [](bool known, int value) {
        return known && value > unmeasured ? json_value(value) : json_value(nullptr);
    };

    status["operator"] = text_or_null(is_code(mobile.oper) ? "" : operator_name(mobile.oper));
    status["plmn"] = text_or_null(mobile.plmn[0] != '\0'     ? mobile.plmn
                                  : is_code(mobile.oper)     ? mobile.oper
                                  : served && mobile.mcc > 0 ? plmn_text(mobile.mcc, mobile.mnc)
                                                             : "");
    status["technology"] = technology(mobile);
    const bool was_5g = served && cell_is != generation::nr; // the record forgets it with a flow
    status["5g"] = was_5g || mobile.is5g == 0 ? json_value(nullptr)
                                              : json_value(mobile.is5g == 2 ? "SA" : "NSA");
    status["area"] = text_or_null(mobile.lac);
    char cell[20] = "";
    const long long whole = libgsm_get_cid64(); // a 5G cell has 36 bits
    if (registered && whole > 0)
        std::snprintf(cell, sizeof cell, "%llX", static_cast<unsigned long long>(whole));
    status["cell"] = text_or_null(cell);
    const int channel = mobile.channel != 0 ? mobile.channel : served ? mobile.earfcn : 0;
    status["band"] = mobile.band[0] != '\0'       ? json_value(printable(mobile.band))
                     : cell_is == generation::lte ? lte_band(channel)
                                                  : json_value(nullptr);
    status["channel"] = figure(channel > 0, channel);
    status["pcid"] = figure(detailed, mobile.pcid);
    status["rsrp_dbm"] = figure(measured, mobile.rsrp);
    status["rsrq_db"] = figure(measured && cell_is != generation::umts, mobile.rsrq);
    status["sinr"] = figure(detailed, mobile.sinr);
    status["signal_dbm"] = signal_dbm(mobile.rssi);
}

} // namespace kelo_host
