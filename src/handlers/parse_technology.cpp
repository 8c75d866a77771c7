// SPDX-License-Identifier: MIT
// Operator, access technology and scan mode.
#include "handlers/parse.h"

#include "support/rows.h"
#include "support/scan.h"
#include "support/text.h"

#include <iterator>

namespace kelo
{

std::optional<network_operator> read_operator(const char* line)
{
    const char* const match = text_find(line, "+COPS");
    if (match == nullptr)
        return std::nullopt;
    network_operator oper;
    const int commas = text_commas(match);
    if (commas == 0) {
        oper.kind = network_operator::none;
    } else if (commas == 3) {
        oper.kind = network_operator::named;
        int mode = 0;
        int format = 0;
        scan(match, "+COPS: ", dec(mode), ",", dec(format), ",", quoted(oper.name));
    }
    return oper;
}

namespace
{

void read_qnwinfo(technology& tech, const char* line, const char* match)
{
    if (text_has(match, "No Service") ||
        scan(match, "+QNWINFO: ", quoted(tech.act), ",", quoted(tech.plmn), ",", quoted(tech.band),
             ",", dec(tech.channel)))
        return;
    // Early EC20 firmware prints the operator without quotes: what is readable is read.
    const char* columns[4];
    const std::size_t count = text_columns(line, columns, std::size(columns));
    static constexpr char ends[] = "\",";
    if (count > 0)
        scan(columns[0], "+QNWINFO: \"", until(tech.act, ends));
    if (count > 1)
        scan(columns[1], "\"", until(tech.plmn, ends));
    if (count > 2)
        scan(columns[2], "\"", until(tech.band, ends));
    if (count > 3)
        scan(columns[3], dec(tech.channel));
}

struct technology_word {
    const char* needle;
    const char* act;
};

// Tried from the top: "NR" may stand in other words.
constexpr technology_word hcsq_words[] = {
    {"NOSERVICE", ""}, {"GSM", "GSM"}, {"WCDMA", "WCDMA"}, {"LTE", "LTE"}, {"NR", "5G NR"},
};

} // namespace

std::optional<technology> read_technology(const char* line)
{
    technology tech;
    if (const char* const qnwinfo = text_find(line, "+QNWINFO")) {
        read_qnwinfo(tech, line, qnwinfo);
    } else if (const char* const psrat = text_find(line, "+PSRAT")) {
        if (!text_has(psrat, "NONE"))
            text_set(tech.act, text_skip(psrat, 8), "\n");
    } else if (const char* const zpas = text_find(line, "+ZPAS")) {
        if (!text_has(zpas, "No Service"))
            scan(zpas, "+ZPAS: ", quoted(tech.act));
    } else if (const char* const hcsq = text_find(line, "^HCSQ")) {
        tech.partial = true;
        const auto* const word =
            find_row(hcsq_words, [&](const auto& row) { return text_has(hcsq, row.needle); });
        if (word != nullptr)
            text_set(tech.act, word->act);
    } else {
        return std::nullopt;
    }
    return tech;
}

namespace
{

struct mode_word {
    const char* word;
    int mode;
};

constexpr mode_word mode_prefs[] = {
    {"AUTO", 0}, {"WCDMA", 2}, {"LTE", 3}, {"LTE:NR5G", 9}, {"NR5G", 10},
};

// With their quotes: a list of several systems means automatic.
constexpr mode_word syscfg_orders[] = {{"\"02\"", 2}, {"\"03\"", 3}, {"\"08\"", 9}};

struct rat_mode {
    int rat;
    int mode;
};

constexpr rat_mode gtrat_modes[] = {{2, 2}, {3, 3}, {16, 9}, {17, 9}, {14, 10}};

// The mode of the row that fits; automatic without one.
template <class Rows, class Test> int mode_of(const Rows& rows, const Test& fits)
{
    const auto* const row = find_row(rows, fits);
    return row != nullptr ? row->mode : 0;
}

} // namespace

bool read_scan_mode(const char* line, std::optional<int>& mode)
{
    char name[32] = "";
    int rat = -1;
    if (const char* const nwscanmode = text_find(line, "+QCFG: \"nwscanmode\"")) {
        scan(nwscanmode, "+QCFG: \"nwscanmode\",", dec(mode));
    } else if (const char* const mododr = text_find(line, "+MODODR")) {
        scan(mododr, "+MODODR: ", dec(mode));
    } else if (const char* const mode_pref = text_find(line, "+QNWPREFCFG: \"mode_pref\"")) {
        scan(mode_pref, "+QNWPREFCFG: \"mode_pref\",", word(name));
        const auto* const pref =
            find_row(mode_prefs, [&](const auto& row) { return std::strcmp(name, row.word) == 0; });
        if (pref != nullptr)
            mode = pref->mode;
    } else if (text_has(line, "^SYSCFGEX:")) {
        mode = mode_of(syscfg_orders, [&](const auto& row) { return text_has(line, row.word); });
    } else if (const char* const gtrat = text_find(line, "+GTRAT:")) {
        scan(gtrat, "+GTRAT: ", dec(rat));
        mode = mode_of(gtrat_modes, [&](const auto& row) { return row.rat == rat; });
    } else {
        return false;
    }
    return true;
}

} // namespace kelo
