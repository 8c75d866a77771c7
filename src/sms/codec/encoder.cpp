// SPDX-License-Identifier: MIT
// The PDU of one part: SMS-SUBMIT of 3GPP TS 23.040 9.2.2.2 behind its service centre.
#include "sms/codec/codec.h"

namespace kelo
{

namespace
{

constexpr octet header_gsm7[] = {0x06, 0x08, 0x04, 0x00}; // 16-bit reference, its high octet
constexpr octet header_ucs2[] = {0x05, 0x00, 0x03};       // 8-bit reference
constexpr int header_gsm7_septets = 8;        // exactly, so that the text needs no fill bits
constexpr std::size_t longest_gsm7 = 2 * 160; // bytes of text: a Greek capital has two

// TP-UD and its length, in septets or octets: the header of a part, when it has one, and its text.
struct user_data {
    made<octet, user_data_octets> octets;
    int length = 0;
};

void put_header(user_data& ud, const sms_pdu_msg& msg, int index, std::span<const octet> head)
{
    const octet numbers[] = {msg.flag, static_cast<octet>(msg.count), static_cast<octet>(index)};
    if (msg.udhl == 1 && ud.octets.add(head) && ud.octets.add(numbers))
        ud.length = static_cast<int>(ud.octets.count);
}

// Both false for a part that has no room in one message.
bool put_gsm7(user_data& ud, const sms_pdu_msg& msg, std::string_view part, int index)
{
    put_header(ud, msg, index, header_gsm7);
    part = ahead(part, part.find('\0'));
    char terminated[longest_gsm7 + 1];
    const std::size_t length = part.copy(terminated, longest_gsm7);
    terminated[length] = '\0';
    const auto packed = gsm7_pack({terminated, length + 1});
    if (part.size() > longest_gsm7 || !packed || !ud.octets.add(packed->octets.all()))
        return false;
    ud.length = packed->septets + (ud.length > 0 ? header_gsm7_septets : 0);
    return true;
}

bool put_ucs2(user_data& ud, const sms_pdu_msg& msg, std::string_view part, int index)
{
    put_header(ud, msg, index, header_ucs2);
    if (msg.coding == KELO_PDU_CODING_UTF8) {
        const auto converted = sms_utf8_to_ucs2(part);
        if (!converted || !ud.octets.add(converted->all()))
            return false;
    } else if (!ud.octets.add({reinterpret_cast<const octet*>(part.data()), part.size()})) {
        return false;
    }
    ud.length = static_cast<int>(ud.octets.count);
    return true;
}

void sms_swap_digits(pdu_text& out, std::string_view digits)
{
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        out.add(i + 1 < digits.size() ? digits[i + 1] : 'F');
        out.add(digits[i]);
    }
}

} // namespace

void sms_put_octets(pdu_text& out, std::initializer_list<int> values)
{
    for (const int value : values) {
        const auto one = static_cast<octet>(value);
        sms_hex_encode(out, {&one, 1});
    }
}

void sms_put_centre(pdu_text& out, std::string_view digits)
{
    if (digits.empty())
        sms_put_octets(out, {0});
    else
        sms_put_octets(out, {static_cast<int>((digits.size() + 1) / 2 + 1), international});
    sms_swap_digits(out, digits);
}

void sms_put_destination(pdu_text& out, std::string_view number)
{
    const octet type = number[0] == '+' ? international : national;
    if (type == international)
        number.remove_prefix(1);
    sms_put_octets(out, {static_cast<int>(number.size()), type});
    sms_swap_digits(out, number);
}

std::optional<pdu_text> sms_encode_pdu(const sms_pdu_msg& msg, std::string_view part, int index)
{
    const std::string_view da = text_of(msg.da);
    user_data ud;
    if (!sms_number_valid(da) ||
        !(msg.coding == KELO_PDU_CODING_GSM7 ? put_gsm7 : put_ucs2)(ud, msg, part, index))
        return std::nullopt;
    pdu_text out;
    sms_put_centre(out, text_of(msg.sca));
    sms_put_octets(out, {msg.udhl == 1 ? 0x71 : 0x31, // with a status report, validity relative
                         0x00});                      // TP-MR
    sms_put_destination(out, da);
    sms_put_octets(out, {0x00,                                                 // TP-PID
                         msg.coding == KELO_PDU_CODING_GSM7 ? 0x00 : dcs_ucs2, // TP-DCS
                         0x00, // TP-VP: five minutes
                         ud.length});
    sms_hex_encode(out, ud.octets.all());
    return out;
}

bool sms_number_valid(std::string_view text)
{
    if (text.empty())
        return false;
    return behind(text, text[0] == '+' ? 1 : 0).find_first_not_of("0123456789") ==
           std::string_view::npos;
}

} // namespace kelo
