// SPDX-License-Identifier: MIT
#include "core/family.h"

#include "core/core.h"

#include <algorithm>
#include <initializer_list>

namespace kelo
{

namespace
{

bool is_one_of(std::initializer_list<int> families)
{
    return std::ranges::find(families, word_get(is_quectel)) != families.end();
}

} // namespace

// clang-format off
#define HABIT(name, ...) bool name() { return is_one_of({__VA_ARGS__}); }
//    habit                  families
HABIT(left_alone,            7)
HABIT(ports_from_1,          13)
HABIT(reports_creg,          14)
HABIT(reports_cereg,         8, 9, 10)
HABIT(cereg_begins_with_n,   15)
HABIT(acknowledges_sms,      13, 15)
HABIT(reports_simst,         13, 15)
HABIT(sim_failures_escalate, 13, 15)
HABIT(restarts_when_down,    13)
HABIT(slot_by_command,       14)
HABIT(slot_ends_on_ok,       10, 11, 14, 16, 17)
HABIT(slow_to_start,         10)
HABIT(slowest_to_start,      13)
// clang-format on

} // namespace kelo
