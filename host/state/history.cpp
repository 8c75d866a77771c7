// SPDX-License-Identifier: MIT
#include "host/state/history.h"

#include <algorithm>

namespace kelo_host
{

namespace
{

constexpr const char* figure_names[] = {"rsrp_dbm", "rsrq_db", "sinr", "signal_dbm"};

} // namespace

void history::add(const json_value& status, clock::time_point now)
{
    using namespace std::chrono_literals;
    if (count_ > 0 && now - samples_[(count_ - 1) % most].at < 1s)
        return;
    sample& next = samples_[count_++ % most];
    next.at = now;
    next.online = status.at("reason") == "online";
    for (size_t i = 0; i < next.figures.size(); i++) {
        const json_value& value = status.at(figure_names[i]);
        next.figures[i] = value.is_number()
                              ? static_cast<int16_t>(std::clamp(value.get<int>(), -9999, 9999))
                              : unknown;
    }
}

std::string history::text(clock::time_point now) const
{
    std::string text = "[";
    for (size_t i = count_ - std::min(count_, most); i < count_; i++) {
        const sample& one = samples_[i % most];
        const auto age = std::chrono::duration_cast<std::chrono::seconds>(now - one.at);
        text += (text.size() > 1 ? ",[" : "[") + std::to_string(age.count());
        for (const int16_t figure : one.figures)
            text += "," + (figure == unknown ? "null" : std::to_string(figure));
        text += one.online ? ",1]" : ",0]";
    }
    return text + "]";
}

} // namespace kelo_host
