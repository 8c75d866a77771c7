// SPDX-License-Identifier: MIT
// SMS: messages on their way out and what becomes of them; reports of those that come, wherever
// reads cut them; whole messages for the host; the modem's storage. What the octets of a message
// mean, the codec next door knows.
//
// Threads: any thread encodes, queues and cancels messages, and takes results, reports and received
// ones; the mobile task sends, reads, and empties the storage.
// Words that leave: body_due and sms_reports_wanted. The queues, the outbox, the joiner and the
// storage are each guarded by a lock that is a leaf; what is on its way out (send.cpp) and
// gsm_event by record_lock.
#pragma once

#include "at/at.h"
#include "core/core.h"
#include "sms/codec/codec.h"
#include <kelo/messages.h>

#include <cstdint>

namespace kelo
{

// Lines that are printed in one piece, unless they are more than it has room for.
class text_block
{
  public:
    [[gnu::format(printf, 2, 3)]] void add(const char* format, ...);
    void print();

    // Pieces without a format, quicker, for lines that are known to have room behind those that are
    // there; else none of them is put.
    struct hex {
        octet number; // with "0x" but for 0
    };
    template <class... Pieces> [[gnu::always_inline]] void put(const Pieces&... pieces)
    {
        if ((room_for(pieces) + ...) > most - length)
            return;
        char* to = text + length;
        ((to = put_piece(to, pieces)), ...);
        length = static_cast<std::size_t>(to - text);
    }
    void put_cut(std::string_view line); // what has no room is cut

  private:
    template <std::size_t size> static constexpr std::size_t room_for(const char (&)[size])
    {
        return size - 1;
    }
    static std::size_t room_for(std::string_view piece) { return piece.size(); }
    static constexpr std::size_t room_for(octet) { return 3; }
    static constexpr std::size_t room_for(hex) { return 4; }

    template <std::size_t size>
    [[gnu::always_inline]] static char* put_piece(char* to, const char (&literal)[size])
    {
        std::memcpy(to, literal, size - 1);
        return to + size - 1;
    }
    static char* put_piece(char* to, std::string_view piece);
    static char* put_piece(char* to, octet number);
    static char* put_piece(char* to, hex one);

    static constexpr std::size_t most = 2047;
    char text[most + 1]; // its first `length` are in use
    std::size_t length = 0;
};

// Fills a field with what the view shows, up to the field's size.
template <std::size_t size> void set_field(char (&field)[size], std::string_view text)
{
    const std::size_t length = std::min(text.size(), size - 1);
    std::copy_n(text.data(), length, field);
    std::memset(field + length, 0, size - length);
}

// ---- Messages on their way out and what becomes of them (jobs.cpp)

// One message, from the call that hands it in until the fate of its last part is known. It belongs
// to its parts: the last one that ends makes it a result, and ends it.
struct sms_job;

// What the caller of kelo_send_sms wants; all zero for the calls of kelo/sms.h.
struct sms_job_wish {
    int number = 0; // of the message; each part then waits for the answer to the one before
    bool report = false;
    void (*going_out)(int number, int part, void* context) = nullptr;
    void* context = nullptr;
};

// Null without memory.
sms_job* sms_job_create(const char* tag, const char* destination, int parts,
                        const sms_job_wish& wish);
void sms_job_begins_part(sms_job* job); // ahead of its queueing
// None of its parts could be made: it ends, with a result when it was `refused`. Null is fine.
void sms_job_without_parts(sms_job* job, bool refused);
const sms_job_wish& sms_job_wishes(const sms_job* job);
int sms_job_parts(const sms_job* job);

enum class part_fate { confirmed, failed, unknown, not_written, refused, taken_back };
constexpr int fate_count = 6;
struct sms_error {
    int kind = KELO_SMS_NO_ERROR;
    int number = 0; // of the error; of a part that is confirmed its reference
};
// True when it was the last.
bool sms_job_part_ends(sms_job* job, int part, part_fate fate, sms_error error = {});

// ---- The outbox (outbox.cpp)

// What stands in the outbox: an item as a host sees it, and whose part it is.
struct sms_part : sms_outbox_item {
    sms_job* job;
    int number; // from 1
    int tries;  // in which no prompt came
};

// A part that is on no list yet; null as sms_outbox_enq refuses it.
sms_part* sms_part_create(int mode, const char* tag, const char* number, int length,
                          std::string_view body, sms_job* job, int part);
// Its fate is known, and it is no more. True when it was the last of its message.
bool sms_part_ends(sms_part* part, part_fate fate, sms_error error = {});

// Queues all parts of a list at once, in order, and empties it. False, and nothing queued, when
// more than `most` would wait; 0: any number may.
bool sms_outbox_append(list_head& parts, int most = 0);
// A message in one part.
bool sms_queue_one(int mode, const char* tag, const char* number, int length,
                   std::string_view body);
void sms_outbox_return(sms_part* part); // to the head
// Takes the head; with `answered` false not one that waits for the answer to another.
sms_part* sms_outbox_take(bool answered);
bool sms_outbox_next_is_numbered();       // the head is of kelo_send_sms
void sms_outbox_drop(const sms_job* job); // the parts of a message that are still there
bool sms_outbox_cancel(int number);       // all of a message, or nothing: false
void sms_parts_take_back(list_head& parts);

// ---- Sending (send.cpp, submit.cpp, send_text.cpp)

// The part that the mobile task is to send next: it is in hand until its body is out. Null while
// there is none, or it is not its time.
sms_part* sms_send_next(std::int64_t now_ms);

// A command that draws the prompt goes out: its body becomes due, and the word body_due says so.
void sms_send_begins(gsm_mobile* mobile);

// A start or reload flow takes the place of the one that sends.
void sms_send_interrupted();

// The port is given up, or opened: what was under way on it has no answer any more, and what is
// left in the modem may show.
void sms_port_lost();
void sms_port_fresh(gsm_mobile* mobile);

// What has waited too long. Any thread.
void sms_look_at_clock(std::int64_t now_ms);

// Whether a part is in hand or waits for its answer.
bool sms_sending();

// The command that leaves the modem in PDU mode behind a message in text mode; null for none.
const char* sms_mode_to_restore();

// A whole line of the modem's own, which may be the answer to a message, whatever command runs.
void sms_watch_answer(const char* line);
// A line under another handler than the one below, which may be the prompt.
void sms_watch_prompt(gsm_mobile* mobile, const char* line);
// A command of a flow is written: from then on an error without a number may be its answer, and the
// errand's before it has had none.
void sms_command_goes_out();

// Answers the modem's "> " prompt with the body of the message in flight, and reads the result.
event* sms_send_handler(gsm_mobile* mobile, char* line);

// Writes a message body and Ctrl-Z to the port. 0; -1 for a null argument, a closed port, a body
// that is none of the record's.
int write_sms_msg(gsm_mobile* mobile, const char* text);

// Digits of the service centre that the SIM's slot has; empty for the modem's own.
void sms_centre_of(gsm_mobile* mobile, char (&digits)[65]);
octet sms_next_reference();
int sms_tpdu_length(std::string_view pdu); // all octets but the service centre field

// ---- Receiving (reads.cpp, report_lines.cpp, receive.cpp, queue.cpp), and into gsm_event
// (sms_event.cpp)

int sms_report_parse(gsm_mobile* mobile, event* what, const char* report);
int sms_log_received(event* what);

// A read of the port, ahead of everything else: takes NUL bytes and the lines of reports out of it,
// that are not gsm_event's, and gives where that begins.
read_view sms_each_read(char* bytes, std::size_t length);
event* sms_take_read(gsm_mobile* mobile, char* text, char* report);

// The port was silent for a second; nothing more will come from it. They give what a read broke
// off.
void sms_quiet_second();
void sms_reads_end();

// What libgsm_check_sms does for gsm_event.
event* sms_report_event(gsm_mobile* mobile, const char* report);

void sms_queue_add(const kelo_sms& message);

// ---- Whole messages (joiner.cpp, messages.cpp)

// Where the modem stores a message or a part of one; index -1: it came by a report.
struct sms_place {
    int index = -1;
    unsigned epoch = 0; // of the look at the storage: a number of before means another message
    std::uint64_t digest = 0; // of what came, for the host
};

// Whether a host takes whole messages: from its first kelo_take_message, or kelo_set_sms_storage.
bool sms_messages_wanted();

// Whether another part from the storage has room; if not, it stays there.
bool sms_messages_have_room();

// A part that came: it is put together with the others, or is a message by itself. `first_look`:
// it lay there when this process first looked.
void sms_message_part(const message_part& part, sms_place place, bool first_look,
                      std::int64_t now_ms);

// What can't be read, as a message that shows it.
message_part sms_unreadable_part(std::string_view pdu);

// A status report that came.
void sms_report_came(const status_report& report);

// ---- The modem's storage (storage.cpp): an errand of the mobile task while nothing else is to do

// 0, 1 or 2, see kelo_set_sms_storage.
int sms_storage_mode();

// Whether there are places that are still to be read.
bool sms_storage_has_more();

// A start or reload flow begins: what was known of the storage is not known any more.
void sms_storage_forget();

// A line of the modem, whole, that told of the storage: "+CMTI", a full memory.
void sms_storage_hear(std::string_view line);

// A message by a report, so that a copy of it in the storage is not taken for another one.
void sms_storage_reported(std::string_view pdu);

// The host has kept what came from there.
void sms_storage_kept(sms_place place);

// A whole line of the modem, which may be of the answer to the errand's command, or its end.
void sms_storage_line(gsm_mobile* mobile, std::string_view line);

// Another command goes out: the errand's has had no answer.
void sms_errand_interrupted();

// Whether the modem is to be told to report deliveries, ahead of the next message.
bool sms_reports_due();

// The next command of the errand, null for none now; the text is the mobile task's until the next
// call. A call while an answer is due says that none came.
const char* sms_errand_next(std::int64_t now_ms);

// Whether a line, or a piece of one, may be of such an answer and is nobody else's.
bool sms_errand_owns(const char* line);

// The text that is to go out instead of a flow's own command, or null: with mode 1 or 2 "+CNMI=2,2"
// becomes "+CNMI=2,1", with reports of delivery.
const char* sms_command_instead(const char* command);

} // namespace kelo
