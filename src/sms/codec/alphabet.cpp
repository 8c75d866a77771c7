// SPDX-License-Identifier: MIT
// Hexadecimal, the GSM 7-bit default alphabet (3GPP TS 23.038 6.2.1), and septets in octets.
#include "sms/codec/codec.h"

#include <array>
#include <cstdint>

using namespace kelo;

constexpr unsigned char GSM7BITtoASCII8BIT[128] = {
    // clang-format off
    '@', 0xA3, '$', 0xA5, 0xE8, 0xE9, 0xF9, 0xEC, 0xF2, 0xC7, '\n', 0xD8, 0xF8, '\r', 0xC5, 0xE5,
    0xFF, '_', 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xC6, 0xE6, 0xDF, 0xC9,
    ' ', '!', '"', '#', 0xA4, '%', '&', '\'', '(', ')', '*', '+', ',', '-', '.', '/',
    '0', '1', '2', '3', '4', '5', '6', '7', '8', '9', ':', ';', '<', '=', '>', '?',
    0xA1, 'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K', 'L', 'M', 'N', 'O',
    'P', 'Q', 'R', 'S', 'T', 'U', 'V', 'W', 'X', 'Y', 'Z', 0xC4, 0xD6, 0xD1, 0xDC, 0xA7,
    0xBF, 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o',
    'p', 'q', 'r', 's', 't', 'u', 'v', 'w', 'x', 'y', 'z', 0xE4, 0xF6, 0xF1, 0xFC, 0xE0,
    // clang-format on
};

namespace kelo
{

namespace
{

constexpr octet euro_code = 0x65; // behind the escape
constexpr char16_t euro = u'€';

struct extension_row {
    octet code; // behind the escape
    octet byte;
};

// The euro sign, 0x65, is not among them.
constexpr extension_row extension_rows[] = {
    {0x0A, 0x0C}, {0x14, '^'}, {0x28, '{'}, {0x29, '}'}, {0x2F, '\\'},
    {0x3C, '['},  {0x3D, '~'}, {0x3E, ']'}, {0x40, '|'},
};

struct greek_row {
    octet second; // of the UTF-8 pair; the first is 0xCE
    octet septet;
    octet low; // of the UCS-2 character; the high byte is 0x03
};

constexpr octet greek_lead = 0xCE;
constexpr greek_row greek_rows[] = {
    {0x94, 0x10, 0x94}, {0xA6, 0x12, 0xA6}, {0x93, 0x13, 0x93}, {0x9B, 0x14, 0x9B},
    {0xA9, 0x15, 0xA9}, {0xA0, 0x16, 0xA0}, {0xA8, 0x17, 0xA8}, {0xA3, 0x18, 0xA3},
    {0x98, 0x19, 0x98}, {0x9E, 0x1A, 0x9E},
};

// All lookups are by one byte, so each is a table of 256.
struct lookup {
    std::array<octet, 256> digit{};             // value of a hexadecimal digit
    std::array<octet, 256> septet{};            // of a byte of text; the byte itself where none is
    std::array<octet, 256> extension{};         // code behind the escape of a byte, 0 for none
    std::array<octet, 128> extended{};          // byte of a code behind the escape, 0 for none
    std::array<octet, 128> greek{};             // low byte of the UCS-2 of a septet, 0 for none
    std::array<octet, 256> greek_septet{};      // of the second byte of the pair, 0 for none
    std::array<std::array<char, 2>, 256> hex{}; // digits of an octet
};

constexpr lookup make_lookup()
{
    lookup made;
    constexpr char digits[] = "0123456789ABCDEF";
    for (unsigned i = 0; i < 256; i++) {
        made.hex[i] = {digits[i >> 4], digits[i & 15]};
        made.septet[i] = static_cast<octet>(i);
    }
    for (unsigned i = 0; i < 16; i++) {
        made.digit[static_cast<octet>(digits[i])] = static_cast<octet>(i);
        if (i >= 10)
            made.digit['a' + i - 10] = static_cast<octet>(i);
    }
    for (unsigned i = 128; i-- > 0;) // downwards: the first index that holds a byte stays
        made.septet[GSM7BITtoASCII8BIT[i]] = static_cast<octet>(i);
    for (const extension_row& row : extension_rows) {
        made.extension[row.byte] = row.code;
        made.extended[row.code] = row.byte;
    }
    for (const greek_row& row : greek_rows) {
        made.greek[row.septet] = row.low;
        made.greek_septet[row.second] = row.septet;
    }
    made.greek_septet[0] = gsm7_escape;
    return made;
}

constexpr lookup table = make_lookup();

// Of a code behind the escape, 0 for none.
octet extended(std::span<const octet> septets, std::size_t i)
{
    return septets[i] == gsm7_escape && i + 1 < septets.size() ? table.extended[septets[i + 1]] : 0;
}

bool is_plain(octet septet)
{
    return table.greek[septet] == 0 && septet != gsm7_escape;
}

} // namespace

octet hex_octet(std::string_view text, std::size_t index)
{
    const auto digit = [&](std::size_t at) {
        return at < text.size() ? table.digit[octet(text[at])] : octet(0);
    };
    return static_cast<octet>(digit(2 * index) << 4 | digit(2 * index + 1));
}

void gsm_hex_to_octets(std::span<octet> out, std::string_view text)
{
    const std::size_t there = std::min(out.size(), text.size() / 2);
    const char* from = text.data();
    for (std::size_t i = 0; i < there; i++, from += 2)
        out[i] = static_cast<octet>(table.digit[octet(from[0])] << 4 | table.digit[octet(from[1])]);
    for (std::size_t i = there; i < out.size(); i++)
        out[i] = hex_octet(text, i);
}

void sms_hex_encode(pdu_text& out, std::span<const octet> octets)
{
    for (const octet one : octets)
        for (const char digit : table.hex[one])
            out.add(digit);
}

bool gsm7_is_extension(char c)
{
    return table.extension[octet(c)] != 0;
}

std::optional<packed_text> gsm7_pack(std::string_view text)
{
    constexpr std::size_t most = 320;
    made<octet, most + 1> septets; // one more, which tells that there are too many
    for (std::size_t i = 0; i < text.size() && septets.count <= most; i++) {
        const auto c = static_cast<octet>(text[i]);
        const int greek =
            i + 1 < text.size() ? corvel_mobile_sms_ascii_to_gsm7bit(c, octet(text[i + 1])) : 0;
        if (greek != 0)
            i++;
        else if (table.extension[c] != 0)
            septets.add(gsm7_escape);
        septets.add(greek != 0                ? static_cast<octet>(greek)
                    : table.extension[c] != 0 ? table.extension[c]
                                              : table.septet[c]);
    }
    if (septets.count == 0 || septets.count > most)
        return std::nullopt;
    packed_text packed = {{}, static_cast<octet>(septets.count - 1)};
    for (std::size_t done = 0; done < septets.count; done += 8) {
        const std::size_t group = std::min<std::size_t>(septets.count - done, 8);
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < group; i++)
            bits |= static_cast<std::uint64_t>(septets.items[done + i]) << (7 * i);
        for (std::size_t i = 0; i + 1 < group; i++, bits >>= 8)
            packed.octets.add(static_cast<octet>(bits));
    }
    return packed;
}

// Seven octets at a time, which are eight septets. The last group is shorter, and its bits beyond
// the last whole septet are dropped.
unpacked_text gsm7_unpack(std::span<const octet> octets)
{
    unpacked_text unpacked;
    for (std::size_t done = 0; done < octets.size(); done += 7) {
        const std::size_t group = std::min<std::size_t>(octets.size() - done, 7);
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < group; i++)
            bits |= static_cast<std::uint64_t>(octets[done + i]) << (8 * i);
        for (std::size_t i = 0; i < (group == 7 ? 8 : group); i++, bits >>= 7)
            unpacked.add(static_cast<octet>(bits & 0x7F));
    }
    return unpacked;
}

std::span<const octet> gsm7_behind(std::span<const octet> septets, std::size_t header_octets)
{
    // A header longer than the septets leaves none, also one whose bits no word can count.
    return septets.subspan(
        std::min((8 * std::min(header_octets, septets.size()) + 6) / 7, septets.size()));
}

septet_text gsm7_read(std::span<const octet> septets)
{
    septet_text text = {!std::all_of(septets.begin(), septets.end(), is_plain), {}};
    for (std::size_t i = 0; i < septets.size(); i++) {
        const octet septet = septets[i];
        octet low = GSM7BITtoASCII8BIT[septet];
        if (septet == gsm7_escape && i + 1 == septets.size())
            low = 0;
        else if (extended(septets, i) != 0)
            low = extended(septets, i++);
        else if (table.greek[septet] != 0)
            low = table.greek[septet];
        if (text.ucs2)
            text.bytes.add(table.greek[septet] != 0 ? 0x03 : 0);
        text.bytes.add(low);
    }
    return text;
}

made<char, 32> gsm_address_to_8bit(std::span<const octet> octets)
{
    const unpacked_text unpacked = gsm7_unpack(octets);
    made<char, 32> text;
    for (std::size_t i = 0; i < unpacked.count; i++) {
        const octet byte = extended(unpacked.all(), i);
        text.add(static_cast<char>(byte != 0 ? byte : GSM7BITtoASCII8BIT[unpacked.items[i]]));
        i += byte != 0;
    }
    return text;
}

char16_t gsm7_character(octet septet)
{
    if (table.greek[septet] != 0)
        return static_cast<char16_t>(0x0300 | table.greek[septet]);
    return septet == gsm7_escape ? u' ' : GSM7BITtoASCII8BIT[septet];
}

char16_t gsm7_extended(octet code)
{
    return code == euro_code ? euro : table.extended[code];
}

int gsm7_code(char32_t c)
{
    if (c == euro)
        return gsm7_escape << 8 | euro_code;
    if (c >> 6 == (greek_lead & 0x1F)) { // the second byte of its UTF-8 has the low bits
        const octet septet = table.greek_septet[0x80 | (c & 0x3F)];
        return septet != 0 ? septet : -1;
    }
    if (c > 0xFF)
        return -1;
    if (table.extension[c] != 0)
        return gsm7_escape << 8 | table.extension[c];
    // Where the table has the character itself, and no place without one.
    const octet septet = table.septet[c];
    return c < 0xFF && septet < 0x80 && GSM7BITtoASCII8BIT[septet] == c ? septet : -1;
}

} // namespace kelo

int gsm_hex2int(const char* text, int n)
{
    unsigned value = 0;
    if (text != nullptr)
        for (int i = 0; i < n; i++)
            value = value << 4 | table.digit[octet(text[i])];
    return static_cast<int>(value);
}

int corvel_mobile_sms_ascii_to_gsm7bit(int c1, int c2)
{
    return (c1 & 0xff) == greek_lead ? table.greek_septet[static_cast<octet>(c2)] : 0;
}

int corvel_mobile_sms_encode_gsm7bit(const char* text, unsigned char* out, int n,
                                     unsigned char* udl)
{
    if (text == nullptr || out == nullptr || udl == nullptr || n < 1)
        return -1;
    const auto packed = gsm7_pack({text, static_cast<std::size_t>(n)});
    if (!packed)
        return -1;
    std::memcpy(out, packed->octets.items, packed->octets.count);
    *udl = packed->septets;
    return static_cast<int>(packed->octets.count);
}
