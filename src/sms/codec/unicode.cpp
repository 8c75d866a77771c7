// SPDX-License-Identifier: MIT
// UCS-2, UTF-16 and UTF-8.
#include "sms/codec/codec.h"

#include <cstdint>

namespace kelo
{

namespace
{

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
bool is_surrogate(std::uint32_t unit)
{
    return unit >= 0xD800 && unit < 0xE000;
}

// The code point of a whole and well formed sequence of four bytes, else 0.
std::uint32_t four_byte_character(std::string_view text)
{
    if (text.size() < 4)
        return 0;
    std::uint32_t c = octet(text[0]) & 0x07u;
    for (std::size_t i = 1; i < 4; i++) {
        if ((text[i] & 0xC0) != 0x80)
            return 0;
        c = c << 6 | (octet(text[i]) & 0x3Fu);
    }
    return octet(text[0]) <= 0xF4 && c >= 0x10000 && c <= 0x10FFFF ? c : 0;
}

// As far as there is room; without pairs, up to a surrogate.
utf8_made to_utf8(std::span<const octet> data, std::span<char> out, bool pairs)
{
    char* to = out.data();
    std::size_t room = out.size(), at = 0;
    for (; at + 1 < data.size(); at += 2) {
        std::uint32_t c = unit_at(&data[at]);
        if (is_surrogate(c)) {
            if (!pairs)
                break;
            const std::uint32_t next = at + 3 < data.size() ? unit_at(&data[at + 2]) : 0;
            const bool whole = is_high_surrogate(c) && is_low_surrogate(next);
            c = whole ? 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00) : 0xFFFD;
            at += whole ? 2 : 0;
        }
        const std::size_t count = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
        if (count > room)
            break;
        room -= count;
        if (count == 1) {
            *to++ = static_cast<char>(c);
            continue;
        }
        if (count == 4)
            *to++ = static_cast<char>(0xF0 | c >> 18);
        if (count >= 3)
            *to++ = static_cast<char>(count == 3 ? 0xE0 | c >> 12 : 0x80 | (c >> 12 & 0x3F));
        *to++ = static_cast<char>(count == 2 ? 0xC0 | c >> 6 : 0x80 | (c >> 6 & 0x3F));
        *to++ = static_cast<char>(0x80 | (c & 0x3F));
    }
    return {out.size() - room, at == data.size()};
}

} // namespace

utf8_made ucs2_to_utf8(std::span<const octet> data, std::span<char> out)
{
    return to_utf8(data, out, false);
}

int utf16_to_utf8(std::span<const octet> data, std::span<char> out)
{
    const std::size_t length = to_utf8(data, out.first(out.size() - 1), true).length;
    out[length] = '\0';
    return static_cast<int>(length);
}

utf8_character utf8_read(std::string_view text)
{
    static constexpr char32_t least[] = {0, 0, 0x80, 0x800, 0x10000}; // by bytes: what is less is
                                                                      // longer than it need be
    const octet lead = octet(text[0]);
    if (lead < 0x80)
        return {lead, 1};
    const std::size_t bytes = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (lead < 0xC0 || lead >= 0xF8 || bytes > text.size())
        return {};
    char32_t c = lead & (0x7Fu >> bytes);
    for (std::size_t i = 1; i < bytes; i++) {
        if ((text[i] & 0xC0) != 0x80)
            return {};
        c = c << 6 | (octet(text[i]) & 0x3Fu);
    }
    if (c < least[bytes] || c > 0x10FFFF || is_surrogate(c))
        return {};
    return {c, bytes};
}

text_piece sms_utf8_piece(std::string_view text)
{
    if (four_byte_character(text) != 0)
        return {4, 2};
    const octet first = octet(text[0]);
    return {std::min<std::size_t>(text.size(), first < 0x80 ? 1 : first < 0xE0 ? 2 : 3), 1};
}

std::optional<made<octet, user_data_octets>> sms_utf8_to_ucs2(std::string_view text)
{
    made<octet, user_data_octets> out;
    const auto put = [&](std::uint32_t unit) {
        out.add(static_cast<octet>(unit >> 8));
        out.add(static_cast<octet>(unit));
    };
    while (!text.empty()) {
        const text_piece piece = sms_utf8_piece(text);
        if (out.count + 2 * static_cast<std::size_t>(piece.weight) > user_data_octets)
            return std::nullopt;
        // Bytes beyond the end read as 0.
        const auto byte_at = [&](std::size_t k) { return k < text.size() ? octet(text[k]) : 0u; };
        const std::uint32_t first = byte_at(0);
        if (piece.weight == 2) {
            const std::uint32_t c = four_byte_character(text) - 0x10000;
            put(0xD800 + (c >> 10));
            put(0xDC00 + (c & 0x3FF));
        } else if (first < 0x80) {
            put(first);
        } else if (first < 0xE0) {
            put((first & 0x1F) << 6 | (byte_at(1) & 0x3F));
        } else {
            put((first << 12 & 0xFFFF) + ((byte_at(1) & 0x3F) << 6) + (byte_at(2) & 0x3F));
        }
        text.remove_prefix(piece.bytes);
    }
    return out;
}

} // namespace kelo
