// SMS: the outbox on the way out, reports and the queue on the way in. What the octets of a message
// mean, the codec next door knows.
//
// Threads: any thread encodes and queues messages, and takes received ones; the mobile task takes
// messages off the outbox, sends them and reads reports.
// Words that leave: none. The queue and the outbox are each guarded by a lock that is a leaf; the
// message in flight (send.cpp) and gsm_event by record_lock.
#pragma once

#include "at/at.h"
#include "core/core.h"
#include "sms/codec/codec.h"

#include <cstdint>

namespace kelo
{

// Lines that are printed in one piece, unless they are more than it has room for.
class text_block
{
  public:
    [[gnu::format(printf, 2, 3)]] void add(const char* format, ...);
    void print();

  private:
    char text[2048]; // its first `length` are in use
    std::size_t length = 0;
};

// Fills a field with what the view shows, up to the field's size.
template <std::size_t size> void set_field(char (&field)[size], std::string_view text)
{
    const std::size_t length = text.copy(field, size - 1);
    std::memset(field + length, 0, size - length);
}

// ---- Sending (send.cpp, submit.cpp, outbox.cpp)

// An item that is on no list yet; null as sms_outbox_enq refuses it.
sms_outbox_item* sms_outbox_item_create(int mode, const char* tag, const char* number, int length,
                                        std::string_view body);

// Queues an item; false for null.
bool sms_outbox_put(sms_outbox_item* item);

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

// Writes a message body and Ctrl-Z to the port. 0; -1 for a null argument, a closed port, a body
// that is none of the record's.
int write_sms_msg(gsm_mobile* mobile, const char* text);

// ---- Receiving (reads.cpp, report_lines.cpp, receive.cpp, queue.cpp), and into gsm_event
// (sms_event.cpp)

enum report_mode { mode_pdu = 0, mode_text = 1, mode_unknown = 2 };

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

// A start or reload flow begins: what was known of the storage is not known any more.
void sms_storage_forget();

// A line of the modem, whole, that told of the storage: "+CMTI", a full memory.
void sms_storage_hear(std::string_view line);

// A message by a report, so that a copy of it in the storage is not taken for another one.
void sms_storage_reported(std::string_view pdu);

// The host has kept what came from there.
void sms_storage_kept(sms_place place);

// What a read of the port holds: lines are put together over reads, heard, and are the answer to
// the errand's command, if one is out.
void sms_storage_read(gsm_mobile* mobile, std::string_view text);

// Another command goes out: the errand's has had no answer. `message`: it sends one, and the errand
// rests until the modem has said what became of it, or for two minutes.
void sms_command_goes_out(bool message);

// Whether the modem is to be told to report deliveries, ahead of the next message.
bool sms_reports_due();

// The next command of the errand, null for none now; the text is the mobile task's until the next
// call. A call while an answer is due says that none came.
const char* sms_errand_next(std::int64_t now_ms);

// A whole line of the answer to it: ends it with the final one.
event* sms_errand_handler(gsm_mobile* mobile, char* line);

// Whether a line, or a piece of one, may be of such an answer and is nobody else's.
bool sms_errand_owns(const char* line);

// The text that is to go out instead of a flow's own command, or null: with mode 1 or 2 "+CNMI=2,2"
// becomes "+CNMI=2,1", with reports of delivery.
const char* sms_command_instead(const char* command);

} // namespace kelo
