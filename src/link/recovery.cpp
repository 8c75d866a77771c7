// SPDX-License-Identifier: MIT
// The radio reset, one step below a restart of the modem task.
#include "link/link.h"

#include "at/at.h"
#include "support/sleeps.h"
#include <kelo/status.h>

namespace kelo
{

// Nothing waits for an answer: the replies go to the mobile task, and so does the "+CPIN: READY"
// that brings is_pin_ready back.
int libgsm_reset_base_station()
{
    if (modem_record() == nullptr)
        return -1;
    word_add(radio_reset_count, 1);
    libgsm_send_at("AT+CFUN=0");
    seconds_sleep(1);
    if (word_get(isLowPower) != 0)
        libgsm_update_apn(); // some modules take it only while the radio is off
    seconds_sleep(1);
    libgsm_send_at("AT+CFUN=1");
    seconds_sleep(1);
    return 0;
}

} // namespace kelo

using namespace kelo;

int libgsm_update_apn(void)
{
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr)
        return -1;
    char command[64];
    lock_scope<record_lock> hold;
    if (*rec->apn != '\0')
        at_command_write(command, sizeof command, "AT+QICSGP=1,3,\"%s\",\"%s\",\"%s\",%d", rec->apn,
                         rec->user, rec->password, rec->auth);
    else
        at_command_write(command, sizeof command, "AT+QICSGP=1,1,\"\",\"\",\"\",%d", 0);
    hold.release();
    return exec_at_command(rec, command);
}
