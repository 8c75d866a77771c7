// SPDX-License-Identifier: MIT
// A text of the host into the PDUs of its parts: SMS-SUBMIT of 3GPP TS 23.040 9.2.2.2 behind its
// service centre, in the 7-bit alphabet with its Greek, its accents and its extension where that
// has all of the text. What kelo/sms.h sends, encoder.cpp makes.
#include "sms/codec/codec.h"

namespace kelo
{

namespace
{

// Septets, or units of UTF-16, of a message and of the parts of a longer one.
struct part_rooms {
    std::size_t single;
    std::size_t part;
};
constexpr part_rooms rooms_gsm7 = {160, 153};
constexpr part_rooms rooms_utf16 = {70, 67};

constexpr std::size_t concat_header = 6;  // octets
constexpr std::size_t concat_septets = 7; // with one bit of fill
constexpr std::size_t most_digits = 20;   // TS 23.040 9.1.2.5

// What a character takes. It is never parted.
std::size_t weight(char32_t character, bool gsm7)
{
    return gsm7 ? (gsm7_code(character) > 0x7F ? 2 : 1) : (character > 0xFFFF ? 2 : 1);
}

std::string_view without_plus(std::string_view number)
{
    return behind(number, number.starts_with('+') ? 1 : 0);
}

bool are_digits(std::string_view text)
{
    return !text.empty() && text.size() <= most_digits &&
           text.find_first_not_of("0123456789") == std::string_view::npos;
}

// TP-UD, and TP-UDL in septets or octets. What has no room is not put.
struct submit_data {
    octet octets[user_data_octets] = {};
    std::size_t length = 0;
    bool full = false;

    void put_septet(int septet)
    {
        full |= length == rooms_gsm7.single;
        if (full)
            return;
        const std::size_t at = 7 * length / 8;
        const std::size_t shift = 7 * length % 8;
        octets[at] = static_cast<octet>(octets[at] | septet << shift);
        if (shift > 1)
            octets[at + 1] = static_cast<octet>(septet >> (8 - shift));
        length++;
    }
    void put_utf16(char32_t character)
    {
        const auto units = utf16_of(character);
        full |= length + units.count > user_data_octets;
        if (full)
            return;
        std::copy_n(units.items, units.count, octets + length);
        length += units.count;
    }
    void put(char32_t character, bool gsm7)
    {
        if (!gsm7)
            return put_utf16(character);
        if (gsm7_code(character) > 0x7F)
            put_septet(gsm7_escape);
        put_septet(gsm7_code(character) & 0x7F);
    }
};

} // namespace

std::optional<composed_text> sms_compose(std::string_view text)
{
    composed_text cut = {true};
    std::size_t weights[2] = {0, 0}; // in UTF-16 and in the 7-bit alphabet
    for (std::size_t at = 0; at < text.size();) {
        const utf8_character c = utf8_read(behind(text, at));
        if (c.bytes == 0)
            return std::nullopt;
        cut.gsm7 &= gsm7_code(c.code) >= 0;
        weights[0] += weight(c.code, false);
        weights[1] += weight(c.code, true);
        at += c.bytes;
    }
    if (text.empty())
        return std::nullopt;
    const part_rooms& rooms = cut.gsm7 ? rooms_gsm7 : rooms_utf16;
    const std::size_t room = weights[cut.gsm7] > rooms.single ? rooms.part : rooms.single;
    std::size_t in_part = 0;
    for (std::size_t at = 0; at < text.size();) {
        const utf8_character c = utf8_read(behind(text, at));
        const std::size_t one = weight(c.code, cut.gsm7);
        if (in_part + one > room) {
            if (cut.parts + 1 == most_parts) // and the last one is still to come
                return std::nullopt;
            cut.ends[cut.parts++] = static_cast<int>(at);
            in_part = 0;
        }
        in_part += one;
        at += c.bytes;
    }
    cut.ends[cut.parts++] = static_cast<int>(text.size());
    return cut;
}

// TS 23.040 9.2.3.12.1.
octet sms_validity(unsigned minutes)
{
    constexpr unsigned hour = 60, day = 24 * hour, week = 7 * day;
    constexpr struct {
        unsigned up_to; // minutes
        unsigned behind;
        unsigned step;
        int value; // of no step at all
    } rows[] = {{12 * hour, 0, 5, -1},
                {day, 12 * hour, 30, 143},
                {30 * day, 0, day, 166},
                {63 * week, 0, week, 192}};
    for (const auto& row : rows)
        if (minutes != KELO_SMS_LONGEST_VALIDITY && minutes <= row.up_to)
            return static_cast<octet>(
                row.value + static_cast<int>((minutes - row.behind + row.step - 1) / row.step));
    return 0xFF;
}

std::optional<pdu_text> sms_compose_part(const composed_text& cut, std::string_view text, int part,
                                         const submit_options& options)
{
    const std::string_view sca = without_plus(options.sca);
    if (!are_digits(without_plus(options.destination)) || part < 1 || part > cut.parts)
        return std::nullopt;
    submit_data data;
    const bool header = cut.parts > 1;
    if (header) {
        const octet concat[] = {0x05,
                                udh_element::concat_8bit,
                                0x03,
                                options.reference,
                                static_cast<octet>(cut.parts),
                                static_cast<octet>(part)};
        std::copy(std::begin(concat), std::end(concat), data.octets);
        data.length = cut.gsm7 ? concat_septets : concat_header;
    }
    const auto end = static_cast<std::size_t>(cut.ends[part - 1]);
    std::string_view rest =
        behind(ahead(text, end), part > 1 ? static_cast<std::size_t>(cut.ends[part - 2]) : 0);
    while (!rest.empty()) {
        const utf8_character c = utf8_read(rest);
        data.put(c.code, cut.gsm7);
        if (c.bytes == 0 || data.full)
            return std::nullopt; // not the text that was cut
        rest.remove_prefix(c.bytes);
    }

    constexpr int submit = 0x01, validity_relative = 0x10, wants_report = 0x20, class_0 = 0x10;
    pdu_text out;
    sms_put_centre(out, are_digits(sca) ? sca : std::string_view()); // else the modem's own
    sms_put_octets(out, {submit | validity_relative | (options.report ? wants_report : 0) |
                             (header ? has_header_bit : 0),
                         0x00}); // TP-MR: the modem counts
    sms_put_destination(out, options.destination);
    sms_put_octets(out, {0x00, // TP-PID
                         (cut.gsm7 ? 0x00 : dcs_ucs2) | (options.flash ? class_0 : 0),
                         options.validity, static_cast<int>(data.length)});
    sms_hex_encode(out, {data.octets, cut.gsm7 ? (7 * data.length + 7) / 8 : data.length});
    return out;
}

} // namespace kelo
