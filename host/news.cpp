#include "host/news.h"

#include <kelo/kelo.h>

namespace kelo_host
{

// Cleared at once: what comes in the meantime raises its flag again.
void news::pass()
{
    if (kelo_is_sms_received())
        kelo_clean_sms_received();
    if (kelo_is_call_received()) {
        kelo_clean_call_received();
        received_.calls++;
        say_("a call came in");
    }
    if (kelo_is_mqtt_received()) {
        kelo_clean_mqtt_received();
        received_.mqtt++;
        say_("an MQTT message came in");
    }
}

} // namespace kelo_host
