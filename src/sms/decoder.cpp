// A received PDU: SMS-DELIVER of 3GPP TS 23.040 9.2.2.1 behind its service centre, in hexadecimal.
// It is walked once, every field against the text that is there.
#include "sms/sms.h"

#include "support/diag.h"
#include "support/text.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>

namespace kelo
{

namespace
{

constexpr std::size_t shortest_pdu = 14;    // characters
constexpr std::size_t address_room = 30;    // characters of an address
constexpr octet international = 0x91;       // type of address
constexpr octet alphanumeric = 0xD0;        // the bits of a type that tell a name
constexpr std::size_t timestamp_width = 14; // characters

// The part of the PDU text that is still to be read.
struct reader {
    std::string_view rest;
    bool ended = false; // more was asked for than was there

    const char* take(std::size_t width)
    {
        if (rest.size() < width) {
            ended = true;
            return nullptr;
        }
        const char* const at = rest.data();
        rest.remove_prefix(width);
        return at;
    }
    octet take_octet()
    {
        const char* const at = take(2);
        return at == nullptr ? octet(0) : static_cast<octet>(gsm_hex2int(at, 2));
    }
};

// The text of `width` characters of an address, at most address_room.
void gsm_decode_address(char (&out)[32], const char* text, std::size_t width, octet type)
{
    if (type != international && (type & alphanumeric) == alphanumeric) {
        octet octets[address_room / 2] = {};
        gsm_hex_to_octets(octets, text, static_cast<int>(width / 2));
        const auto length = strnlen(reinterpret_cast<const char*>(octets), width / 2);
        gsm_address_to_8bit(octets, out, static_cast<int>(length));
        return;
    }
    char* digits = out;
    if (type == international)
        *digits++ = '+';
    gsm_swap_semi_octets(digits, text, static_cast<int>(width));
}

enum class walk { read, too_short, long_smsc, long_sender };

walk walk_pdu(const char* pdu, pdu_fields& fields)
{
    reader in = {pdu};
    if (in.rest.size() < shortest_pdu)
        return walk::too_short;
    fields.smsc_length = in.take_octet();
    if (fields.smsc_length != 0) {
        const std::size_t width = (fields.smsc_length - 1u) * 2;
        if (width > address_room + 1)
            return walk::long_smsc;
        fields.smsc_type = in.take_octet();
        const char* const address = in.take(width);
        if (address != nullptr)
            gsm_decode_address(fields.smsc_number, address, width, fields.smsc_type);
    }
    fields.first_octet = in.take_octet();
    fields.sender_length = in.take_octet();
    if (in.ended)
        return walk::too_short;
    if (fields.sender_length != 0) {
        if (fields.sender_length > address_room)
            return walk::long_sender;
        const std::size_t width = (fields.sender_length + 1u) & ~1u;
        fields.sender_type = in.take_octet();
        const char* const address = in.take(width);
        if (address != nullptr)
            gsm_decode_address(fields.sender_number, address, width, fields.sender_type);
    }
    fields.tp_pid = in.take_octet();
    fields.tp_dcs = in.take_octet();
    const char* const timestamp = in.take(timestamp_width);
    if (timestamp != nullptr)
        gsm_swap_semi_octets(fields.timestamp, timestamp, timestamp_width);
    fields.ud_length = in.take_octet();
    if (in.ended)
        return walk::too_short;
    const std::string_view data = in.rest.substr(0, user_data_room);
    std::memcpy(fields.user_data, data.data(), data.size());
    return walk::read;
}

bool has_header(const pdu_fields& fields)
{
    return (fields.first_octet & has_header_bit) != 0;
}

// The whole header with its length octet.
int header_octets(const pdu_fields& fields)
{
    return has_header(fields) ? static_cast<octet>(gsm_hex2int(fields.user_data, 2)) + 1 : 0;
}

bool is_ucs2(const pdu_fields& fields)
{
    return (fields.tp_dcs & dcs_ucs2) != 0;
}

void show_fields(const pdu_fields& f, text_block& block)
{
    if (has_header(f))
        block.add_number("User Data Header Indicator", 1);
    block.add_number("SMSC Length", f.smsc_length);
    if (f.smsc_length != 0) {
        block.add_hex("SMSC Type-of-address", f.smsc_type);
        block.add_text("SMSC Number", f.smsc_number);
    }
    block.add_hex("PDU First Octet", f.first_octet);
    block.add_number("Sender number length", f.sender_length);
    if (f.sender_length != 0) {
        block.add_hex("Sender Type-of-address", f.sender_type);
        block.add_text("Sender Number", f.sender_number);
    }
    block.add_hex("TP-PID", f.tp_pid);
    block.add_hex("TP-DCS", f.tp_dcs);
    block.add_text("Timestamp", f.timestamp);
    block.add_number("User data length", f.ud_length);
    block.add_text("User data", user_data_of(f));
}

// The text of one message, and what goes with it, ahead of the event record.
struct decoded_text {
    int coding = 0;
    int length = 0;
    char text[sizeof(event::text)] = {};
};

// Leaves the user data at the text, where it is UCS-2; septets run through the header.
void skip_header(pdu_fields& fields, int u)
{
    const std::size_t skipped = 2 * static_cast<std::size_t>(u);
    if (!is_ucs2(fields) || skipped >= user_data_room)
        return;
    const std::string_view data = user_data_of(fields);
    const std::size_t kept = data.size() > skipped ? data.size() - skipped : 0;
    std::memmove(fields.user_data, fields.user_data + skipped, kept);
    std::memset(fields.user_data + kept, 0, user_data_room - kept);
}

void decode_text(const pdu_fields& fields, int u, decoded_text& out, text_block& block)
{
    octet octets[ucs2_room] = {};
    char text_8bit[ucs2_room] = {};
    const std::string_view data = user_data_of(fields);
    // Pairs beyond the end of the text read as 0.
    char digits[2 * 256] = {};
    std::memcpy(digits, data.data(), data.size());
    gsm_hex_to_octets(octets, digits, fields.ud_length);
    out.length = fields.ud_length - u;
    if (is_ucs2(fields))
        out.coding = 1;
    else
        out.coding =
            gsm7_to_8bit(octets, text_8bit, static_cast<int>(data.size() / 2), u, out.length);
    block.add_text("User data 8bit", text_8bit);
    if (fields.ud_length == 0)
        return;
    if (out.coding == 0) {
        std::memcpy(out.text, text_8bit, static_cast<std::size_t>(out.length));
        return;
    }
    const int made = sms_get_str(octets, out.length, out.text, sizeof out.text);
    if (made > 0)
        out.length = made;
}

} // namespace

void text_block::add(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    va_list again;
    va_copy(again, values);
    auto wanted = static_cast<std::size_t>(
        std::vsnprintf(text + length, sizeof text - length, format, values));
    if (wanted >= sizeof text - length) {
        text[length] = '\0';
        print();
        wanted = static_cast<std::size_t>(std::vsnprintf(text, sizeof text, format, again));
    }
    length = std::min(length + wanted, sizeof text - 1);
    va_end(again);
    va_end(values);
}

void text_block::add_text(std::string_view name, std::string_view value)
{
    if (sizeof text - length < name.size() + value.size() + 5)
        print();
    for (const std::string_view piece :
         {name, std::string_view(" = "), value, std::string_view("\n")})
        length += piece.copy(text + length, sizeof text - 1 - length);
    text[length] = '\0';
}

void text_block::add_number(std::string_view name, int value)
{
    char digits[12];
    const char* const end = std::to_chars(digits, std::end(digits), value).ptr;
    add_text(name, {digits, static_cast<std::size_t>(end - digits)});
}

void text_block::add_hex(std::string_view name, unsigned value)
{
    char digits[12] = "0x";
    char* const begin = value != 0 ? digits + 2 : digits;
    const char* const end = std::to_chars(begin, std::end(digits), value, 16).ptr;
    add_text(name, {digits, static_cast<std::size_t>(end - digits)});
}

void text_block::print()
{
    if (length > 0)
        diag_plain("%s", text);
    length = 0;
}

// The second of each pair goes first; an "F" in the first place of a pair ends the digits.
void gsm_swap_semi_octets(char* out, const char* text, int n)
{
    for (int i = 0; i + 1 < n; i += 2) {
        *out++ = text[i + 1];
        if (text[i] == 'F' || text[i] == 'f')
            break;
        *out++ = text[i];
    }
    *out = '\0';
}

int gsm_parse_pdu_fields(const char* pdu, pdu_fields& fields)
{
    const walk result = walk_pdu(pdu, fields);
    if (result == walk::too_short)
        diag_plain("PDU too short:%s\n", pdu);
    else if (result == walk::long_smsc)
        diag_plain("smsc number is too long");
    else if (result == walk::long_sender)
        diag_plain("Sender number is too long");
    return result == walk::read ? 0 : -1;
}

// TS 23.040 9.2.3.11. The zone counts quarters of an hour, with its sign in bit 3 of the first
// digit.
void gsm_format_sms_time(const char* timestamp, char* time_out, std::size_t time_size,
                         char* zone_out, std::size_t zone_size)
{
    constexpr char separators[] = "-- ::"; // behind each pair but the last
    char time[] = "20YY-MM-DD hh:mm:ss";
    char* at = time + 2;
    for (int pair = 0; pair < 6; pair++) {
        for (int i = 2 * pair; i < 2 * pair + 2 && timestamp[i] != '\0'; i++)
            *at++ = timestamp[i];
        if (pair < 5)
            *at++ = separators[pair];
    }
    *at = '\0';
    text_copy(time_out, time_size, time);
    const int tens = gsm_hex2int(timestamp + 12, 1);
    const int quarters = (tens & 7) * 10 + gsm_hex2int(timestamp + 13, 1);
    std::snprintf(zone_out, zone_size, (tens & 8) != 0 ? "GMT-%d" : "GMT+%d", quarters / 4);
}

bool sms_read_pdu(const char* pdu, kelo_sms& out, bool& complete)
{
    pdu_fields fields = {};
    complete = false;
    if (walk_pdu(pdu, fields) != walk::read)
        return false;
    text_set(out.smsc, fields.smsc_number);
    text_set(out.sender, fields.sender_number);
    gsm_format_sms_time(fields.timestamp, out.time, sizeof out.time, out.zone, sizeof out.zone);

    octet octets[user_data_room / 2];
    const int there = static_cast<int>(user_data_of(fields).size() / 2);
    gsm_hex_to_octets(octets, fields.user_data, there);
    const bool ucs2 = is_ucs2(fields);
    const int told = ucs2 ? fields.ud_length : (fields.ud_length * 7 + 7) / 8;
    complete = there >= told;
    const int u = header_octets(fields);
    if (u > fields.ud_length || u > there) {
        out.coding = ucs2 ? 1 : 0;
        return true; // no saying where a text would begin
    }
    long_sms_info numbers = {};
    if (u > 0 && sms_read_header(user_data_of(fields), numbers, nullptr)) {
        out.reference = numbers.flag;
        out.total = numbers.total;
        out.number = numbers.now;
    }
    if (ucs2) {
        out.coding = 1;
        out.length = utf16_to_utf8(octets + u, std::min<int>(fields.ud_length, there) - u, out.text,
                                   sizeof out.text);
        return true;
    }
    octet septets[2 * sizeof octets + 1];
    const int first = gsm7_text_start(u);
    const int count = std::min<int>(gsm7_unpack(septets, octets, there), fields.ud_length) - first;
    bool plain = true;
    for (int i = 0; i < count; i++)
        plain = plain && gsm7_is_plain(septets[first + i]);
    if (plain) {
        for (int i = 0; i < count; i++)
            out.text[out.length++] = static_cast<char>(GSM7BITtoASCII8BIT[septets[first + i]]);
        return true;
    }
    octet ucs2_text[2 * sizeof septets];
    out.coding = 2;
    out.length = utf16_to_utf8(ucs2_text, gsm7_to_ucs2(ucs2_text, septets + first, count), out.text,
                               sizeof out.text);
    return true;
}

} // namespace kelo

using namespace kelo;

int libgsm_pdu_decode(struct gsm_mobile*, struct gsm_event* what, const char* pdu)
{
    pdu_fields fields = {};
    if (what == nullptr || pdu == nullptr || gsm_parse_pdu_fields(pdu, fields) != 0)
        return -1;
    text_block block; // all that the message prints, in one piece
    show_fields(fields, block);
    const int u = header_octets(fields);
    bool stopped = false;
    {
        const lock_scope hold(record_lock);
        text_set(what->smsc, fields.smsc_number);
        text_set(what->sender, fields.sender_number);
        what->length = fields.ud_length;
        stopped = u > fields.ud_length; // what stands behind keeps what the message before left
        if (!stopped && !has_header(fields))
            long_sms_release(*what);
    }
    if (stopped) {
        block.print();
        return 0;
    }
    if (has_header(fields)) {
        sms_handle_header(*what, fields, block);
        skip_header(fields, u);
    }
    decoded_text out;
    decode_text(fields, u, out, block);
    block.print();
    const lock_scope hold(record_lock);
    what->coding = out.coding;
    what->length = out.length;
    std::memcpy(what->text, out.text, sizeof what->text);
    gsm_format_sms_time(fields.timestamp, what->sms_time, sizeof what->sms_time, what->time_zone,
                        sizeof what->time_zone);
    return 0;
}
