// SPDX-License-Identifier: MIT
// Serving cell reports.
#include "handlers/parse.h"

#include "support/rows.h"
#include "support/scan.h"
#include "support/text.h"

#include <climits>
#include <iterator>
#include <span>

namespace kelo
{

namespace
{

struct stem_word {
    const char* needle;
    int stem;
};

// Tried from the top, the first that the line holds decides: "TD" stands in "TDSCDMA" too, and
// "CDMA" in "WCDMA".
constexpr stem_word stem_words[] = {
    {"5G", KELO_NET_STEM_5G},     {"FDD", KELO_NET_STEM_LTE}, {"TDSCDMA", KELO_NET_STEM_UMTS},
    {"TD", KELO_NET_STEM_LTE},    {"LTE", KELO_NET_STEM_LTE}, {"WCDMA", KELO_NET_STEM_UMTS},
    {"CDMA", KELO_NET_STEM_UMTS}, {"", KELO_NET_STEM_OTHER},
};

} // namespace

int classify_net_stem(const char* line)
{
    return find_row(stem_words, [&](const auto& row) { return text_has(line, row.needle); })->stem;
}

namespace
{

enum class kind {
    decimal,
    hexadecimal,
    area,  // text
    cell,  // hexadecimal
    index, // decimal, corrected to dBm
};

struct column_rule {
    std::size_t column; // from 1
    kind read_as;
    std::optional<int> serving_cell::*field = nullptr; // null: that of the kind
};

// Columns are counted with a run of commas as one separator, so that an empty column moves those
// behind it up by one. Columns that are not named are not read.

// clang-format off
// Column 1 is the word "NR5G-SA" itself.
constexpr column_rule nr5g_sa_columns[] = {
    {3,  kind::decimal,     &serving_cell::mcc},
    {4,  kind::decimal,     &serving_cell::mnc},
    {5,  kind::cell},
    {6,  kind::decimal,     &serving_cell::pcid},
    {7,  kind::area},
    {8,  kind::decimal,     &serving_cell::earfcn},
    {10, kind::decimal,     &serving_cell::dl_bandwidth},
    {11, kind::decimal,     &serving_cell::rsrp},
    {12, kind::decimal,     &serving_cell::rsrq},
    {13, kind::decimal,     &serving_cell::sinr},
};

// Column 1 is the word "LTE" itself.
constexpr column_rule lte_columns[] = {
    {3,  kind::decimal,     &serving_cell::mcc},
    {4,  kind::decimal,     &serving_cell::mnc},
    {5,  kind::cell},
    {6,  kind::decimal,     &serving_cell::pcid},
    {7,  kind::decimal,     &serving_cell::earfcn},
    {9,  kind::decimal,     &serving_cell::ul_bandwidth},
    {10, kind::decimal,     &serving_cell::dl_bandwidth},
    {11, kind::area},
    {12, kind::decimal,     &serving_cell::rsrp},
    {13, kind::decimal,     &serving_cell::rsrq},
    {15, kind::decimal,     &serving_cell::sinr},
    {16, kind::decimal,     &serving_cell::cqi},
};

// Column 1 is the head of the line.
constexpr column_rule wcdma_columns[] = {
    {6,  kind::area},
    {7,  kind::cell},
    {8,  kind::decimal,     &serving_cell::earfcn},
    {11, kind::decimal,     &serving_cell::rsrp},
    {12, kind::decimal,     &serving_cell::sinr},
};

// Cell lines without a prefix. Only those of technology 4 (LTE) carry area and cell; the NR line of
// a dual connection leaves both empty.
constexpr column_rule ccinfo_lte_columns[] = {
    {3,  kind::decimal,     &serving_cell::mcc},
    {4,  kind::decimal,     &serving_cell::mnc},
    {5,  kind::area},
    {6,  kind::cell},
    {7,  kind::hexadecimal, &serving_cell::earfcn},
    {8,  kind::hexadecimal, &serving_cell::pcid},
    {10, kind::decimal,     &serving_cell::dl_bandwidth},
    {11, kind::decimal,     &serving_cell::sinr},
    {13, kind::index,       &serving_cell::rsrp},
    {14, kind::decimal,     &serving_cell::rsrq},
};

constexpr column_rule ccinfo_other_columns[] = {
    {3,  kind::decimal,     &serving_cell::mcc},
    {4,  kind::decimal,     &serving_cell::mnc},
    {5,  kind::hexadecimal, &serving_cell::earfcn},
    {6,  kind::hexadecimal, &serving_cell::pcid},
    {8,  kind::decimal,     &serving_cell::dl_bandwidth},
    {9,  kind::decimal,     &serving_cell::sinr},
    {11, kind::index,       &serving_cell::rsrp},
    {12, kind::decimal,     &serving_cell::rsrq},
};
// clang-format on

// The index minus the offset, which stays an int however low the index is.
int index_to_dbm(int index, int offset)
{
    return index < INT_MIN + offset ? INT_MIN : index - offset;
}

// Reads the columns that the rules name, up to the first that is missing.
void read_columns(serving_cell& cell, const char* line, std::span<const column_rule> rules,
                  int index_offset = 0)
{
    const char* columns[16];
    const std::size_t count = text_columns(line, columns, std::size(columns));
    for (const column_rule& rule : rules) {
        if (rule.column > count)
            return;
        const char* const text = columns[rule.column - 1];
        int index = 0;
        switch (rule.read_as) {
        case kind::decimal:
            scan(text, dec(cell.*rule.field));
            break;
        case kind::hexadecimal:
            scan(text, hex(cell.*rule.field));
            break;
        case kind::area:
            text_set(cell.lac, text, ",");
            break;
        case kind::cell:
            scan(text, hex(cell.cell_id));
            break;
        case kind::index:
            if (scan(text, dec(index)))
                cell.*rule.field = index_to_dbm(index, index_offset);
            break;
        }
    }
}

// False for a line that lacks a figure.
bool read_nr5g_nsa(serving_cell& cell, const char* match)
{
    constexpr int unmeasured = -32768;                // of a released NR leg
    const char* const numbers = text_skip(match, 10); // behind the quote and the comma
    if (!scan(numbers, dec(cell.mcc), ",", dec(cell.mnc), ",", dec(cell.pcid), ",", dec(cell.rsrp),
              ",", dec(cell.sinr), ",", dec(cell.rsrq)))
        return false;
    if (cell.rsrp == unmeasured && cell.sinr == unmeasured && cell.rsrq == unmeasured) {
        cell.pcid = cell.rsrp = cell.sinr = cell.rsrq = std::nullopt;
    } else {
        cell.act = "5G NR";
        cell.is5g = KELO_5G_NONSTANDALONE;
    }
    return true;
}

} // namespace

std::optional<serving_cell> read_qeng(const char* line)
{
    serving_cell cell;
    if (const char* const nsa = text_find(line, "NR5G-NSA")) {
        if (!read_nr5g_nsa(cell, nsa))
            return std::nullopt;
    } else if (const char* const sa = text_find(line, "NR5G-SA")) {
        cell.act = "5G NR";
        cell.is5g = KELO_5G_STANDALONE;
        cell.cqi = cell.ul_bandwidth = 0;
        read_columns(cell, sa, nr5g_sa_columns);
    } else if (const char* const lte = text_find(line, "LTE")) {
        read_columns(cell, lte, lte_columns);
    } else if (text_has(line, "WCDMA")) {
        cell.act = "WCDMA";
        cell.cqi = cell.ul_bandwidth = cell.dl_bandwidth = cell.rsrq = 0;
        read_columns(cell, line, wcdma_columns);
    }
    return cell;
}

// #RFSTS: "262 01",<channel>,<RSRP>,<RSSI>,<RSRQ>,<area>, and more that differs between firmwares.
// With GSM and UMTS other figures stand there, of which one at least is not negative.
std::optional<serving_cell> read_rfsts(const char* line)
{
    serving_cell cell;
    int rssi = 0;
    if (!scan(line, "#RFSTS: \"", dec(cell.mcc), " ", dec(cell.mnc), "\",", dec(cell.earfcn), ",",
              dec(cell.rsrp), ",", dec(rssi), ",", dec(cell.rsrq), ",", until(cell.lac, ",")) ||
        cell.rsrp >= 0 || rssi >= 0 || cell.rsrq >= 0)
        return std::nullopt;
    return cell;
}

serving_cell read_cell_line(const char* line)
{
    constexpr int lte = 4;
    constexpr int nr = 9;
    int technology = 0;
    const char* columns[2];
    if (text_columns(line, columns, 2) == 2)
        scan(columns[1], dec(technology));
    serving_cell cell;
    if (technology == lte)
        read_columns(cell, line, ccinfo_lte_columns, 141);
    else
        read_columns(cell, line, ccinfo_other_columns, technology == nr ? 157 : 141);
    return cell;
}

} // namespace kelo
