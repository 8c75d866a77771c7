// SPDX-License-Identifier: MIT
// The codec of short messages: hexadecimal, alphabets, and the PDUs of 3GPP TS 23.040.
//
// Texts and octets in, values out: nothing is locked, said or kept between two calls, so any thread
// may call. It stands on support alone; what is logged, stored or judged is the caller's.
#pragma once

#include <kelo/messages.h>
#include <kelo/sms.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <span>
#include <string_view>

// One element of a user data header.
struct udh_element {
    int id = 0;                    // 1 for the first element, then upward
    std::string_view info;         // hexadecimal, from this element to the end of the header
    unsigned char idin = 0;        // information element identifier
    const char* meaning = nullptr; // null for a reserved identifier
    int ieidln = 0;                // octets of its data
    std::string_view iedn;         // its data, hexadecimal

    // Of the elements that number the parts of a long message, by the width of its reference.
    static constexpr unsigned char concat_8bit = 0x00;
    static constexpr unsigned char concat_16bit = 0x08;
    bool is_concat() const { return idin == concat_8bit || idin == concat_16bit; }
};

namespace kelo
{

using octet = unsigned char;

constexpr octet has_header_bit = 0x40; // TP-UDHI
constexpr octet international = 0x91;  // types of address
constexpr octet national = 0x81;
constexpr octet dcs_ucs2 = 0x08;              // the one bit of TP-DCS that counts
constexpr std::size_t user_data_octets = 140; // of one TPDU, TS 23.040 9.2.3.24
constexpr std::size_t ucs2_header_octets = 6; // of a part in UCS-2
constexpr int most_parts = 255;               // the count and a part's number are one octet each

// What a call has made, in room for the most that it can make. What has no room is not added.
template <class item, std::size_t room> struct made {
    item items[room] = {};
    std::size_t count = 0;

    bool add(item one) { return add({&one, 1}); }
    bool add(std::span<const item> more)
    {
        if (more.size() > room - count)
            return false;
        std::copy(more.begin(), more.end(), items + count);
        count += more.size();
        return true;
    }
    std::span<const item> all() const { return {items, count}; }
};

// The text of a field, with nothing behind its end.
template <std::size_t size> std::string_view text_of(const char (&field)[size])
{
    return {field, strnlen(field, size)};
}

// The view from `at` on, and that of the first `length`. Not substr: it can throw, and would bring
// the C++ run time along.
inline std::string_view behind(std::string_view text, std::size_t at)
{
    text.remove_prefix(std::min(at, text.size()));
    return text;
}
inline std::string_view ahead(std::string_view text, std::size_t length)
{
    return {text.data(), std::min(length, text.size())};
}

// ---- Hexadecimal and the GSM 7-bit default alphabet (alphabet.cpp)

using pdu_text = made<char, 1024>;
using unpacked_text = made<octet, 320 + 320 / 7>; // of the most octets that are unpacked at once

constexpr std::string_view hex_digits = "0123456789ABCDEFabcdef";

// Digits beyond the end of the text count as 0.
octet hex_octet(std::string_view text, std::size_t index);
void gsm_hex_to_octets(std::span<octet> out, std::string_view text);
void sms_hex_encode(pdu_text& out, std::span<const octet> octets);

bool gsm7_is_extension(char c); // takes an escape and a septet

struct packed_text {
    made<octet, 280> octets;
    octet septets; // without the last one
};
// A text and the one character behind it, which is to end it. None for more than 320 septets.
std::optional<packed_text> gsm7_pack(std::string_view text);

unpacked_text gsm7_unpack(std::span<const octet> octets); // n octets become n + n / 7 septets

// The septets behind a header of so many octets.
std::span<const octet> gsm7_behind(std::span<const octet> septets, std::size_t header_octets);

// ISO 8859-1, or UCS-2, big endian, for septets with a Greek letter or an escape among them.
struct septet_text {
    bool ucs2;
    made<octet, 2 * sizeof(unpacked_text::items)> bytes;
};
septet_text gsm7_read(std::span<const octet> septets);

made<char, 32> gsm_address_to_8bit(std::span<const octet> octets); // of an alphanumeric address

// The same alphabet as phones have it, with its Greek and its euro sign throughout.
constexpr octet gsm7_escape = 0x1B;
char16_t gsm7_character(octet septet); // a space for the escape
char16_t gsm7_extended(octet code);    // behind the escape; 0 for none
int gsm7_code(char32_t character);     // the septet, or 0x1B00 and the code; -1 for none

// ---- UCS-2 and UTF-8 (unicode.cpp)

// A character in UTF-16, big endian: a unit of two octets, or a pair of them.
inline made<octet, 4> utf16_of(char32_t c)
{
    if (c <= 0xFFFF)
        return {{octet(c >> 8), octet(c)}, 2};
    const char32_t high = 0xD800 + ((c - 0x10000) >> 10);
    const char32_t low = 0xDC00 + (c & 0x3FF);
    return {{octet(high >> 8), octet(high), octet(low >> 8), octet(low)}, 4};
}

// UCS-2, big-endian, to UTF-8, as far as it is well formed and has room; `whole` says whether it
// all was. No zero is put behind it.
struct utf8_made {
    std::size_t length;
    bool whole;
};
utf8_made ucs2_to_utf8(std::span<const octet> data, std::span<char> out);

// UTF-16, big endian, into UTF-8 without a mark at its head, terminated; half a pair becomes
// U+FFFD. Gives the bytes written.
int utf16_to_utf8(std::span<const octet> data, std::span<char> out);

// The character at the head of a text that is not empty; of 0 bytes when it is no UTF-8.
struct utf8_character {
    char32_t code;
    std::size_t bytes;
};
utf8_character utf8_read(std::string_view text);

// UCS-2, big endian, of UTF-8; none for more than a message has room for.
std::optional<made<octet, user_data_octets>> sms_utf8_to_ucs2(std::string_view text);

// What may not be parted at the head of a text, and what it takes of a message.
struct text_piece {
    std::size_t bytes;
    int weight;
};
// One UTF-8 character, as that conversion takes it, and the UCS-2 units that it becomes.
text_piece sms_utf8_piece(std::string_view text);

// ---- User data headers (header.cpp)

// The walk over the elements of a header.
struct udh_walk {
    std::string_view rest; // of the header, in hexadecimal
    udh_element element = {};
};
// At the head of user data in hexadecimal; none for a header that is longer than that.
std::optional<udh_walk> sms_open_header(std::string_view user_data);
// Reads the next element. False at the end, and for an element that would run past it, which is
// then the rest.
bool sms_parse_element(udh_walk& walk);

struct part_numbers {
    int reference = 0; // the same for all parts of the message
    int total = 0;
    int number = 0; // from 1
};
// Of a concatenation element; none when its data is too short.
std::optional<part_numbers> sms_concat(const udh_element& element);

// ---- Received PDUs (decoder.cpp)

enum class pdu_fault { none, too_short, long_smsc, long_sender };

struct pdu_walk {
    pdu_fault fault = pdu_fault::none;
    pdu_fields fields = {}; // up to the fault
};
// SMS-DELIVER behind its service centre, in hexadecimal.
pdu_walk gsm_parse_pdu_fields(std::string_view pdu);

// Octets of the header with its length octet; 0 without one.
std::size_t header_octets(const pdu_fields& fields);

// The text as gsm_event has it: of as many octets as TP-UDL says, zeros where there are fewer.
struct event_text {
    int coding; // enum kelo_sms_coding; but for ISO 8859-1 the bytes are UCS-2 yet, big endian
    int length; // of the bytes; of ISO 8859-1 those that are the text, whether there or not
    decltype(septet_text::bytes) bytes;
};
event_text sms_event_text(const pdu_fields& fields);

struct sms_time {
    char time[32] = {};
    char zone[16] = {};
};
sms_time gsm_format_sms_time(const pdu_fields& fields);

// The whole message, exactly, as the queue has it.
struct pdu_message {
    bool readable = false;
    bool complete = false; // all of the user data was there
    kelo_sms message = {};
};
pdu_message sms_read_pdu(std::string_view pdu);

// ---- Messages on their way out (cut.cpp, encoder.cpp)

// The record with the coding of this text, its length and the cut into parts; none for more than
// most_parts.
std::optional<sms_pdu_msg> sms_detect_coding(sms_pdu_msg msg, std::string_view text);

// The PDU of one part, SMS-SUBMIT behind its service centre; index from 1. None for a da that is no
// number, or a part that has no room in one message.
std::optional<pdu_text> sms_encode_pdu(const sms_pdu_msg& msg, std::string_view part, int index);

bool sms_number_valid(std::string_view text);

// Fields of a PDU. The service centre: digits, or empty for the modem's own.
void sms_put_octets(pdu_text& out, std::initializer_list<int> values);
void sms_put_centre(pdu_text& out, std::string_view digits);
void sms_put_destination(pdu_text& out, std::string_view number);

// ---- Whole messages: what kelo/messages.h sends and receives (compose.cpp, read_message.cpp,
// national.cpp)

// A text on its way out in UTF-8: in the 7-bit alphabet where that has all of it, else in UTF-16.
struct composed_text {
    bool gsm7 = false;
    int parts = 0;
    int ends[most_parts] = {}; // of each part in the text, in bytes
};
// None for an empty text, what is no UTF-8, and what has no room in most_parts.
std::optional<composed_text> sms_compose(std::string_view text);

struct submit_options {
    std::string_view sca = {};    // digits, or empty for the modem's own
    std::string_view destination; // digits, perhaps "+" ahead
    octet reference = 0;          // of the parts of one message
    octet validity = 0xFF;        // TP-VP, relative
    bool report = false;
    bool flash = false;
};
octet sms_validity(unsigned minutes); // TP-VP of at least so long, 0: the longest

// SMS-SUBMIT of one part, from 1. None for a destination that is no number of 1 to 20 digits.
std::optional<pdu_text> sms_compose_part(const composed_text& cut, std::string_view text, int part,
                                         const submit_options& options);

// Septets in UTF-16, big endian, by the tables that a message names: the default one for 0, and
// for a language without a table.
struct national_tables {
    octet locking = 0;
    octet single = 0; // behind the escape
};
using utf16_text = made<octet, 640>;
utf16_text sms_septets_to_utf16(std::span<const octet> septets, national_tables tables);

struct part_time {
    char text[20] = {}; // "2024-05-17 09:30:12"
    int zone = 0;       // quarters of an hour east
};

// One part as it came. Every octet and length is checked; nothing reads past the PDU. A PDU is
// hexadecimal alone here, behind its service centre: what has anything else in it is none.
struct message_part {
    char sender[64] = {}; // UTF-8
    char smsc[32] = {};
    part_time time;
    int dcs = -1;
    int message_class = -1;
    bool data = false;                // octets, else UTF-16, big endian
    int port_to = -1, port_from = -1; // of an application
    part_numbers numbers;             // total 0: a message by itself
    bool wide_reference = false;
    utf16_text content;       // 160 characters of 7 bits are at most 320 octets
    std::uint64_t digest = 0; // of the whole PDU
};
std::optional<message_part> sms_read_deliver(std::string_view pdu);

struct status_report {
    int reference = 0;
    char recipient[32] = {};
    part_time sent, discharged;
    int status = 0;
};
std::optional<status_report> sms_read_status_report(std::string_view pdu);

enum kelo_sms_delivery sms_delivery(int status); // 23.040 9.2.3.15

} // namespace kelo
