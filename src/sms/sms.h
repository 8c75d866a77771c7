// SMS: the codec, the outbox on the way out, reports and the queue on the way in.
//
// Threads: any thread encodes and queues messages, and takes received ones; the mobile task takes
// messages off the outbox, sends them and reads reports.
// Words that leave: none. The queue and the outbox are each guarded by a lock that is a leaf; the
// message in flight (send.cpp) and gsm_event by record_lock.
#pragma once

#include "core/core.h"
#include <kelo/sms.h>

#include <cstddef>
#include <cstring>
#include <string_view>

namespace kelo
{

using octet = unsigned char;

constexpr int user_data_octets = 140;  // of one TPDU, TS 23.040 9.2.3.24
constexpr int user_data_room = 320;    // characters of pdu_fields.user_data
constexpr octet dcs_ucs2 = 0x08;       // the one bit of TP-DCS that counts
constexpr octet has_header_bit = 0x40; // TP-UDHI
constexpr std::size_t ucs2_room = 384; // octets of the UCS-2 that the septets of any TP-UD become

// Lines that are printed in one piece, unless they are more than it has room for.
class text_block
{
  public:
    [[gnu::format(printf, 2, 3)]] void add(const char* format, ...);
    // One line "name = value"; a hexadecimal number with 0x ahead, unless it is 0.
    void add_text(std::string_view name, std::string_view value);
    void add_number(std::string_view name, int value);
    void add_hex(std::string_view name, unsigned value);
    void print();

  private:
    char text[2048]; // its first `length` are in use
    std::size_t length = 0;
};

// ---- Alphabet (alphabet.cpp)

void gsm_hex_to_octets(octet* out, const char* text, int n);
int gsm7_is_extension(octet c);

// Unpacks n octets into n + n / 7 septets, and gives that number.
int gsm7_unpack(octet* septets, const octet* octets, int n);

bool gsm7_is_plain(octet septet); // neither Greek nor the escape

// UCS-2, big endian, of septets; gives the bytes, two a character.
int gsm7_to_ucs2(octet* out, const octet* septets, int count);

// The septet at which the text begins behind u octets of header.
inline int gsm7_text_start(int u)
{
    return (8 * u + 6) / 7;
}

// What corvel_mobile_sms_gsm7bit_to_8bit does, but for the event: gives the coding, and the length
// of the UCS-2 with coding 2.
int gsm7_to_8bit(octet* octets, char* out, int n, int u, int& length);

void gsm_address_to_8bit(const octet* octets, char* out, int n);

int sms_hex_encode(const octet* octets, char* out, int n);

// ---- Character sets (charset.cpp)

int sms_iconv(const char* from, const char* to, char* in, std::size_t n, char* out,
              std::size_t size);
int sms_ucs2_to_charset(const char* name, const octet* data, int n, char* out, int size);

// UTF-16, big endian, into UTF-8 without a mark at its head, terminated; half a pair becomes
// U+FFFD. Gives the bytes written.
int utf16_to_utf8(const octet* data, int n, char* out, std::size_t size);

// UCS-2, big endian, of n bytes of UTF-8; gives the octets written, at most `room` of them, or -1.
int sms_utf8_to_ucs2(octet* out, int room, const char* text, int n);

// Bytes of the UTF-8 character at the head of text, as that conversion takes them, and the UCS-2
// units that it becomes.
struct utf8_step {
    int bytes;
    int units;
};
utf8_step sms_utf8_step(const char* text, int n);

// ---- Decoder (decoder.cpp)

int gsm_parse_pdu_fields(const char* pdu, pdu_fields& fields);
void gsm_swap_semi_octets(char* out, const char* text, int n);
void gsm_format_sms_time(const char* timestamp, char* time_out, std::size_t time_size,
                         char* zone_out, std::size_t zone_size);

// User data as text, with nothing behind its end.
inline std::string_view user_data_of(const pdu_fields& fields)
{
    return {fields.user_data, strnlen(fields.user_data, sizeof fields.user_data)};
}

// The whole message, exactly, for the queue: no prints, no event. False for a PDU that can't be
// read; `complete` tells whether all of the user data was there.
bool sms_read_pdu(const char* pdu, kelo_sms& out, bool& complete);

// ---- User data header (header.cpp)

// Reads the elements of a header in hexadecimal, its length octet included, and shows them in the
// block unless that is null. Gives false for a header that is longer than the text.
bool sms_read_header(std::string_view user_data, long_sms_info& numbers, text_block* block);

// What corvel_handle_user_data_header does, but for its print.
int sms_handle_header(event& what, const pdu_fields& fields, text_block& block);
void long_sms_release(event& what);

// ---- Encoder (header.cpp, encoder.cpp)

int sms_pdu_msg_init(gsm_mobile* mobile, sms_pdu_msg* msg, const char* number, const char* charset,
                     int n);

// All four: 0; -1 for a null argument or a text of more than 255 parts.
int sms_detect_coding(gsm_mobile* mobile, sms_pdu_msg* msg, const char* text, char* work);
int sms_split_gsm7(sms_pdu_msg* msg, const char* text, char* work);
int sms_split_utf8(sms_pdu_msg* msg, const char* text, char* work);
int sms_split_ucs2(sms_pdu_msg* msg, const char* text, char* work);

int sms_number_valid(const char* text);
int sms_swap_digits(const char* digits, char* out, int n);

// ---- Sending (send.cpp, submit.cpp, outbox.cpp)

// An item that is on no list yet; null as sms_outbox_enq refuses it.
sms_outbox_item* sms_outbox_item_create(int mode, const char* tag, const char* number, int length,
                                        const char* body);

// Queues all items of a list at once, in order, and empties it.
void sms_outbox_append(list_head& items);

// A command that draws the prompt goes out: its body becomes due.
void sms_send_begins(gsm_mobile* mobile);

// Looks for the prompt in a line that came under another handler.
void sms_watch_prompt(gsm_mobile* mobile, const char* line);

// Waits, a second at most, while a body is about to go out: what another thread writes meanwhile
// would become part of the message. Not for the mobile task, which gives the body.
void sms_let_body_pass();

// Answers the modem's "> " prompt with the body of the message in flight, and reads the result.
event* sms_send_handler(gsm_mobile* mobile, char* line);

// Writes a message body and Ctrl-Z to the port. 0; -1 for a null argument, a closed port, no
// memory.
int write_sms_msg(gsm_mobile* mobile, const char* text);

// ---- Receiving (receive.cpp, queue.cpp)

int sms_report_parse(gsm_mobile* mobile, event* what, const char* report);
int sms_log_received(event* what);

// A read of the port that holds a report, from where it begins.
void sms_clean_read(char* text, std::size_t length); // of NUL bytes; ends a report that goes on
char* sms_find_report(char* text);                   // null for none
event* sms_take_read(gsm_mobile* mobile, char* text, char* report);

// What libgsm_check_sms does with a read of the port, whose last report may go on in the next read.
event* sms_check_read(gsm_mobile* mobile, const char* report);

// The head of every read: it may hold the rest of a report.
void sms_continue_report(const char* text);

// Whether text of a message follows this line. `continued`: the line goes on from the read before;
// empty, it asks whether that one has ended in the middle of such a text.
bool sms_text_follows(std::string_view line, bool continued);

void sms_queue_add(const kelo_sms& message);

} // namespace kelo
