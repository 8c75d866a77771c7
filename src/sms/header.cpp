// The user data header of a received message, 3GPP TS 23.040 9.2.3.24, and the set-up of one on its
// way out, which decides the coding.
#include "sms/sms.h"

#include "support/sleeps.h"
#include "support/text.h"

#include <cstdlib>

// One element of the header.
struct udh_element {
    int id;                // 0 for the whole header, 1 for the first element, then upward
    std::string_view info; // hexadecimal, from this element to the end of the header
    unsigned char idin;    // information element identifier
    int ieidln;            // octets of its data
    std::string_view iedn; // its data, hexadecimal
};

namespace kelo
{

namespace
{

struct meaning_row {
    octet first;
    octet last;
    const char* text; // behind "The IDIn 0x%02x is "; null for a reserved identifier
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

constexpr char reserved[] = "Reserved for future use";
constexpr char rule[] = "================================================================";

// Null for a reserved identifier.
const char* meaning_of(octet idin)
{
    for (const meaning_row& row : meanings)
        if (idin >= row.first && idin <= row.last)
            return row.text;
    return nullptr;
}

int width_of(std::string_view text)
{
    return static_cast<int>(text.size());
}

void show_element(const udh_element& e, text_block& block)
{
    const char* const meaning = meaning_of(e.idin);
    block.add("%s\nID     : %d    \n", rule, e.id);
    block.add("Info   : (%.*s)  \n", width_of(e.info), e.info.data());
    block.add("IDIn   : 0x%02x\n", e.idin);
    block.add("Meaning: (The IDIn 0x%02x is %s)  \n", e.idin,
              meaning != nullptr ? meaning : reserved);
    block.add("IEIDLn : %d    \n", e.ieidln);
    block.add("IEDn   : (%.*s)  \n%s\n\n", width_of(e.iedn), e.iedn.data(), rule);
}

// Reads the element at the head of `text`, which is the rest of the header. False at its end, and
// for an element that would run past it.
bool sms_parse_element(std::string_view text, udh_element& e)
{
    if (text.size() < 2)
        return false;
    e.id++;
    e.info = text;
    e.idin = static_cast<octet>(gsm_hex2int(text.data(), 2));
    e.ieidln = 0;
    e.iedn = {};
    if (meaning_of(e.idin) == nullptr)
        return true; // its length octet is read as the next identifier
    if (text.size() < 4)
        return false;
    e.ieidln = static_cast<octet>(gsm_hex2int(text.data() + 2, 2));
    if (text.size() - 4 < 2 * static_cast<std::size_t>(e.ieidln))
        return false;
    e.iedn = {text.data() + 4, 2 * static_cast<std::size_t>(e.ieidln)};
    return true;
}

std::size_t used_by(const udh_element& e)
{
    return meaning_of(e.idin) == nullptr ? 2 : 4 + e.iedn.size();
}

int sms_concat(long_sms_info& numbers, std::string_view data, int reference_width,
               text_block* block)
{
    const std::size_t wanted = static_cast<std::size_t>(reference_width) + 4;
    if (data.size() < wanted) {
        if (block != nullptr)
            block->add("The %s flag long sms user data (%.*s) is too short\n",
                       reference_width == 2 ? "8bit" : "16bit", width_of(data), data.data());
        return -1;
    }
    numbers.flag = gsm_hex2int(data.data(), reference_width);
    numbers.total = gsm_hex2int(data.data() + reference_width, 2);
    numbers.now = gsm_hex2int(data.data() + reference_width + 2, 2);
    if (block != nullptr)
        block->add("The long sms flag 0x%x , total %d , now is %d\n", numbers.flag, numbers.total,
                   numbers.now);
    return 0;
}

int sms_concat_8bit(long_sms_info& numbers, std::string_view data, text_block* block)
{
    return sms_concat(numbers, data, 2, block);
}

int sms_concat_16bit(long_sms_info& numbers, std::string_view data, text_block* block)
{
    return sms_concat(numbers, data, 4, block);
}

void read_element(const udh_element& e, long_sms_info& numbers, text_block* block)
{
    if (block != nullptr)
        show_element(e, *block);
    if (e.idin == 0x00)
        sms_concat_8bit(numbers, e.iedn, block);
    else if (e.idin == 0x08)
        sms_concat_16bit(numbers, e.iedn, block);
    else if (block != nullptr)
        block->add("The User Data Header (%02x%02x%.*s) Info (%.*s)ignore\n", e.idin, e.ieidln,
                   width_of(e.iedn), e.iedn.data(), width_of(e.info), e.info.data());
}

long_sms_info event_numbers = {}; // what gsm_event's long_sms points at; guarded by record_lock

// Caller holds record_lock.
long_sms_info* long_sms_renew(event& what)
{
    long_sms_release(what);
    what.long_sms = &what == &::gsm_event
                        ? &event_numbers
                        : static_cast<long_sms_info*>(std::calloc(1, sizeof(long_sms_info)));
    if (what.long_sms != nullptr)
        *what.long_sms = {1, 0, 0, 0};
    return what.long_sms;
}

// References count up from a random start: no two messages in a row share one, and a restart of the
// process does not begin where the last one began.
octet next_reference()
{
    static int reference = 0; // below 0x100 until the first message
    int fresh = 0;
    if (word_get(reference) == 0) {
        const auto now = static_cast<std::uint64_t>(time_of_day_us());
        std::atomic_ref<int>(reference).compare_exchange_strong(
            fresh, 0x100 | static_cast<int>((now * 0x9E3779B97F4A7C15u) >> 56));
    }
    return static_cast<octet>(word_add(reference, 1));
}

} // namespace

void long_sms_release(event& what)
{
    if (what.long_sms != &event_numbers)
        std::free(what.long_sms);
    what.long_sms = nullptr;
}

// Elements follow each other in a loop: a header full of them costs no stack.
bool sms_read_header(std::string_view user_data, long_sms_info& numbers, text_block* block)
{
    const std::size_t length =
        2 * (static_cast<std::size_t>(static_cast<octet>(gsm_hex2int(user_data.data(), 2))) + 1);
    if (user_data.size() < 2 || length > user_data.size())
        return false;
    std::string_view rest = {user_data.data() + 2, length - 2};
    udh_element element = {0, user_data.substr(0, length), 0, 0, {}};
    while (sms_parse_element(rest, element)) {
        read_element(element, numbers, block);
        rest.remove_prefix(used_by(element));
    }
    if (!rest.empty() && block != nullptr)
        block->add("The User Data Header (%.*s) ends early\n", width_of(rest), rest.data());
    return true;
}

int sms_handle_header(event& what, const pdu_fields& fields, text_block& block)
{
    long_sms_info numbers = {1, 0, 0, 0};
    const bool read =
        fields.udh_chain == nullptr && sms_read_header(user_data_of(fields), numbers, &block);
    const lock_scope hold(record_lock);
    if (long_sms_renew(what) != nullptr)
        *what.long_sms = numbers;
    return read ? 0 : -1;
}

int sms_pdu_msg_init(gsm_mobile* rec, sms_pdu_msg* msg, const char* number, const char* charset,
                     int n)
{
    if (rec == nullptr || msg == nullptr || number == nullptr)
        return -1;
    // A number that has no room would name somebody else when cut: none is refused later.
    if (std::strlen(number) < sizeof msg->da)
        text_set(msg->da, number);
    {
        const lock_scope hold(record_lock);
        text_set(msg->sca, rec->smscenter[0] == '+' ? rec->smscenter + 1 : rec->smscenter);
    }
    // What is no number would break the PDU: the modem's own service centre is taken then.
    if (msg->sca[0] == '+' || sms_number_valid(msg->sca) == 0)
        text_clear(msg->sca);
    msg->length = n;
    text_set(msg->coding_name, charset != nullptr ? charset : "");
    msg->flag = next_reference();
    return 0;
}

int sms_detect_coding(gsm_mobile* rec, sms_pdu_msg* msg, const char* text, char* work)
{
    if (rec == nullptr || msg == nullptr || text == nullptr || work == nullptr || msg->length < 0)
        return -1;
    if (msg->length != 0 && text[msg->length - 1] == '\0')
        msg->length--;
    int coding = 0;
    for (int i = 0; i < msg->length && coding < 2; i++) {
        const auto c = static_cast<octet>(text[i]);
        const bool last = i + 1 == msg->length;
        const int next = last ? 0 : octet(text[i + 1]);
        // A lone 0xCE is let pass at the end alone; ahead of a NUL it is half a UCS-2 character.
        const bool paired = last || next != 0;
        if (c == '\0') {
            if (next != 0)
                coding = 2;
        } else if (paired && corvel_mobile_sms_ascii_to_gsm7bit(c, next) != 0) {
            i++;
        } else if (c >= 0x80 || c == '`') {
            coding = 1;
        }
    }
    msg->coding = coding;
    if (coding == 0)
        return sms_split_gsm7(msg, text, work);
    if (coding == 1)
        return sms_split_utf8(msg, text, work);
    text_set(msg->coding_name, "UCS2");
    return sms_split_ucs2(msg, text, work);
}

} // namespace kelo

using namespace kelo;

int corvel_handle_user_data_header(struct gsm_event* what, struct pdu_fields* fields)
{
    if (what == nullptr || fields == nullptr)
        return -1;
    text_block block;
    const int result = sms_handle_header(*what, *fields, block);
    block.print();
    return result;
}
