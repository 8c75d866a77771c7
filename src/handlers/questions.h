// SPDX-License-Identifier: MIT
// Questions: commands of the host's that are asked again and again while there is nothing else to
// do.
//
// Runs on the mobile task, but for kelo_set_questions. What is asked is guarded by questions_lock.
#pragma once

#include "core/core.h"
#include <kelo/questions.h>

namespace kelo
{

// The next that is due, or null; it counts as asked. Valid until the next call.
const char* question_next(std::int64_t now_ms);

// A flow begins: all are due behind it, however the modem took them so far.
void questions_forget();

// The handler of a question.
event* question_line(gsm_mobile* rec, char* line);

} // namespace kelo
