// SPDX-License-Identifier: MIT
// Registration lines, by their layout.
#include "handlers/parse.h"

#include "core/family.h"
#include "support/rows.h"
#include "support/scan.h"
#include "support/text.h"

namespace kelo
{

namespace
{

// One layout of a registration line, told by its prefix and its number of commas. Behind <n> and
// <stat> come area, cell, technology and RAC, as far as the commas go. Lines of other layouts are
// not read.
struct reg_form {
    const char* prefix;
    int commas;
    bool n_first;             // the columns start with <n>, as they do in an answer
    bool (*only)() = nullptr; // the modules that have it; null means all
};

// The first row that fits counts.
// clang-format off
constexpr reg_form reg_forms[] = {
    // prefix commas n_first only
    {"+CGREG", 5, true},
    {"+CGREG", 4, true},
    {"+CGREG", 3, false},
    {"+CGREG", 1, true},
    {"+CGREG", 0, false},
    {"+CREG",  4, true},
    {"+CREG",  3, false},
    {"+CREG",  1, true},
    {"+CREG",  0, false},
    {"+CEREG", 4, true},
    {"+CEREG", 3, true,  cereg_begins_with_n},
    {"+CEREG", 3, false},
    {"+CEREG", 1, true},
    {"+CEREG", 0, false},
};
// clang-format on

} // namespace

std::optional<registration> read_registration(const char* line)
{
    const char* prefix = nullptr;
    const char* match = nullptr;
    for (const char* candidate : {"+CGREG", "+CREG", "+CEREG"}) {
        const char* const found = text_find(line, candidate);
        if (found != nullptr) {
            prefix = candidate;
            match = found;
        }
    }
    if (match == nullptr)
        return std::nullopt;
    registration reg;
    const int commas = text_commas(match);
    const reg_form* const form = find_row(reg_forms, [&](const reg_form& row) {
        return row.commas == commas && std::strcmp(row.prefix, prefix) == 0 &&
               (row.only == nullptr || row.only());
    });
    if (form == nullptr)
        return reg;
    // All numbers are hexadecimal, <n> and <stat> too, but for the technology of a "+CREG". A scan
    // ends with the commas of its line.
    const bool creg = std::strcmp(prefix, "+CREG") == 0;
    reg.follows = creg && commas >= 3;
    const auto tech = creg ? dec(reg.tech) : hex(reg.tech);
    match += std::strlen(prefix);
    if (form->n_first)
        scan(match, ": ", hex(reg.n), ",", hex(reg.stat), ",", quoted(reg.lac), ",\"",
             hex(reg.cell_id), "\",", tech, ",\"", hex(reg.rac));
    else
        scan(match, ": ", hex(reg.stat), ",", quoted(reg.lac), ",\"", hex(reg.cell_id), "\",",
             tech);
    return reg;
}

} // namespace kelo
