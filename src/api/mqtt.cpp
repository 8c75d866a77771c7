// MQTT inside the modem. What stands here is the way of the modem's error reports to the host.
// There is no call yet that gives the library a broker, so no update is ever pending, and the tick
// and the look at each line say just that.
#include "api/api.h"

#include <kelo/mqtt.h>

namespace kelo
{

namespace
{

// Set by the host, called on the mobile task.
mqtt_urc_handler mqtt_urc_callback = nullptr;

int libgsm_set_mqtt_urc_callback(mqtt_urc_handler callback)
{
    word_set(mqtt_urc_callback, callback);
    return 0;
}

} // namespace

int libgsm_set_cellular_wake()
{
    return -1;
}

int libgsm_check_mqtt_sub(const char*)
{
    return 0;
}

int libgsm_mqtt_urc_error(const char* text)
{
    const mqtt_urc_handler callback = word_get(mqtt_urc_callback);
    if (callback != nullptr)
        callback(text);
    return 0;
}

} // namespace kelo

int kelo_set_urc_callback(mqtt_urc_handler callback)
{
    return kelo::libgsm_set_mqtt_urc_callback(callback);
}
