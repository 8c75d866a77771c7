// Messages on their way out: the cut into parts, and the PDU of one part (SMS-SUBMIT of 3GPP TS
// 23.040 9.2.2.2 behind its service centre).
#include "sms/sms.h"

#include "support/diag.h"

#include <algorithm>
#include <cstring>

namespace kelo
{

namespace
{

constexpr int most_parts = 255; // the count and a part's number are one octet each

// Limits of a message in one part and of the parts of a longer one, in septets, characters, bytes.
struct part_limits {
    int single;
    int part;
};
constexpr part_limits limits_gsm7 = {160, 151};
constexpr part_limits limits_utf8 = {70, 66};
constexpr part_limits limits_ucs2 = {140, 132};

constexpr octet header_gsm7[] = {0x06, 0x08, 0x04, 0x00}; // 16-bit reference, its high octet
constexpr octet header_ucs2[] = {0x05, 0x00, 0x03};       // 8-bit reference
constexpr int header_gsm7_octets = 7;
constexpr int header_gsm7_septets = 8; // exactly, so that the text needs no fill bits
constexpr int header_ucs2_octets = 6;

// Starts a cut: the copy of the text, and no part yet.
void begin_cut(sms_pdu_msg* msg, const char* text, char* work, int part_size, int udhl)
{
    std::memcpy(work, text, static_cast<std::size_t>(msg->length));
    msg->part_size = part_size;
    msg->udhl = udhl;
    msg->count = 0;
}

bool end_part(sms_pdu_msg* msg, int end)
{
    if (msg->count >= most_parts)
        return false;
    msg->offsets[msg->count++] = end;
    return true;
}

int too_many_parts()
{
    diag_at(plain, __func__, "refused a message of more than %d parts\n", most_parts);
    return -1;
}

// The cut that counts any three bytes from 0x80 up as one character, as Chinese text has them. Text
// in other scripts can come out with too much in a part, or with an end that belongs to none.
bool cut_by_threes(sms_pdu_msg* msg, const char* text)
{
    int group = 0; // high bytes of the character in progress
    int in_part = 0;
    int total = 0;
    int cut = 0; // where the first part ends when there is another
    for (int i = 0; i < msg->length; i++) {
        group = octet(text[i]) >= 0x80 ? group + 1 : 0;
        if (group == 0 || group == 3) {
            group = 0;
            in_part++;
            total++;
        }
        if (total == limits_utf8.part && group == 0) {
            cut = i + 1;
        } else if (total > limits_utf8.single && msg->count == 1 &&
                   msg->part_size != limits_utf8.part) {
            msg->part_size = limits_utf8.part;
            msg->udhl = 1;
            msg->offsets[0] = cut;
            in_part = total - limits_utf8.part;
        } else if (in_part == msg->part_size && group == 0) {
            if (!end_part(msg, i + 1))
                return false;
            in_part = 0;
        }
    }
    return in_part == 0 || end_part(msg, msg->length);
}

// Whether each part holds whole characters that fit it, and all of the text is in one.
bool is_sound(const sms_pdu_msg* msg, const char* text)
{
    const int room =
        (msg->udhl != 0 ? user_data_octets - header_ucs2_octets : user_data_octets) / 2;
    int at = 0;
    for (int part = 0; part < msg->count; part++) {
        int units = 0;
        while (at < msg->offsets[part]) {
            const utf8_step step = sms_utf8_step(text + at, msg->length - at);
            units += step.units;
            at += step.bytes;
        }
        if (at != msg->offsets[part] || units > room)
            return false;
    }
    return at == msg->length;
}

int count_units(const char* text, int length)
{
    int units = 0;
    for (int at = 0; at < length;) {
        const utf8_step step = sms_utf8_step(text + at, length - at);
        units += step.units;
        at += step.bytes;
    }
    return units;
}

// The cut by the UCS-2 units that the text becomes.
bool cut_by_units(sms_pdu_msg* msg, const char* text)
{
    const bool longer = count_units(text, msg->length) > limits_utf8.single;
    msg->part_size = longer ? limits_utf8.part : limits_utf8.single;
    msg->udhl = longer ? 1 : 0;
    msg->count = 0;
    int units = 0;
    for (int at = 0; at < msg->length;) {
        const utf8_step step = sms_utf8_step(text + at, msg->length - at);
        if (units + step.units > msg->part_size) {
            if (!end_part(msg, at))
                return false;
            units = 0;
        }
        units += step.units;
        at += step.bytes;
    }
    return end_part(msg, msg->length);
}

// Whether a cut at `at` would part the two halves of a character beyond UCS-2.
bool is_inside_pair(const char* at)
{
    return (octet(at[-2]) & 0xFC) == 0xD8 && (octet(at[0]) & 0xFC) == 0xDC;
}

// TP-UD behind its length: the header of a part, when it has one, and its text.
struct user_data {
    octet bytes[header_gsm7_octets + 280]; // as much as one encoding gives
    int octets = 0;
    int told = 0; // TP-UDL
};

template <std::size_t size>
void put_header(user_data& ud, const sms_pdu_msg* msg, int index, const octet (&head)[size],
                int told)
{
    if (msg->udhl != 1)
        return;
    std::memcpy(ud.bytes, head, size);
    ud.bytes[size] = msg->flag;
    ud.bytes[size + 1] = static_cast<octet>(msg->count);
    ud.bytes[size + 2] = static_cast<octet>(index);
    ud.octets = size + 3;
    ud.told = told;
}

// False for a part that has no room in one message.
bool put_text(user_data& ud, const sms_pdu_msg* msg, const char* part, int n, int index)
{
    if (msg->coding == 0) {
        put_header(ud, msg, index, header_gsm7, header_gsm7_septets);
        const auto length = static_cast<int>(strnlen(part, 1024));
        if (length > limits_gsm7.single)
            return false;
        octet septets = 0;
        const int octets =
            corvel_mobile_sms_encode_gsm7bit(part, ud.bytes + ud.octets, length + 1, &septets);
        if (octets < 0 || ud.octets + octets > user_data_octets)
            return false;
        ud.octets += octets;
        ud.told += septets;
        return true;
    }
    put_header(ud, msg, index, header_ucs2, header_ucs2_octets);
    const int room = user_data_octets - ud.octets;
    int octets = n;
    if (n < 0 || (msg->coding != 1 && n > room))
        return false;
    if (msg->coding == 1)
        octets = sms_utf8_to_ucs2(ud.bytes + ud.octets, room, part, n);
    else
        std::memcpy(ud.bytes + ud.octets, part, static_cast<std::size_t>(n));
    if (octets < 0)
        return false;
    ud.octets += octets;
    ud.told += octets;
    return true;
}

char* put_octet(char* out, int value)
{
    const auto byte = static_cast<octet>(value);
    return out + sms_hex_encode(&byte, out, 1);
}

char* put_service_centre(char* out, const char* sca)
{
    const auto digits = static_cast<int>(std::strlen(sca));
    if (digits == 0)
        return put_octet(out, 0);
    out = put_octet(out, (digits + 1) / 2 + 1);
    out = put_octet(out, 0x91);
    return out + sms_swap_digits(sca, out, digits);
}

char* put_destination(char* out, const char* da)
{
    const bool international = *da == '+';
    const char* const number = international ? da + 1 : da;
    const auto digits = static_cast<int>(std::strlen(number));
    out = put_octet(out, digits);
    out = put_octet(out, international ? 0x91 : 0x81);
    return out + sms_swap_digits(number, out, digits);
}

} // namespace

int sms_split_gsm7(sms_pdu_msg* msg, const char* text, char* work)
{
    if (msg == nullptr || text == nullptr || work == nullptr)
        return -1;
    const bool longer = msg->length > limits_gsm7.single;
    begin_cut(msg, text, work, longer ? limits_gsm7.part : limits_gsm7.single, longer ? 1 : 0);
    int septets = 0;
    for (int i = 0; i < msg->length; i++) {
        const auto c = static_cast<octet>(text[i]);
        const int next = i + 1 < msg->length ? octet(text[i + 1]) : 0;
        // A pair of bytes weighs two and stays whole.
        const bool pair = next != 0 && corvel_mobile_sms_ascii_to_gsm7bit(c, next) != 0;
        const int weight = pair || gsm7_is_extension(c) != 0 ? 2 : 1;
        if (septets + weight > msg->part_size) {
            if (!end_part(msg, i))
                return too_many_parts();
            septets = 0;
        }
        septets += weight;
        if (pair)
            i++;
    }
    if ((septets != 0 || msg->count == 0) && !end_part(msg, msg->length))
        return too_many_parts();
    return 0;
}

int sms_split_utf8(sms_pdu_msg* msg, const char* text, char* work)
{
    if (msg == nullptr || text == nullptr || work == nullptr)
        return -1;
    begin_cut(msg, text, work, limits_utf8.single, 0);
    if (cut_by_threes(msg, text) && is_sound(msg, text))
        return 0;
    return cut_by_units(msg, text) ? 0 : too_many_parts();
}

int sms_split_ucs2(sms_pdu_msg* msg, const char* text, char* work)
{
    if (msg == nullptr || text == nullptr || work == nullptr)
        return -1;
    const bool longer = msg->length > limits_ucs2.single;
    begin_cut(msg, text, work, longer ? limits_ucs2.part : limits_ucs2.single, longer ? 1 : 0);
    int at = 0;
    do {
        int end = std::min(at + msg->part_size, msg->length);
        if (end < msg->length && is_inside_pair(text + end))
            end -= 2;
        if (!end_part(msg, end))
            return too_many_parts();
        at = end;
    } while (at < msg->length);
    return 0;
}

int sms_number_valid(const char* text)
{
    if (text == nullptr || *text == '\0')
        return 0;
    if (*text == '+')
        text++;
    return text[std::strspn(text, "0123456789")] == '\0' ? 1 : 0;
}

int sms_swap_digits(const char* digits, char* out, int n)
{
    char* at = out;
    for (int i = 0; i < n; i += 2) {
        *at++ = i + 1 < n ? digits[i + 1] : 'F';
        *at++ = digits[i];
    }
    *at = '\0';
    return static_cast<int>(at - out);
}

} // namespace kelo

using namespace kelo;

int corvel_mobile_encode_pdu_sms(struct gsm_mobile* rec, struct sms_pdu_msg* msg, const char* part,
                                 char* out, int n, int index)
{
    if (rec == nullptr || msg == nullptr || part == nullptr || out == nullptr ||
        sms_number_valid(msg->da) == 0)
        return -1;
    user_data ud;
    if (!put_text(ud, msg, part, n, index))
        return -1;
    char* at = put_service_centre(out, msg->sca);
    at = put_octet(at, msg->udhl == 1 ? 0x71 : 0x31); // with a status report, validity relative
    at = put_octet(at, 0x00);                         // TP-MR
    at = put_destination(at, msg->da);
    at = put_octet(at, 0x00); // TP-PID
    at = put_octet(at, msg->coding == 0 ? 0x00 : dcs_ucs2);
    at = put_octet(at, 0x00); // TP-VP: five minutes
    at = put_octet(at, ud.told);
    at += sms_hex_encode(ud.bytes, at, ud.octets);
    return static_cast<int>(at - out);
}
