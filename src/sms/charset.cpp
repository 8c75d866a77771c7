// UCS-2 and UTF-8.
#include "sms/sms.h"

#include "support/diag.h"
#include "support/text.h"

#include <cstdint>
#include <iconv.h>

namespace kelo
{

namespace
{

void sms_charset_upper(char* name)
{
    for (; *name != '\0'; name++)
        if (*name >= 'a' && *name <= 'z')
            *name = static_cast<char>(*name - 'a' + 'A');
}

std::uint32_t unit_at(const octet* data)
{
    return static_cast<std::uint32_t>(data[0] << 8 | data[1]);
}

bool is_high_surrogate(std::uint32_t unit)
{
    return unit >= 0xD800 && unit < 0xDC00;
}
bool is_low_surrogate(std::uint32_t unit)
{
    return unit >= 0xDC00 && unit < 0xE000;
}

int put_utf8(char (&out)[4], std::uint32_t c)
{
    const auto tail = [c](int shift) { return static_cast<char>(0x80 | (c >> shift & 0x3F)); };
    if (c < 0x80) {
        out[0] = static_cast<char>(c);
        return 1;
    }
    if (c < 0x800) {
        out[0] = static_cast<char>(0xC0 | c >> 6);
        out[1] = tail(0);
        return 2;
    }
    if (c < 0x10000) {
        out[0] = static_cast<char>(0xE0 | c >> 12);
        out[1] = tail(6);
        out[2] = tail(0);
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | c >> 18);
    out[1] = tail(12);
    out[2] = tail(6);
    out[3] = tail(0);
    return 4;
}

// The code point of a whole and well formed sequence of four bytes, else 0.
std::uint32_t four_byte_character(const char* text, int n)
{
    if (n < 4)
        return 0;
    std::uint32_t c = octet(text[0]) & 0x07u;
    for (int i = 1; i < 4; i++) {
        if ((text[i] & 0xC0) != 0x80)
            return 0;
        c = c << 6 | (octet(text[i]) & 0x3Fu);
    }
    return octet(text[0]) <= 0xF4 && c >= 0x10000 && c <= 0x10FFFF ? c : 0;
}

} // namespace

int sms_iconv(const char* from, const char* to, char* in, std::size_t n, char* out,
              std::size_t size)
{
    const iconv_t descriptor = iconv_open(to, from);
    if (descriptor == reinterpret_cast<iconv_t>(-1)) {
        diag_plain("iconv_open error!");
        return -1;
    }
    std::memset(out, 0, size);
    std::size_t left = size;
    const std::size_t result = iconv(descriptor, &in, &n, &out, &left);
    iconv_close(descriptor);
    if (result == static_cast<std::size_t>(-1)) {
        diag_plain("iconv error!");
        return -1;
    }
    return static_cast<int>(left);
}

int sms_ucs2_to_charset(const char* name, const octet* data, int n, char* out, int size)
{
    char input[512] = {'\xFE', '\xFF'}; // a mark that comes out at the head of the result
    if (name == nullptr || data == nullptr || out == nullptr || size < 1 || n < 0 ||
        n > static_cast<int>(sizeof input) - 2)
        return -1;
    const auto length = static_cast<std::size_t>(n);
    std::memcpy(input + 2, data, length);
    char charset[256];
    text_set(charset, name);
    sms_charset_upper(charset);
    const int left =
        sms_iconv("UCS-2BE", charset, input, length + 2, out, static_cast<std::size_t>(size));
    if (left < 1) {
        out[size - 1] = '\0';
        return -1;
    }
    out[size - left] = '\0';
    return size - left;
}

int utf16_to_utf8(const octet* data, int n, char* out, std::size_t size)
{
    std::size_t length = 0;
    for (int i = 0; i + 1 < n; i += 2) {
        std::uint32_t c = unit_at(data + i);
        if (is_high_surrogate(c) && i + 3 < n && is_low_surrogate(unit_at(data + i + 2))) {
            c = 0x10000 + ((c - 0xD800) << 10) + (unit_at(data + i + 2) - 0xDC00);
            i += 2;
        } else if (is_high_surrogate(c) || is_low_surrogate(c)) {
            c = 0xFFFD;
        }
        char bytes[4];
        const auto count = static_cast<std::size_t>(put_utf8(bytes, c));
        if (length + count >= size)
            break;
        std::memcpy(out + length, bytes, count);
        length += count;
    }
    out[length] = '\0';
    return static_cast<int>(length);
}

utf8_step sms_utf8_step(const char* text, int n)
{
    if (four_byte_character(text, n) != 0)
        return {4, 2};
    const octet first = octet(text[0]);
    const int bytes = first < 0x80 ? 1 : first < 0xE0 ? 2 : 3;
    return {bytes < n ? bytes : n, 1};
}

int sms_utf8_to_ucs2(octet* out, int room, const char* text, int n)
{
    int length = 0;
    const auto put = [&](std::uint32_t unit) {
        out[length++] = static_cast<octet>(unit >> 8);
        out[length++] = static_cast<octet>(unit);
    };
    for (int i = 0; i < n;) {
        const utf8_step step = sms_utf8_step(text + i, n - i);
        if (length + 2 * step.units > room)
            return -1;
        // Bytes beyond the end read as 0.
        const auto byte_at = [&](int k) { return i + k < n ? octet(text[i + k]) : 0u; };
        const std::uint32_t first = byte_at(0);
        if (step.units == 2) {
            const std::uint32_t c = four_byte_character(text + i, n - i) - 0x10000;
            put(0xD800 + (c >> 10));
            put(0xDC00 + (c & 0x3FF));
        } else if (first < 0x80) {
            put(first);
        } else if (first < 0xE0) {
            put((first & 0x1F) << 6 | (byte_at(1) & 0x3F));
        } else {
            put((first << 12 & 0xFFFF) + ((byte_at(1) & 0x3F) << 6) + (byte_at(2) & 0x3F));
        }
        i += step.bytes;
    }
    return length;
}

} // namespace kelo

int sms_get_str(const unsigned char* data, int n, char* out, int size)
{
    return kelo::sms_ucs2_to_charset("UTF-8", data, n, out, size);
}
