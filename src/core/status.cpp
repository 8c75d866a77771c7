// SPDX-License-Identifier: MIT
// The status word and its texts.

#include "core/core.h"
#include "support/wakeup.h"

#include <cstdio>
#include <cstring>

namespace kelo
{

namespace
{

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

unsigned int changed_to(unsigned int now, unsigned int before)
{
    if (now != before)
        wake_host();
    return now;
}

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
    const unsigned int before = std::atomic_ref<unsigned int>(gsm_dchan_status).fetch_or(bits);
    return changed_to(before | bits, before);
}

unsigned int cellular_clear_status(unsigned int bits)
{
    const unsigned int before = std::atomic_ref<unsigned int>(gsm_dchan_status).fetch_and(~bits);
    return changed_to(before & ~bits, before);
}

unsigned int cellular_reset_status()
{
    const unsigned int before =
        std::atomic_ref<unsigned int>(gsm_dchan_status).exchange(CELL_STATUS_NO_SIM);
    return changed_to(CELL_STATUS_NO_SIM, before);
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
    lock_scope<record_lock> guard;
    switch (rec->reg_status) {
    case KELO_REGISTRATION_NONE:
        return "Not registered";
    case KELO_REGISTRATION_HOME:
    case 99:
        return "Registered (Home network)";
    case KELO_REGISTRATION_SEARCHING:
        return "Searching";
    case KELO_REGISTRATION_DENIED:
        return "Registration denied";
    case KELO_REGISTRATION_UNKNOWN:
        return "Unknown";
    case KELO_REGISTRATION_ROAMING:
        return "Registered (Roaming)";
    default:
        return "Registering";
    }
}
