// The status word, the received flags, and the small states that a host polls.

#include "core/gsm.h"
#include "support/diag.h"

#include <cstdio>
#include <cstring>

// Changed by the mobile task and by stop and reload, read by the host; every change is one atomic
// operation.
unsigned int gsm_dchan_status = 0;

namespace kelo
{

namespace
{

// All of these are written on the mobile task and by the host, and read by the host.
int sim_status = 0;
int start_status = 0;
int sms_received = 0;
int call_received = 0;
int mqtt_received = 0;

int set_received(int& flag, int value, const char* text)
{
    word_set(flag, value);
    if (value != 0)
        diag_plain("[Cellular]---> %s received", text);
    return 0;
}

int store(int& word, int value)
{
    word_set(word, value);
    return value;
}

struct status_text {
    unsigned int bit;
    const char* text;
};

// The first bit that is set names the status.
constexpr status_text status_texts[] = {
    {CELL_STATUS_NO_SIM, "No SIM Card"},
    {CELL_STATUS_SIM_ERROR, "SIM Card Error"},
    {CELL_STATUS_DIAL_REQUIRED, "Dial Number Required"},
    {CELL_STATUS_PIN_ERROR, "Pin Error"},
    {CELL_STATUS_PIN_REQUIRED, "Pin Required"},
    {CELL_STATUS_PUK_REQUIRED, "PUK Required"},
    {CELL_STATUS_SMSC_REQUIRED, "SMS Center Number Required"},
    {CELL_STATUS_USSD_FAILED, "USSD Send Failed"},
    {CELL_STATUS_NO_SIGNAL, "No Signal"},
    {CELL_STATUS_RINGING, "Ringing"},
    {CELL_STATUS_SMS_FAILED, "SMS Send Failed"},
    {CELL_STATUS_READY, "Ready"},
};

const char* text_of_status(unsigned int status)
{
    for (const status_text& row : status_texts)
        if ((status & row.bit) != 0)
            return row.text;
    return "Down";
}

} // namespace

} // namespace kelo

using namespace kelo;

unsigned int cellular_set_status(unsigned int bits)
{
    return std::atomic_ref<unsigned int>(gsm_dchan_status).fetch_or(bits) | bits;
}

unsigned int cellular_clear_status(unsigned int bits)
{
    return std::atomic_ref<unsigned int>(gsm_dchan_status).fetch_and(~bits) & ~bits;
}

unsigned int cellular_reset_status()
{
    word_set(gsm_dchan_status, CELL_STATUS_NO_SIM);
    return CELL_STATUS_NO_SIM;
}

unsigned int cellular_get_status(unsigned int mask)
{
    return word_get(gsm_dchan_status) & mask;
}

unsigned int cellular_get_cur_status()
{
    return word_get(gsm_dchan_status);
}

unsigned int mobile_is_ready()
{
    return cellular_get_status(CELL_STATUS_READY);
}

int libgsm_get_modem_status(char* buf, int size, unsigned int status)
{
    if (buf == nullptr || size < 1)
        return -1;
    std::memset(buf, 0, static_cast<std::size_t>(size));
    return std::snprintf(buf, static_cast<std::size_t>(size), "%s", text_of_status(status));
}

const char* libgsm_get_network_info()
{
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr)
        return nullptr;
    lock_scope guard(record_lock);
    switch (rec->reg_status) {
    case 0:
        return "Not registered";
    case 1:
    case 99:
        return "Registered (Home network)";
    case 2:
        return "Searching";
    case 3:
        return "Registration denied";
    case 4:
        return "Unknown";
    case 5:
        return "Registered (Roaming)";
    default:
        return "Registering";
    }
}

int cellular_is_sms_received()
{
    return word_get(sms_received);
}
int cellular_is_call_received()
{
    return word_get(call_received);
}
int cellular_is_mqtt_received()
{
    return word_get(mqtt_received);
}

int cellular_set_sms_received(int value)
{
    return set_received(sms_received, value, "SMS");
}
int cellular_set_call_received(int value)
{
    return set_received(call_received, value, "Call");
}
int cellular_set_mqtt_received(int value)
{
    return set_received(mqtt_received, value, "MQTT");
}

int get_sim_status()
{
    return word_get(sim_status);
}
int set_sim_status(int value)
{
    return store(sim_status, value);
}
int get_start_status()
{
    return word_get(start_status);
}
int set_start_status(int value)
{
    return store(start_status, value);
}
int get_5g_debug()
{
    return word_get(debug_5g);
}
int set_5g_debug(int value)
{
    return store(debug_5g, value);
}
