// Received messages, put together from their parts.
#pragma once

#include <kelo/sms.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace kelo_host
{

struct Message {
    std::string sender, time, zone;
    std::string
        text;      // UTF-8, if the sender kept to it; what is missing shows as "[part 2 missing]"
    int parts = 1; // that came
    int total = 1; // that the message has
};

// Parts come in any order, those of several messages in between each other, and some twice.
class Joiner
{
  public:
    using Clock = std::chrono::steady_clock;

    // A message whose next part does not come within `patience` is given as far as it is there.
    explicit Joiner(Clock::duration patience) : patience_(patience) {}

    void add(const kelo_sms& sms, Clock::time_point now);

    // Takes what is ready: whole messages, in the order of their last parts, then the late ones.
    std::vector<Message> take(Clock::time_point now);

    // Takes everything, as at the end.
    std::vector<Message> take_all();

  private:
    struct Key {
        std::string sender;
        int reference, total;
        auto operator<=>(const Key&) const = default;
    };
    struct Parts {
        std::map<int, std::string> texts; // by number
        std::string time, zone;           // of the lowest number there is
        Clock::time_point last;           // when the last part came
    };

    void give(const Key& key, const Parts& parts);

    Clock::duration patience_;
    std::map<Key, Parts> waiting_;
    std::vector<Message> ready_;
};

} // namespace kelo_host
