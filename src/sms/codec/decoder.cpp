// SPDX-License-Identifier: MIT
// A received PDU: SMS-DELIVER of 3GPP TS 23.040 9.2.2.1 behind its service centre, in hexadecimal.
// It is walked once, every field against the text that is there.
#include "sms/codec/codec.h"

#include "support/text.h"

#include <cstdio>

namespace kelo
{

namespace
{

constexpr std::size_t shortest_pdu = 14;    // characters
constexpr std::size_t address_room = 30;    // characters of an address
constexpr octet alphanumeric = 0xD0;        // the bits of a type that tell a name
constexpr std::size_t timestamp_width = 14; // characters

// The part of the PDU text that is still to be read.
struct reader {
    std::string_view rest;
    bool ended = false; // more was asked for than was there

    std::string_view take(std::size_t width)
    {
        ended |= rest.size() < width;
        const std::string_view taken = ahead(rest, width);
        rest.remove_prefix(taken.size());
        return taken;
    }
    octet take_octet() { return hex_octet(take(2), 0); }
};

// The second of each pair goes first; an "F" in the first place of a pair ends the digits.
void gsm_swap_semi_octets(char* out, std::string_view text)
{
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        *out++ = text[i + 1];
        if (text[i] == 'F' || text[i] == 'f')
            break;
        *out++ = text[i];
    }
}

// Into a field that is zero, of a text of at most address_room.
void gsm_decode_address(char (&out)[32], std::string_view text, octet type)
{
    if (type == international) {
        out[0] = '+';
        gsm_swap_semi_octets(out + 1, text);
    } else if ((type & alphanumeric) != alphanumeric) {
        gsm_swap_semi_octets(out, text);
    } else {
        octet octets[address_room / 2] = {};
        gsm_hex_to_octets({octets, text.size() / 2}, text);
        const octet* const end = std::find(octets, std::end(octets), 0);
        const auto name = gsm_address_to_8bit({octets, end});
        std::memcpy(out, name.items, name.count);
    }
}

bool has_header(const pdu_fields& fields)
{
    return (fields.first_octet & has_header_bit) != 0;
}

bool is_ucs2(const pdu_fields& fields)
{
    return (fields.tp_dcs & dcs_ucs2) != 0;
}

} // namespace

pdu_walk gsm_parse_pdu_fields(std::string_view pdu)
{
    pdu_walk walk = {pdu_fault::too_short, {}};
    pdu_fields& fields = walk.fields;
    reader in = {pdu};
    if (in.rest.size() < shortest_pdu)
        return walk;
    fields.smsc_length = in.take_octet();
    if (fields.smsc_length != 0) {
        const std::size_t width = (fields.smsc_length - 1u) * 2;
        if (width > address_room) {
            walk.fault = pdu_fault::long_smsc;
            return walk;
        }
        fields.smsc_type = in.take_octet();
        gsm_decode_address(fields.smsc_number, in.take(width), fields.smsc_type);
    }
    fields.first_octet = in.take_octet();
    fields.sender_length = in.take_octet();
    if (in.ended)
        return walk;
    if (fields.sender_length != 0) {
        if (fields.sender_length > address_room) {
            walk.fault = pdu_fault::long_sender;
            return walk;
        }
        fields.sender_type = in.take_octet();
        gsm_decode_address(fields.sender_number, in.take((fields.sender_length + 1u) & ~1u),
                           fields.sender_type);
    }
    fields.tp_pid = in.take_octet();
    fields.tp_dcs = in.take_octet();
    gsm_swap_semi_octets(fields.timestamp, in.take(timestamp_width));
    fields.ud_length = in.take_octet();
    in.rest.copy(fields.user_data, sizeof fields.user_data);
    if (!in.ended)
        walk.fault = pdu_fault::none;
    return walk;
}

std::size_t header_octets(const pdu_fields& fields)
{
    return has_header(fields) ? hex_octet(text_of(fields.user_data), 0) + std::size_t(1) : 0;
}

event_text sms_event_text(const pdu_fields& fields)
{
    const std::size_t header = header_octets(fields);
    event_text text = {is_ucs2(fields) ? KELO_SMS_CODING_UCS2 : KELO_SMS_CODING_LATIN1,
                       fields.ud_length - static_cast<int>(header),
                       {}};
    std::string_view data = text_of(fields.user_data);
    if (text.coding == KELO_SMS_CODING_UCS2) {
        // A header longer than the field is none to step over.
        if (2 * header < sizeof fields.user_data)
            data = behind(data, 2 * header);
        text.bytes.count = static_cast<std::size_t>(std::max(text.length, 0));
        gsm_hex_to_octets({text.bytes.items, text.bytes.count}, data);
        return text;
    }
    octet octets[256] = {};
    gsm_hex_to_octets({octets, fields.ud_length}, data);
    const unpacked_text unpacked = gsm7_unpack({octets, data.size() / 2});
    const septet_text read = gsm7_read(gsm7_behind(unpacked.all(), header));
    text.bytes = read.bytes;
    if (read.ucs2) {
        text.coding = KELO_SMS_CODING_GSM7;
        text.length = static_cast<int>(read.bytes.count);
    }
    return text;
}

// TS 23.040 9.2.3.11. The zone counts quarters of an hour, with its sign in bit 3 of the first
// digit.
sms_time gsm_format_sms_time(const pdu_fields& fields)
{
    sms_time read;
    const char* const stamp = fields.timestamp;
    char* to = std::copy_n("20", 2, read.time);
    for (int i = 0; i < 12; i += 2) {
        if (i > 0)
            *to++ = "--- ::"[i / 2];
        if (stamp[i] == '\0')
            continue;
        *to++ = stamp[i];
        if (stamp[i + 1] != '\0')
            *to++ = stamp[i + 1];
    }
    const octet zone = hex_octet({stamp, timestamp_width}, 6);
    const int quarters = (zone >> 4 & 7) * 10 + (zone & 15);
    const int hours = quarters / 4; // two digits at most
    to = std::copy_n((zone & 0x80) != 0 ? "GMT-" : "GMT+", 4, read.zone);
    if (hours >= 10)
        *to++ = static_cast<char>('0' + hours / 10);
    *to = static_cast<char>('0' + hours % 10);
    return read;
}

pdu_message sms_read_pdu(std::string_view pdu)
{
    const pdu_walk walk = gsm_parse_pdu_fields(pdu);
    if (walk.fault != pdu_fault::none)
        return {};
    const pdu_fields& fields = walk.fields;
    pdu_message read = {true, false, {}};
    kelo_sms& out = read.message;
    text_widen(out.smsc, fields.smsc_number);
    text_widen(out.sender, fields.sender_number);
    const sms_time time = gsm_format_sms_time(fields);
    text_widen(out.time, time.time);
    text_widen(out.zone, time.zone);

    const std::string_view data = text_of(fields.user_data);
    octet all[sizeof fields.user_data / 2];
    const std::span octets(all, data.size() / 2);
    gsm_hex_to_octets(octets, data);
    const std::size_t udl = fields.ud_length;
    const std::size_t header = header_octets(fields);
    out.coding = is_ucs2(fields) ? KELO_SMS_CODING_UCS2 : KELO_SMS_CODING_LATIN1;
    read.complete = octets.size() >= (is_ucs2(fields) ? udl : (udl * 7 + 7) / 8);
    if (header > udl || header > octets.size())
        return read; // no saying where a text would begin
    if (header > 0)
        if (auto elements = sms_open_header(data))
            while (sms_parse_element(*elements))
                if (const auto numbers = sms_concat(elements->element)) {
                    out.reference = numbers->reference;
                    out.total = numbers->total;
                    out.number = numbers->number;
                }
    if (is_ucs2(fields)) {
        out.length =
            utf16_to_utf8(octets.first(std::min(udl, octets.size())).subspan(header), out.text);
        return read;
    }
    const unpacked_text unpacked = gsm7_unpack(octets);
    const septet_text text =
        gsm7_read(gsm7_behind(unpacked.all().first(std::min(unpacked.count, udl)), header));
    if (text.ucs2) {
        out.coding = KELO_SMS_CODING_GSM7;
        out.length = utf16_to_utf8(text.bytes.all(), out.text);
    } else {
        out.length = static_cast<int>(text.bytes.count);
        std::memcpy(out.text, text.bytes.items, text.bytes.count);
    }
    return read;
}

} // namespace kelo
