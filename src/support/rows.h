// SPDX-License-Identifier: MIT
// Looking a row up in a table.
#pragma once

#include <cstddef>

namespace kelo
{

// The first row that fits, or null.
template <class Row, std::size_t size, class Test>
constexpr Row* find_row(Row (&rows)[size], const Test& fits)
{
    for (Row& row : rows)
        if (fits(row))
            return &row;
    return nullptr;
}

} // namespace kelo
