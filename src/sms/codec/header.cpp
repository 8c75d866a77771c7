// SPDX-License-Identifier: MIT
// The user data header of a received message, 3GPP TS 23.040 9.2.3.24.
#include "sms/codec/codec.h"

namespace kelo
{

namespace
{

struct meaning_row {
    octet first;
    octet last;
    const char* text; // behind "The IDIn 0x%02x is "
};

constexpr meaning_row meanings[] = {
    {0x00, 0x00, "Concatenated short message , 8-bit reference number"},
    {0x01, 0x01, "Special SMS Message Indication"},
    {0x03, 0x03, "Value not used to avoid misinterpretation as <LF> character"},
    {0x04, 0x04, "Application port addressing scheme , 8 bit address"},
    {0x05, 0x05, "Application port addressing scheme , 16 bit address"},
    {0x06, 0x06, "SMSC Control Parameters"},
    {0x07, 0x07, "UDH Source Indicator"},
    {0x08, 0x08, "Concatenated short message, 16-bit reference number"},
    {0x09, 0x09, "Wireless Control Message Protocol"},
    {0x70, 0x7F, "SIM Toolkit Security Headers"},
    {0x80, 0x9F, "SME to SME specific use"},
    {0xC0, 0xDF, "SC specific use"},
};

// Null for a reserved identifier.
const char* meaning_of(octet idin)
{
    for (const meaning_row& row : meanings)
        if (idin >= row.first && idin <= row.last)
            return row.text;
    return nullptr;
}

} // namespace

std::optional<udh_walk> sms_open_header(std::string_view user_data)
{
    const std::size_t length = 2 * (hex_octet(user_data, 0) + std::size_t(1));
    if (user_data.size() < 2 || length > user_data.size())
        return std::nullopt;
    return udh_walk{behind(ahead(user_data, length), 2)};
}

bool sms_parse_element(udh_walk& walk)
{
    if (walk.rest.size() < 2)
        return false;
    udh_element& e = walk.element;
    const octet idin = hex_octet(walk.rest, 0);
    e = {e.id + 1, walk.rest, idin, meaning_of(idin), 0, {}};
    std::size_t used = 2; // the length octet of a reserved one is read as the next identifier
    if (e.meaning != nullptr) {
        e.ieidln = hex_octet(walk.rest, 1);
        used = 4 + 2 * static_cast<std::size_t>(e.ieidln);
        if (walk.rest.size() < used)
            return false;
        e.iedn = behind(ahead(walk.rest, used), 4);
    }
    walk.rest = behind(walk.rest, used);
    return true;
}

std::optional<part_numbers> sms_concat(const udh_element& element)
{
    const std::string_view data = element.iedn;
    const std::size_t reference = element.idin == udh_element::concat_8bit ? 1 : 2;
    if (!element.is_concat() || data.size() / 2 < reference + 2)
        return std::nullopt;
    const int low = hex_octet(data, reference - 1);
    return part_numbers{reference == 1 ? low : hex_octet(data, 0) << 8 | low,
                        hex_octet(data, reference), hex_octet(data, reference + 1)};
}

} // namespace kelo
