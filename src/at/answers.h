// What the response handlers share.
#pragma once

#include "core/core.h"
#include "support/lock.h"
#include "support/text.h"

namespace kelo
{

// Nothing to handle: the contract answers it with null.
inline bool nothing_to_read(const gsm_mobile* rec, const char* line)
{
    return rec == nullptr || line == nullptr;
}

inline bool is_final_line(const char* line)
{
    return text_has(line, "OK") || text_has(line, "ERROR");
}

// Ends the running command. The caller holds record_lock.
inline void finish_command(gsm_mobile* rec)
{
    rec->at_done = 1;
}

// Ends it on its final line, once its answer has been seen. The caller holds record_lock.
inline void finish_if_seen(gsm_mobile* rec)
{
    if (rec->reg_seen != 0)
        finish_command(rec);
}

// Takes a final line of a command whose answer has to be seen first. False for any other line. The
// caller holds record_lock.
inline bool ends_if_seen(gsm_mobile* rec, const char* line)
{
    if (!is_final_line(line))
        return false;
    finish_if_seen(rec);
    return true;
}

// The final line ends a command only once its field is filled: an answer that has not come yet is
// waited for, and asked for again. The caller holds record_lock.
inline bool take_final_line(gsm_mobile* rec, const char* line, const char* field)
{
    if (!is_final_line(line))
        return false;
    if (field[0] != '\0')
        finish_command(rec);
    return true;
}

// An event as the result of a handler that does not hold record_lock.
inline event* say_event(int code)
{
    lock_scope guard(record_lock);
    return raise_event(code);
}

// The one way a cell id enters the record: whole behind it, its low 32 bits in it. The caller holds
// record_lock.
inline void store_cell_id(gsm_mobile* rec, std::uint64_t cell)
{
    full_cell_id = cell;
    rec->cid = static_cast<int>(static_cast<std::uint32_t>(cell));
}

} // namespace kelo
