// Received messages, put together from their parts.
#pragma once

#include <kelo/sms.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace kelo_host
{

struct joined_message {
    std::string sender, time, zone;
    std::string
        text;      // UTF-8, if the sender kept to it; what is missing shows as "[part 2 missing]"
    int parts = 1; // that came
    int total = 1; // that the message has
};

// Parts come in any order, those of several messages in between each other, and some twice.
class joiner
{
  public:
    using clock = std::chrono::steady_clock;

    // A message whose next part does not come within `patience` is given as far as it is there.
    explicit joiner(clock::duration patience) : patience_(patience) {}

    void add(const kelo_sms& sms, clock::time_point now);

    // Takes what is ready: whole messages, in the order of their last parts, then the late ones.
    std::vector<joined_message> take(clock::time_point now);

    // Takes everything, as at the end.
    std::vector<joined_message> take_all();

  private:
    struct part_key {
        std::string sender;
        int reference, total;
        auto operator<=>(const part_key&) const = default;
    };
    struct waiting_parts {
        std::map<int, std::string> texts; // by number
        std::string time, zone;           // of the lowest number there is
        clock::time_point last;           // when the last part came
    };

    void give(const part_key& key, const waiting_parts& parts);

    clock::duration patience_;
    std::map<part_key, waiting_parts> waiting_;
    std::vector<joined_message> ready_;
};

} // namespace kelo_host
