// SPDX-License-Identifier: MIT
// What came, whole: SMS-DELIVER and SMS-STATUS-REPORT of 3GPP TS 23.040 9.2.2.1 and 9.2.2.3 behind
// their service centre, with every coding scheme of TS 23.038 and what a header says of the
// message. What kelo/sms.h receives, decoder.cpp reads.
#include "sms/codec/codec.h"
#include "sms/codec/digest.h"

#include <cstdio>

namespace kelo
{

namespace
{

constexpr std::size_t longest_pdu = 256;    // octets; the longest legal one has less than 190
constexpr std::size_t longest_centre = 16;  // octets
constexpr std::size_t longest_address = 30; // semi-octets

enum class message_type { deliver, submit, status_report };

message_type type_of(octet first_octet)
{
    // The fourth is reserved, and to be read as the first.
    static constexpr message_type types[] = {message_type::deliver, message_type::submit,
                                             message_type::status_report, message_type::deliver};
    return types[first_octet & 3];
}

// A PDU in octets, taken from its head. What is asked for beyond its end is not there.
struct pdu_octets {
    made<octet, longest_pdu> all;
    std::size_t at = 0;
    bool ended = false;

    std::span<const octet> take(std::size_t count)
    {
        ended |= count > all.count - at;
        const auto taken = all.all().subspan(at, ended ? 0 : count);
        at += taken.size();
        return taken;
    }
    octet take_octet()
    {
        const auto one = take(1);
        return ended ? octet(0) : one[0];
    }
    std::span<const octet> rest() const { return all.all().subspan(at); }
};

// None for what is no hexadecimal, and for more than any PDU has. Half an octet at its end is left
// away.
std::optional<pdu_octets> octets_of(std::string_view pdu)
{
    pdu_octets octets;
    octets.all.count = pdu.size() / 2;
    if (octets.all.count > longest_pdu ||
        pdu.find_first_not_of(hex_digits) != std::string_view::npos)
        return std::nullopt;
    gsm_hex_to_octets({octets.all.items, octets.all.count}, pdu);
    return octets;
}

constexpr std::size_t packed_octets(std::size_t septets)
{
    return (7 * septets + 7) / 8;
}

// The first of so many septets.
std::span<const octet> septets_in(const unpacked_text& unpacked, std::size_t count)
{
    return unpacked.all().first(std::min(unpacked.count, count));
}

// ---- Addresses and times

// TS 23.040 9.1.2.5, with semi-octets as there are digits.
template <std::size_t size>
void read_address(char (&out)[size], octet type, std::span<const octet> octets, std::size_t digits)
{
    constexpr octet type_of_number = 0x70, alphanumeric = 0x50, international_number = 0x10;
    if ((type & type_of_number) == alphanumeric) {
        const unpacked_text unpacked = gsm7_unpack(octets);
        std::size_t count = std::min(unpacked.count, 4 * digits / 7);
        // Seven characters leave room for another one, which some senders count.
        if (count > 0 && count % 8 == 0 && unpacked.items[count - 1] == 0)
            count--;
        utf16_to_utf8(sms_septets_to_utf16(septets_in(unpacked, count), {}).all(), out);
        return;
    }
    char* to = out;
    if ((type & type_of_number) == international_number)
        *to++ = '+';
    for (std::size_t i = 0; i < digits && to + 1 < std::end(out); i++) {
        const octet digit = i % 2 == 0 ? octets[i / 2] & 15 : octets[i / 2] >> 4;
        if (digit == 15)
            break;
        *to++ = "0123456789*#abc"[digit];
    }
    *to = '\0';
}

void read_centre(char (&out)[32], pdu_octets& in)
{
    const std::size_t length = in.take_octet();
    if (length > longest_centre)
        in.ended = true;
    if (length == 0 || in.ended)
        return;
    const octet type = in.take_octet();
    const auto octets = in.take(length - 1);
    read_address(out, type, octets, 2 * octets.size());
}

template <std::size_t size> void read_number(char (&out)[size], pdu_octets& in)
{
    const std::size_t digits = in.take_octet();
    // Every type has its highest bit set. Where no address follows, some leave the type away, too.
    const bool typed = digits > 0 || (!in.rest().empty() && in.rest()[0] >= 0x80);
    const octet type = typed ? in.take_octet() : octet(0);
    if (digits > longest_address)
        in.ended = true;
    const auto octets = in.take((digits + 1) / 2);
    if (!in.ended)
        read_address(out, type, octets, digits);
}

// TS 23.040 9.2.3.11. Empty for what no calendar has.
part_time read_time(pdu_octets& in)
{
    static constexpr int least[] = {0, 1, 1, 0, 0, 0};
    static constexpr int most[] = {99, 12, 31, 23, 59, 60};
    const auto octets = in.take(7);
    if (in.ended)
        return {};
    const auto digits = [](int tens, int ones) {
        return tens < 10 && ones < 10 ? 10 * tens + ones : -1;
    };
    int values[std::size(most)];
    for (std::size_t i = 0; i < std::size(most); i++) {
        values[i] = digits(octets[i] & 15, octets[i] >> 4);
        if (values[i] < least[i] || values[i] > most[i])
            return {};
    }
    part_time time;
    std::snprintf(time.text, sizeof time.text, "20%02d-%02d-%02d %02d:%02d:%02d", values[0],
                  values[1], values[2], values[3], values[4], values[5]);
    const int quarters = std::max(digits(octets[6] & 7, octets[6] >> 4), 0);
    time.zone = (octets[6] & 8) != 0 ? -quarters : quarters;
    return time;
}

// ---- Coding schemes, TS 23.038 4

enum class alphabet { gsm7, data, utf16 };

struct coding_scheme {
    alphabet kind = alphabet::gsm7; // also for all that is reserved
    int message_class = -1;
};

coding_scheme scheme_of(octet dcs)
{
    constexpr octet compressed = 0x20, has_class = 0x10, class_bits = 0x03;
    static constexpr alphabet kinds[] = {alphabet::gsm7, alphabet::data, alphabet::utf16,
                                         alphabet::gsm7};
    const int group = dcs >> 4;
    if (group < 0x8)
        return {(dcs & compressed) != 0 ? alphabet::data : kinds[dcs >> 2 & 3],
                (dcs & has_class) != 0 ? dcs & class_bits : -1};
    if (group == 0xE) // a message waits; the text beside it is in UCS-2
        return {alphabet::utf16};
    if (group == 0xF)
        return {(dcs & 0x04) != 0 ? alphabet::data : alphabet::gsm7, dcs & class_bits};
    return {};
}

// ---- User data

struct user_data_header {
    std::size_t octets = 0; // with the one that tells its length
    part_numbers numbers;
    bool wide_reference = false;
    int port_to = -1, port_from = -1;
    national_tables tables;
};

void read_element(user_data_header& header, octet id, std::span<const octet> data)
{
    const auto wide = [&](std::size_t at) { return data[at] << 8 | data[at + 1]; };
    const auto set_numbers = [&](int reference, octet total, octet number) {
        if (number == 0 || number > total)
            return;
        header.numbers = {reference, total, number};
        header.wide_reference = id == udh_element::concat_16bit;
    };
    if (id == udh_element::concat_8bit && data.size() == 3) {
        set_numbers(data[0], data[1], data[2]);
    } else if (id == udh_element::concat_16bit && data.size() == 4) {
        set_numbers(wide(0), data[2], data[3]);
    } else if (id == 0x04 && data.size() == 2) {
        header.port_to = data[0];
        header.port_from = data[1];
    } else if (id == 0x05 && data.size() == 4) {
        header.port_to = wide(0);
        header.port_from = wide(2);
    } else if (id == 0x24 && data.size() == 1) {
        header.tables.single = data[0];
    } else if (id == 0x25 && data.size() == 1) {
        header.tables.locking = data[0];
    }
}

// At the head of user data, TS 23.040 9.2.3.24. An element that does not end within the header
// makes it worth nothing, but for where the text begins; a header longer than the message is none,
// and all of the message is text.
user_data_header read_header(std::span<const octet> data)
{
    user_data_header header;
    if (data.empty() || data[0] + 1u > data.size())
        return header;
    header.octets = data[0] + 1u;
    auto rest = data.subspan(1, data[0]);
    user_data_header nothing = header;
    while (!rest.empty()) {
        if (rest.size() < 2 || rest[1] + 2u > rest.size())
            return nothing;
        read_element(header, rest[0], rest.subspan(2, rest[1]));
        rest = rest.subspan(rest[1] + 2u);
    }
    return header;
}

void read_user_data(message_part& part, pdu_octets& in, bool has_header)
{
    const std::size_t length = in.take_octet(); // TP-UDL, septets or octets
    const alphabet kind = scheme_of(static_cast<octet>(part.dcs)).kind;
    const bool gsm7 = kind == alphabet::gsm7;
    auto octets = in.rest();
    octets = octets.first(std::min(octets.size(), gsm7 ? packed_octets(length) : length));
    const user_data_header header = has_header ? read_header(octets) : user_data_header();
    part.numbers = header.numbers;
    part.wide_reference = header.wide_reference;
    part.port_to = header.port_to;
    part.port_from = header.port_from;
    if (gsm7) {
        const unpacked_text unpacked = gsm7_unpack(octets);
        const auto septets = gsm7_behind(septets_in(unpacked, length), header.octets);
        part.content = sms_septets_to_utf16(septets, header.tables);
        return;
    }
    octets = octets.subspan(header.octets);
    part.data = kind == alphabet::data;
    part.content.add(octets.first(part.data ? octets.size() : octets.size() & ~std::size_t(1)));
}

std::uint64_t digest_of(std::span<const octet> octets)
{
    std::uint64_t digest = digest_begin;
    for (const octet one : octets)
        digest = digest_with(digest, one);
    return digest;
}

} // namespace

std::optional<message_part> sms_read_deliver(std::string_view pdu)
{
    auto in = octets_of(pdu);
    if (!in)
        return std::nullopt;
    message_part part;
    part.digest = digest_of(in->all.all());
    read_centre(part.smsc, *in);
    const octet first = in->take_octet();
    read_number(part.sender, *in);
    in->take_octet(); // TP-PID
    part.dcs = in->take_octet();
    part.message_class = scheme_of(static_cast<octet>(part.dcs)).message_class;
    part.time = read_time(*in);
    read_user_data(part, *in, (first & has_header_bit) != 0);
    if (in->ended || type_of(first) != message_type::deliver)
        return std::nullopt;
    return part;
}

std::optional<status_report> sms_read_status_report(std::string_view pdu)
{
    auto in = octets_of(pdu);
    if (!in)
        return std::nullopt;
    char smsc[32] = {};
    read_centre(smsc, *in);
    const octet first = in->take_octet();
    status_report report;
    report.reference = in->take_octet();
    read_number(report.recipient, *in);
    report.sent = read_time(*in);
    report.discharged = read_time(*in);
    report.status = in->take_octet(); // what the optional fields behind it tell is not asked for
    if (in->ended || type_of(first) != message_type::status_report)
        return std::nullopt;
    return report;
}

// The second of each two blocks is the service centre's own, and means what the first does. What is
// reserved, from 0x80 up, is read as given up: no other report will follow.
enum kelo_sms_delivery sms_delivery(int status)
{
    return status < 0x20   ? KELO_SMS_DELIVERED
           : status < 0x40 ? KELO_SMS_STILL_TRYING
                           : KELO_SMS_UNDELIVERED;
}

} // namespace kelo
