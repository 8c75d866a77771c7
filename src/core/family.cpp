#include "core/family.h"

#include "core/core.h"

namespace kelo
{

namespace
{

enum habit : unsigned {
    alone = 1u << 0,
    port_1 = 1u << 1,
    creg = 1u << 2,
    cereg = 1u << 3,
    cereg_n = 1u << 4,
    cnma = 1u << 5,
    simst = 1u << 6,
    escalate = 1u << 7,
    down_start = 1u << 8,
    slot_command = 1u << 9,
    slot_ok = 1u << 10,
};

struct family_row {
    int code;
    unsigned habits;
    int at_seconds; // 0: as every other family
    int cpin_seconds;
};

// A code without a row has no habits.
// clang-format off
constexpr family_row families[] = {
    // code habits                                                  AT  CPIN
    {  7,   alone,                                                   0,   0},
    {  8,   cereg,                                                   0,   0},
    {  9,   cereg,                                                   0,   0},
    { 10,   cereg | slot_ok,                                        20,  30},
    { 11,   slot_ok,                                                 0,   0},
    { 13,   port_1 | cnma | simst | escalate | down_start,          60,   0},
    { 14,   creg | slot_command | slot_ok,                           0,   0},
    { 15,   cereg_n | cnma | simst | escalate,                       0,   0},
    { 16,   slot_ok,                                                 0,   0},
    { 17,   slot_ok,                                                 0,   0},
};
// clang-format on

const family_row& family()
{
    static constexpr family_row none = {};
    const int code = word_get(is_quectel);
    for (const family_row& row : families)
        if (row.code == code)
            return row;
    return none;
}

bool has(habit which)
{
    return (family().habits & which) != 0;
}

int or_else(int seconds, int otherwise)
{
    return seconds != 0 ? seconds : otherwise;
}

} // namespace

bool left_alone()
{
    return has(alone);
}
bool ports_from_1()
{
    return has(port_1);
}
bool reports_creg()
{
    return has(creg);
}
bool reports_cereg()
{
    return has(cereg);
}
bool cereg_begins_with_n()
{
    return has(cereg_n);
}
bool acknowledges_sms()
{
    return has(cnma);
}
bool reports_simst()
{
    return has(simst);
}
bool sim_failures_escalate()
{
    return has(escalate);
}
bool restarts_when_down()
{
    return has(down_start);
}
bool slot_by_command()
{
    return has(slot_command);
}
bool slot_ends_on_ok()
{
    return has(slot_ok);
}
int at_seconds(int seconds)
{
    return or_else(family().at_seconds, seconds);
}
int cpin_seconds(int seconds)
{
    return or_else(family().cpin_seconds, seconds);
}

} // namespace kelo
