// SPDX-License-Identifier: MIT
#include "host/state/news.h"

#include "host/state/happenings.h"

#include <kelo/kelo.h>

namespace kelo_host
{

// The number alone stands for a call as well: of what comes in one piece the library's flag tells
// the last. Each ring that is told apart counts.
void news::take_call(clock::time_point now)
{
    using namespace std::chrono_literals;
    constexpr auto number_within = 2s;
    char number[sizeof gsm_event::callingnum] = "";
    const bool rings = kelo_is_call_received() != 0;
    const bool numbered = kelo_take_caller(number, sizeof number) != 0;
    if (rings)
        kelo_clean_call_received();
    if (rings || (numbered && !rang_)) {
        received_.calls++;
        say_("a call came in");
        rang_ = rang_.value_or(now);
    }
    if (numbered || (rang_ && now - *rang_ >= number_within)) {
        feed_.tell("call", call_of(number));
        rang_.reset();
    }
}

// Cleared at once: what comes in the meantime raises its flag again.
void news::pass(clock::time_point now, const std::string& topic)
{
    if (kelo_is_sms_received())
        kelo_clean_sms_received();
    take_call(now);
    if (kelo_is_mqtt_received()) {
        kelo_clean_mqtt_received();
        received_.mqtt++;
        say_("an MQTT message came in");
        feed_.tell("mqtt", mqtt_of("message", topic));
    }
}

} // namespace kelo_host
