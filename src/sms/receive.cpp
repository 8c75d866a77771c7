// Reports of received messages.
#include "sms/sms.h"

#include "support/export.h"

// Tells that a message came. The texts of the report are not taken apart here: the host learns that
// there is one, not yet what it says.
KELO_EXPORT struct gsm_event* libgsm_check_sms(struct gsm_mobile* rec, const char* report)
{
    using namespace kelo;
    if (rec == nullptr || report == nullptr)
        return nullptr;
    const lock_scope hold(record_lock);
    return raise_event(GSM_EVENT_SMS_RECEIVED);
}
