// SPDX-License-Identifier: MIT
// Plain records that wait for the host. One that is too slow loses the oldest, and is told how
// many.
#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>

namespace kelo
{

// No lock: the caller has one.
template <class Record, unsigned room> struct ring {
    Record records[room] = {};
    unsigned oldest = 0, waiting = 0;
    int lost = 0;

    void add(const Record& record)
    {
        if (waiting == room) {
            oldest = (oldest + 1) % room;
            waiting--;
            lost += lost < INT_MAX;
        }
        records[(oldest + waiting++) % room] = record;
    }
    // As much of it as the caller knows.
    int take(void* out, std::size_t size)
    {
        if (out == nullptr || waiting == 0)
            return 0;
        std::memcpy(out, &records[oldest], std::min(size, sizeof(Record)));
        oldest = (oldest + 1) % room;
        waiting--;
        return 1;
    }
};

} // namespace kelo
