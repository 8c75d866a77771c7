// SPDX-License-Identifier: MIT
#include "host/state/feed.h"

#include <cstdio>
#include <cstdlib>

namespace kelo_host
{

std::string time_text(timespec time)
{
    tm local = {};
    localtime_r(&time.tv_sec, &local);
    char text[64] = "";
    std::strftime(text, sizeof text, "%FT%T", &local);
    const long minutes = local.tm_gmtoff / 60;
    char whole[160];
    std::snprintf(whole, sizeof whole, "%s.%03ld%c%02ld:%02ld", text, time.tv_nsec / 1000000,
                  minutes < 0 ? '-' : '+', std::abs(minutes) / 60, std::abs(minutes) % 60);
    return whole;
}

json_value stamped(const char* type, const json_value& fields)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    json_value whole = {{"type", type}, {"time", time_text(now)}};
    for (const auto& [name, value] : fields.items())
        whole[name] = value;
    return whole;
}

void feed::tell(const char* type, const json_value& fields) const
{
    if (followers_.empty())
        return;
    const json_value happening = stamped(type, fields);
    for (const follower& one : followers_)
        one(happening);
}

} // namespace kelo_host
