// SPDX-License-Identifier: MIT
// The 7-bit alphabets of languages, 3GPP TS 23.038 annex A: where they differ from the default one.
// For reading alone: what has no place in the default alphabet goes out in UTF-16.
#include "sms/codec/codec.h"

namespace kelo
{

namespace
{

struct national_row {
    octet septet;
    char16_t character;
};

constexpr national_row turkish_locking[] = {{0x04, u'€'}, {0x07, u'ı'}, {0x0B, u'Ğ'}, {0x0C, u'ğ'},
                                            {0x1C, u'Ş'}, {0x1D, u'ş'}, {0x40, u'İ'}, {0x60, u'ç'}};
constexpr national_row turkish_single[] = {{0x47, u'Ğ'}, {0x49, u'İ'}, {0x53, u'Ş'}, {0x63, u'ç'},
                                           {0x67, u'ğ'}, {0x69, u'ı'}, {0x73, u'ş'}};
constexpr national_row spanish_single[] = {{0x09, u'ç'}, {0x41, u'Á'}, {0x49, u'Í'},
                                           {0x4F, u'Ó'}, {0x55, u'Ú'}, {0x61, u'á'},
                                           {0x69, u'í'}, {0x6F, u'ó'}, {0x75, u'ú'}};
constexpr national_row portuguese_locking[] = {
    {0x04, u'ê'}, {0x06, u'ú'}, {0x07, u'í'},  {0x08, u'ó'}, {0x09, u'ç'}, {0x0B, u'Ô'},
    {0x0C, u'ô'}, {0x0E, u'Á'}, {0x0F, u'á'},  {0x12, u'ª'}, {0x13, u'Ç'}, {0x14, u'À'},
    {0x15, u'∞'}, {0x16, u'^'}, {0x17, u'\\'}, {0x18, u'€'}, {0x19, u'Ó'}, {0x1A, u'|'},
    {0x1C, u'Â'}, {0x1D, u'â'}, {0x1E, u'Ê'},  {0x24, u'º'}, {0x40, u'Í'}, {0x5B, u'Ã'},
    {0x5C, u'Õ'}, {0x5D, u'Ú'}, {0x60, u'~'},  {0x7B, u'ã'}, {0x7C, u'õ'}, {0x7D, u'`'}};
constexpr national_row portuguese_single[] = {
    {0x05, u'ê'}, {0x09, u'ç'}, {0x0B, u'Ô'}, {0x0C, u'ô'}, {0x0E, u'Á'}, {0x0F, u'á'},
    {0x12, u'Φ'}, {0x13, u'Γ'}, {0x15, u'Ω'}, {0x16, u'Π'}, {0x17, u'Ψ'}, {0x18, u'Σ'},
    {0x19, u'Θ'}, {0x1F, u'Ê'}, {0x41, u'À'}, {0x49, u'Í'}, {0x4F, u'Ó'}, {0x55, u'Ú'},
    {0x5B, u'Ã'}, {0x5C, u'Õ'}, {0x61, u'Â'}, {0x69, u'í'}, {0x6F, u'ó'}, {0x75, u'ú'},
    {0x7B, u'ã'}, {0x7C, u'õ'}, {0x7F, u'â'}};

struct national_language {
    octet id; // in elements 24 and 25
    std::span<const national_row> locking;
    std::span<const national_row> single; // ahead of the rows that every language has
};

constexpr national_language languages[] = {
    {1, turkish_locking, turkish_single},
    {2, {}, spanish_single},
    {3, portuguese_locking, portuguese_single},
};

std::span<const national_row> rows_of(octet id,
                                      std::span<const national_row> national_language::*table)
{
    for (const national_language& one : languages)
        if (one.id == id)
            return one.*table;
    return {};
}

// 0 for none.
char16_t find(std::span<const national_row> rows, octet septet)
{
    for (const national_row& row : rows)
        if (row.septet == septet)
            return row.character;
    return 0;
}

} // namespace

utf16_text sms_septets_to_utf16(std::span<const octet> septets, national_tables tables)
{
    const auto locking = rows_of(tables.locking, &national_language::locking);
    const auto single = rows_of(tables.single, &national_language::single);
    utf16_text text;
    for (std::size_t i = 0; i < septets.size(); i++) {
        char16_t c = 0;
        if (septets[i] == gsm7_escape && i + 1 < septets.size()) {
            c = find(single, septets[++i]);
            if (c == 0)
                c = gsm7_extended(septets[i]);
        }
        // A code that nothing stands behind is read as if there were no escape: TS 23.038 6.2.1.1.
        if (c == 0)
            c = find(locking, septets[i]);
        if (c == 0)
            c = gsm7_character(septets[i]);
        text.add(static_cast<octet>(c >> 8));
        text.add(static_cast<octet>(c));
    }
    return text;
}

} // namespace kelo
