// SPDX-License-Identifier: MIT
// The APN has been set: the context that it does not use is cleared.
#include "handlers/handlers.h"

#include "at/answers.h"
#include "at/at.h"

namespace kelo
{

event* apn_handler(gsm_mobile* rec, char* line)
{
    {
        lock_scope<record_lock> guard;
        const bool cleared = answer_seen(rec);
        if (!finish_on_final(rec, line, cleared) || cleared)
            return nullptr;
        rec->reg_seen = 1;
    }
    // Clears the context that the first command did not use: a Verizon APN sits in context 3, the
    // others in context 1.
    exec_at_command(rec, word_get(verizon_flag) != 0 ? "AT+QICSGP=1,3,\"\",\"\",\"\",0"
                                                     : "AT+QICSGP=3,3,\"\",\"\",\"\",0");
    return nullptr;
}

} // namespace kelo
