// Hexadecimal, the GSM 7-bit default alphabet (3GPP TS 23.038 6.2.1), and septets in octets.
#include "sms/sms.h"

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

constexpr octet escape = 0x1B;

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
    made.greek_septet[0] = escape;
    return made;
}

constexpr lookup table = make_lookup();

constexpr std::size_t most_septets = 320; // of one encoding, the final 0 included
constexpr int most_octets = 320;          // of one unpacking

// The septets of n bytes of text, a terminator among them; 0 when they are more than the buffer has
// room for.
std::size_t to_septets(octet (&septets)[most_septets + 7], const char* text, std::size_t n)
{
    std::size_t count = 0;
    for (std::size_t i = 0; i < n; i++) {
        if (count + 2 > most_septets && (count == most_septets || table.extension[octet(text[i])]))
            return 0;
        const auto c = static_cast<octet>(text[i]);
        if (c == greek_lead && i + 1 < n && table.greek_septet[octet(text[i + 1])] != 0) {
            septets[count++] = table.greek_septet[octet(text[++i])];
        } else if (table.extension[c] != 0) {
            septets[count++] = escape;
            septets[count++] = table.extension[c];
        } else {
            septets[count++] = table.septet[c];
        }
    }
    return count;
}

} // namespace

void gsm_hex_to_octets(octet* out, const char* text, int n)
{
    for (int i = 0; i < n; i++, text += 2)
        out[i] = static_cast<octet>(table.digit[octet(text[0])] << 4 | table.digit[octet(text[1])]);
}

int sms_hex_encode(const octet* octets, char* out, int n)
{
    for (int i = 0; i < n; i++, out += 2)
        std::memcpy(out, table.hex[octets[i]].data(), 2);
    *out = '\0';
    return n * 2;
}

int gsm7_is_extension(octet c)
{
    return table.extension[c] != 0 ? 1 : 0;
}

bool gsm7_is_plain(octet septet)
{
    return table.greek[septet] == 0 && septet != escape;
}

// Seven octets at a time, which are eight septets. The last group is shorter, and its bits beyond
// the last whole septet are dropped.
int gsm7_unpack(octet* septets, const octet* octets, int n)
{
    int count = 0;
    for (int done = 0; done < n; done += 7) {
        const int group = n - done < 7 ? n - done : 7;
        std::uint64_t bits = 0;
        for (int i = 0; i < group; i++)
            bits |= static_cast<std::uint64_t>(octets[done + i]) << (8 * i);
        for (int i = 0; i < (group == 7 ? 8 : group); i++, bits >>= 7)
            septets[count++] = static_cast<octet>(bits & 0x7F);
    }
    return count;
}

int gsm7_to_ucs2(octet* out, const octet* septets, int count)
{
    const octet* const begin = out;
    for (int i = 0; i < count; i++) {
        const octet septet = septets[i];
        octet high = 0;
        octet low = GSM7BITtoASCII8BIT[septet];
        if (septet == escape && i + 1 == count) {
            low = 0;
        } else if (septet == escape && table.extended[septets[i + 1]] != 0) {
            low = table.extended[septets[++i]];
        } else if (table.greek[septet] != 0) {
            high = 0x03;
            low = table.greek[septet];
        }
        *out++ = high;
        *out++ = low;
    }
    return static_cast<int>(out - begin);
}

int gsm7_to_8bit(octet* octets, char* out, int n, int u, int& length)
{
    octet septets[2 * most_octets + 1];
    const int count = gsm7_unpack(septets, octets, n);
    const int first = gsm7_text_start(u);
    bool plain = true;
    for (int i = first; i < count && plain; i++)
        plain = gsm7_is_plain(septets[i]);
    if (!plain) {
        length = gsm7_to_ucs2(octets, septets + first, count - first);
        return 2;
    }
    for (int i = first; i < count; i++)
        out[i - first] = static_cast<char>(GSM7BITtoASCII8BIT[septets[i]]);
    return 0;
}

void gsm_address_to_8bit(const octet* octets, char* out, int n)
{
    octet septets[2 * 32 + 1];
    const int count = gsm7_unpack(septets, octets, n < 32 ? n : 32);
    for (int i = 0; i < count; i++) {
        octet c = GSM7BITtoASCII8BIT[septets[i]];
        if (septets[i] == escape && i + 1 < count && table.extended[septets[i + 1]] != 0)
            c = table.extended[septets[++i]];
        *out++ = static_cast<char>(c);
    }
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
    octet septets[most_septets + 7];
    const std::size_t count = to_septets(septets, text, static_cast<std::size_t>(n));
    if (count == 0)
        return -1;
    *udl = static_cast<octet>(count - 1);
    const octet* const begin = out;
    for (std::size_t done = 0; done < count; done += 8) {
        const std::size_t group = count - done < 8 ? count - done : 8;
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < group; i++)
            bits |= static_cast<std::uint64_t>(septets[done + i]) << (7 * i);
        for (std::size_t i = 0; i + 1 < group; i++, bits >>= 8)
            *out++ = static_cast<octet>(bits);
    }
    return static_cast<int>(out - begin);
}

int corvel_mobile_sms_gsm7bit_to_8bit(struct gsm_event* what, unsigned char* octets, char* out,
                                      int n, int u)
{
    if (what == nullptr || octets == nullptr || out == nullptr || n < 0 || n > most_octets)
        return -1;
    int length = 0;
    const int coding = gsm7_to_8bit(octets, out, n, u < 0 ? 0 : u, length);
    const lock_scope hold(record_lock);
    what->coding = coding;
    if (coding == 2)
        what->length = length;
    return 0;
}
