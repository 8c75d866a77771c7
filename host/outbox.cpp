#include "host/outbox.h"

#include <kelo/sms.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace kelo_host
{

namespace
{

using namespace std::chrono_literals;

constexpr auto answer_within = 150s; // the modem takes up to two minutes with the network
constexpr auto register_within = 300s;

// The octets of a text in hexadecimal, one after the other; 0 behind its end.
class octet_reader
{
  public:
    explicit octet_reader(std::string_view hex) : hex_(hex) {}
    int take()
    {
        int value = 0;
        if (hex_.size() >= 2)
            std::from_chars(hex_.data(), hex_.data() + 2, value, 16);
        pass(1);
        return value;
    }
    void pass(int octets)
    {
        hex_.remove_prefix(std::min(hex_.size(), static_cast<size_t>(octets) * 2));
    }

  private:
    std::string_view hex_;
};

} // namespace

pdu_part part_of_pdu(std::string_view hex)
{
    octet_reader octets(hex);
    octets.pass(octets.take()); // service centre
    const int first = octets.take();
    const bool has_header = (first & 0x40) != 0;
    const int validity = (first >> 3) & 3; // 3GPP TS 23.040 9.2.3.3
    octets.pass(1);                        // TP-MR
    octets.pass((octets.take() + 1) / 2 + 1);
    octets.pass(2); // TP-PID, TP-DCS
    octets.pass(validity == 0 ? 0 : validity == 2 ? 1 : 7);
    octets.pass(1); // TP-UDL
    if (!has_header)
        return {};
    octets.pass(1);
    const int element = octets.take(); // 9.2.3.24: 0 and 8 are concatenation numbers
    octets.pass(element == 0 ? 2 : 3);
    const int total = octets.take();
    const int number = octets.take();
    if ((element != 0 && element != 8) || number < 1 || number > total)
        return {};
    return {number, total};
}

send_watch::state send_watch::look(const gsm_mobile& mobile, bool failed)
{
    begins_ = false;
    if (tag_ != mobile.sms_tag || mobile.flow != FLOW_SMS_PDU)
        return state::unchanged;
    // The answer to a part shows with the next one's PDU already: the library takes that at once.
    const state known = outcome(mobile, failed);
    if (pdu_ != mobile.sms_text) {
        pdu_ = mobile.sms_text;
        part_ = part_of_pdu(pdu_);
        begins_ = true;
        done_ = unseen_ = other_event_ = false;
    }
    return known;
}

send_watch::state send_watch::outcome(const gsm_mobile& mobile, bool failed)
{
    if (done_)
        return state::unchanged;
    unseen_ = unseen_ || mobile.reg_seen == 0;
    other_event_ = other_event_ || mobile.last_event != GSM_EVENT_SMS_SEND_OK;
    const bool sent = (unseen_ && mobile.reg_seen != 0) ||
                      (other_event_ && mobile.last_event == GSM_EVENT_SMS_SEND_OK);
    done_ = sent || failed;
    if (failed)
        return state::failed;
    if (!sent)
        return state::unchanged;
    return ++sent_ >= part_.total ? state::sent : state::part_sent;
}

void outbox::add(std::string number, std::string text)
{
    waiting_.push_back({std::move(number), std::move(text)});
}

void outbox::pass(clock::time_point now)
{
    if (waiting_.empty())
        return;
    if (!queued_)
        return begin(now);
    gsm_mobile mobile{};
    if (!kelo_copy_mobile(&mobile))
        return;
    const auto state = watch_.look(mobile, cellular_get_status(CELL_STATUS_SMS_FAILED) != 0);
    const auto parts = [&](const char* what) {
        return std::to_string(watch_.parts_sent()) + " of " + std::to_string(watch_.parts()) +
               " parts " + what;
    };
    if (state != send_watch::state::unchanged || watch_.part_begins())
        progress_ = now;
    switch (state) {
    case send_watch::state::failed:
        return end(false, "failed, with " + parts("sent"));
    case send_watch::state::sent:
        return end(true, "sent, " + parts("confirmed"));
    case send_watch::state::part_sent:
        say_("message to " + waiting_.front().number + ": " + parts("sent"));
        break;
    case send_watch::state::unchanged:
        if (now - progress_ >= answer_within)
            return end(false, "no answer in 150 s, with " + parts("sent"));
        break;
    }
    if (watch_.part_begins())
        cellular_clear_status(CELL_STATUS_SMS_FAILED); // of a part before
}

void outbox::begin(clock::time_point now)
{
    if (!timed_)
        progress_ = now;
    timed_ = true;
    if (!mobile_is_ready()) {
        if (now - progress_ >= register_within)
            end(false, "not sent: the modem was not registered in 300 s");
        return;
    }
    const queued_message& item = waiting_.front();
    const std::string tag = "kelo-host-" + std::to_string(++tags_);
    watch_ = send_watch(tag);
    progress_ = now;
    queued_ = libgsm_send_sms_from_buffer(tag.c_str(), item.number.c_str(), 0, item.text.data(),
                                          static_cast<int>(item.text.size())) == 0;
    if (!queued_)
        end(false, "refused by the library: too long, or no memory");
}

void outbox::end(bool sent, const std::string& line)
{
    not_sent_ += !sent;
    say_("message to " + waiting_.front().number + ": " + line);
    waiting_.pop_front();
    queued_ = timed_ = false;
}

} // namespace kelo_host
