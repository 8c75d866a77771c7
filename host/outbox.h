// Messages on their way out, one after the other, each followed until it is known how it went.
//
// The library tells that by the record alone: the message in flight (its tag and its PDU), whether
// its command has seen "+CMGS:", the last event, and CELL_STATUS_SMS_FAILED. So the record is
// looked at often while a message is under way: a part takes a second at least.
#pragma once

#include <kelo/gsm.h>

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

namespace kelo_host
{

// Which part of how many a PDU is, by its user data header: SMS-SUBMIT behind its service centre,
// in hexadecimal. One of one without such numbers.
struct pdu_part {
    int number = 1, total = 1;
};
pdu_part part_of_pdu(std::string_view hex);

// Follows the parts of one message.
class send_watch
{
  public:
    enum class state { unchanged, part_sent, sent, failed };

    explicit send_watch(std::string tag) : tag_(std::move(tag)) {}

    // A look at the record, and at CELL_STATUS_SMS_FAILED, which is to be cleared when a part
    // begins.
    state look(const gsm_mobile& mobile, bool failed);

    bool part_begins() const { return begins_; } // with the last look
    int parts() const { return part_.total; }
    int parts_sent() const { return sent_; }

  private:
    state outcome(const gsm_mobile& mobile, bool failed);

    std::string tag_, pdu_;
    pdu_part part_;
    int sent_ = 0;
    bool begins_ = false;
    bool done_ = true;         // what became of the part is known
    bool unseen_ = false;      // reg_seen was 0 since the part began
    bool other_event_ = false; // the last event was another one since
};

class outbox
{
  public:
    using clock = std::chrono::steady_clock;

    // `say` takes one line on what became of a message.
    explicit outbox(std::function<void(const std::string&)> say) : say_(std::move(say)) {}

    void add(std::string number, std::string text);
    void pass(clock::time_point now);

    bool busy() const { return !waiting_.empty(); }
    int not_sent() const { return not_sent_; } // failed, or nobody knows

  private:
    struct queued_message {
        std::string number, text;
    };
    void begin(clock::time_point now);
    void end(bool sent, const std::string& line);

    std::function<void(const std::string&)> say_;
    std::deque<queued_message> waiting_; // the first is the one under way
    send_watch watch_{""};
    bool queued_ = false; // the first is in the library's hands
    bool timed_ = false;
    clock::time_point progress_{};
    int tags_ = 0, not_sent_ = 0;
};

} // namespace kelo_host
