// SPDX-License-Identifier: MIT
// What a modem says that says anything.
#pragma once

#include "tests/e2e/story.h"

#include <numeric>

using Hostile = kelo_story::Story;

inline std::string every_byte()
{
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    return bytes;
}
