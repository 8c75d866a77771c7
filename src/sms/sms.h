// SMS: the outbox on the way out, reports on the way in.
//
// Threads: any thread queues messages; the mobile task takes them, sends them and reads reports.
// Words that leave: none.
#pragma once

#include "core/gsm.h"
#include <kelo/sms.h>

namespace kelo
{

// Answers the modem's "> " prompt with the body of the message in flight, and reads the result.
event* sms_send_handler(gsm_mobile* mobile, char* line);

// Writes a message body and Ctrl-Z to the port. 0; -1 for a null argument, a closed port, no
// memory.
int write_sms_msg(gsm_mobile* mobile, const char* text);

} // namespace kelo
