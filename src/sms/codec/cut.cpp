// SPDX-License-Identifier: MIT
// The coding of a text on its way out, and its cut into parts.
#include "sms/codec/codec.h"

#include "support/text.h"

namespace kelo
{

namespace
{

// Weights of a message in one part and of the parts of a longer one: septets, characters, octets.
struct part_limits {
    int single;
    int part;
};
constexpr part_limits limits_gsm7 = {160, 151};
constexpr part_limits limits_utf8 = {70, 66};
constexpr part_limits limits_ucs2 = {140, 132};

void begin_cut(sms_pdu_msg& msg, const part_limits& limits, bool longer)
{
    msg.part_size = longer ? limits.part : limits.single;
    msg.udhl = longer ? 1 : 0;
    msg.count = 0;
}

bool end_part(sms_pdu_msg& msg, std::size_t end)
{
    if (msg.count >= most_parts)
        return false;
    msg.offsets[msg.count++] = static_cast<int>(end);
    return true;
}

// As many whole pieces into each part as it has room for.
bool cut(sms_pdu_msg& msg, std::string_view text, text_piece (*piece_at)(std::string_view text))
{
    int in_part = 0;
    for (std::size_t at = 0; at < text.size();) {
        const text_piece piece = piece_at(behind(text, at));
        if (in_part + piece.weight > msg.part_size) {
            if (!end_part(msg, at))
                return false;
            in_part = 0;
        }
        in_part += piece.weight;
        at += piece.bytes;
    }
    return end_part(msg, text.size());
}

bool is_greek(char c, char next)
{
    return corvel_mobile_sms_ascii_to_gsm7bit(octet(c), octet(next)) != 0;
}

// A pair of bytes weighs two and stays whole.
text_piece gsm7_piece(std::string_view text)
{
    if (text.size() > 1 && text[1] != '\0' && is_greek(text[0], text[1]))
        return {2, 2};
    return {1, gsm7_is_extension(text[0]) ? 2 : 1};
}

// The two halves of a character beyond UCS-2 stay together.
text_piece ucs2_piece(std::string_view text)
{
    if (text.size() > 2 && (octet(text[0]) & 0xFC) == 0xD8 && (octet(text[2]) & 0xFC) == 0xDC)
        return {std::min<std::size_t>(text.size(), 4), 4};
    return {std::min<std::size_t>(text.size(), 2), 2};
}

bool sms_split_gsm7(sms_pdu_msg& msg, std::string_view text)
{
    begin_cut(msg, limits_gsm7, msg.length > limits_gsm7.single);
    return cut(msg, text, gsm7_piece);
}

bool sms_split_ucs2(sms_pdu_msg& msg, std::string_view text)
{
    begin_cut(msg, limits_ucs2, msg.length > limits_ucs2.single);
    return cut(msg, text, ucs2_piece);
}

// The cut that counts any three bytes from 0x80 up as one character, as Chinese text has them. Text
// in other scripts can come out with too much in a part, or with an end that belongs to none.
bool cut_by_threes(sms_pdu_msg& msg, std::string_view text)
{
    int group = 0; // high bytes of the character in progress
    int in_part = 0;
    int total = 0;
    std::size_t first_end = 0; // where the first part ends when there is another
    for (std::size_t i = 0; i < text.size(); i++) {
        group = octet(text[i]) >= 0x80 ? group + 1 : 0;
        if (group == 0 || group == 3) {
            group = 0;
            in_part++;
            total++;
        }
        if (total == limits_utf8.part && group == 0) {
            first_end = i + 1;
        } else if (total > limits_utf8.single && msg.count == 1 &&
                   msg.part_size != limits_utf8.part) {
            msg.part_size = limits_utf8.part;
            msg.udhl = 1;
            msg.offsets[0] = static_cast<int>(first_end);
            in_part = total - limits_utf8.part;
        } else if (in_part == msg.part_size && group == 0) {
            if (!end_part(msg, i + 1))
                return false;
            in_part = 0;
        }
    }
    return in_part == 0 || end_part(msg, text.size());
}

// The weight of the whole characters that begin in a text of this length.
text_piece weigh(std::string_view text, std::size_t length)
{
    text_piece all = {0, 0};
    while (all.bytes < std::min(length, text.size())) {
        const text_piece piece = sms_utf8_piece(behind(text, all.bytes));
        all = {all.bytes + piece.bytes, all.weight + piece.weight};
    }
    return all;
}

// Whether each part holds whole characters that fit it, and all of the text is in one.
bool is_sound(const sms_pdu_msg& msg, std::string_view text)
{
    const int room = (msg.udhl != 0 ? user_data_octets - ucs2_header_octets : user_data_octets) / 2;
    std::size_t at = 0;
    for (int i = 0; i < msg.count; i++) {
        const std::size_t length = static_cast<std::size_t>(msg.offsets[i]) - at;
        const text_piece part = weigh(behind(text, at), length);
        if (part.bytes != length || part.weight > room)
            return false;
        at += length;
    }
    return at == text.size();
}

bool sms_split_utf8(sms_pdu_msg& msg, std::string_view text)
{
    begin_cut(msg, limits_utf8, false);
    if (cut_by_threes(msg, text) && is_sound(msg, text))
        return true;
    begin_cut(msg, limits_utf8, weigh(text, text.size()).weight > limits_utf8.single);
    return cut(msg, text, sms_utf8_piece);
}

// The class of the bytes as sms_pdu_msg has it.
int coding_of(std::string_view text)
{
    int coding = KELO_PDU_CODING_GSM7;
    for (std::size_t i = 0; i < text.size(); i++) {
        const bool last = i + 1 == text.size();
        const char next = last ? '\0' : text[i + 1];
        // A lone 0xCE is let pass at the end alone; ahead of a NUL it is half a UCS-2 character.
        const bool paired = last || next != '\0';
        if (text[i] == '\0') {
            if (next != '\0')
                return KELO_PDU_CODING_UCS2;
        } else if (paired && is_greek(text[i], next)) {
            i++;
        } else if (octet(text[i]) >= 0x80 || text[i] == '`') {
            coding = KELO_PDU_CODING_UTF8;
        }
    }
    return coding;
}

} // namespace

std::optional<sms_pdu_msg> sms_detect_coding(sms_pdu_msg msg, std::string_view text)
{
    if (text.ends_with('\0'))
        text.remove_suffix(1);
    msg.length = static_cast<int>(text.size());
    msg.coding = coding_of(text);
    constexpr bool (*splitters[])(sms_pdu_msg&, std::string_view) = {sms_split_gsm7, sms_split_utf8,
                                                                     sms_split_ucs2};
    if (!splitters[msg.coding](msg, text))
        return std::nullopt;
    if (msg.coding == KELO_PDU_CODING_UCS2)
        text_set(msg.coding_name, "UCS2");
    return msg;
}

} // namespace kelo
