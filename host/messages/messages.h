// SPDX-License-Identifier: MIT
// Messages as this host takes, follows and tells them.
#pragma once

#include "host/state/status.h"

#include <kelo/messages.h>

#include <chrono>
#include <deque>
#include <string>
#include <vector>

namespace kelo_host
{

struct whole_message {
    kelo_message head{};
    std::string text;                      // UTF-8, or octets where head.data says so
    std::vector<unsigned long long> parts; // their digests
};

// Takes the oldest that waits; with it the one before counts as kept.
bool take_message(whole_message& message);

// "+02:00" of quarters of an hour.
std::string zone_text(int quarters);

// The octets in hexadecimal.
std::string hex_of(std::string_view octets);

// Why a message was not sent, for people and scripts: "+CMS ERROR: 38".
std::string reason_of(const kelo_sms_result& result);

// What is told of them, for people (a message has its text on lines of its own) and as JSON.
std::vector<std::string> lines_of(const whole_message& message);
std::vector<std::string> lines_of(const kelo_sms_result& result);
std::vector<std::string> lines_of(const kelo_sms_report& report);
json_value json_of(const whole_message& message);
json_value json_of(const kelo_sms_result& result);
json_value json_of(const kelo_sms_report& report);

// The messages that this host's user has sent, until it is known what became of them.
class outgoing
{
  public:
    using clock = std::chrono::steady_clock;

    explicit outgoing(speaker say) : say_(std::move(say)) {}

    // The number of the message, or what kelo_send_sms gave instead.
    int add(const std::string& number, const std::string& text, const kelo_sms_options& options);

    // Takes back what waits for a network that does not come, so that a host that was started for
    // one message has an end.
    void pass(clock::time_point now);

    void note(const kelo_sms_result& result); // of whichever message

    bool busy() const { return !waiting_.empty(); }
    bool waits_for(int number) const;          // the result of that message
    int not_sent() const { return not_sent_; } // failed, or nobody knows

  private:
    struct sent_message {
        int number;
        std::string destination;
    };
    speaker say_;
    std::deque<sent_message> waiting_;
    clock::time_point progress_{}; // there was a network, or an answer; 0: not yet looked
    int not_sent_ = 0;
};

} // namespace kelo_host
