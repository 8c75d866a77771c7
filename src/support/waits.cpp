// SPDX-License-Identifier: MIT
#include "support/waits.h"

#include "support/sleeps.h"

#include <algorithm>
#include <sys/random.h>
#include <unistd.h>

namespace kelo
{

std::int64_t doubled(std::int64_t first, std::int64_t most, int times)
{
    for (int i = 0; i < times && first < most; i++)
        first *= 2;
    return std::min(first, most);
}

int random_up_to(int limit)
{
    unsigned number = 0;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number)
        number = static_cast<unsigned>(time_of_day_us() ^ getpid());
    return static_cast<int>(number % (static_cast<unsigned>(limit) + 1));
}

} // namespace kelo
