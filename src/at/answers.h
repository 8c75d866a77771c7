// SPDX-License-Identifier: MIT
// What the handlers of answers share: the ways in which a command ends, events, cell ids.
#pragma once

#include "core/core.h"
#include "support/lock.h"
#include "support/text.h"

namespace kelo
{

// ---- How a command ends. The caller holds record_lock.

// At once, by a line that says all.
inline void finish_command(gsm_mobile* rec)
{
    rec->at_done = 1;
}

// By a final line: true for one. A command whose answer has to come first is not complete without
// it, and goes on.
inline bool finish_on(gsm_mobile* rec, bool final_line, bool complete)
{
    if (final_line && complete)
        finish_command(rec);
    return final_line;
}

// By "OK" alone: an error is left to the time-out, or means something of its own.
inline bool finish_on_ok(gsm_mobile* rec, const char* line, bool complete = true)
{
    return finish_on(rec, text_has(line, "OK"), complete);
}

// By "ERROR" alone: the answer itself ends the command otherwise.
inline bool finish_on_error(gsm_mobile* rec, const char* line)
{
    return finish_on(rec, text_has(line, "ERROR"), true);
}

// By either.
inline bool finish_on_final(gsm_mobile* rec, const char* line, bool complete = true)
{
    return finish_on(rec, text_has(line, "OK") || text_has(line, "ERROR"), complete);
}

// What makes a command complete: the line that it asks for, or the field that it fills.
inline bool answer_seen(const gsm_mobile* rec)
{
    return rec->reg_seen != 0;
}
inline bool filled(const char* field)
{
    return field[0] != '\0';
}

// ----

// An event as the result of a handler that does not hold record_lock.
inline event* say_event(int code)
{
    lock_scope<record_lock> guard;
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
