#include "handlers/handlers.h"

#include "at/answers.h"
#include "at/at.h"

namespace kelo
{

event* apn_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line) || !is_final_line(line))
        return nullptr;
    {
        lock_scope guard(record_lock);
        if (rec->reg_seen != 0) {
            finish_command(rec);
            return nullptr;
        }
        rec->reg_seen = 1;
    }
    // Clears the context that the first command did not use: a Verizon APN sits in context 3, the
    // others in context 1.
    exec_at_command(rec, word_get(verizon_flag) != 0 ? "AT+QICSGP=1,3,\"\",\"\",\"\",0"
                                                     : "AT+QICSGP=3,3,\"\",\"\",\"\",0");
    return nullptr;
}

} // namespace kelo
