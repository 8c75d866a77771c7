// SPDX-License-Identifier: MIT
// The digest by which a message is known again: FNV-1a of 64 bits, value by value.
#pragma once

#include <cstdint>

namespace kelo
{

constexpr std::uint64_t digest_begin = 0xCBF29CE484222325;
constexpr std::uint64_t digest_prime = 0x100000001B3;

constexpr std::uint64_t digest_with(std::uint64_t digest, unsigned value)
{
    return (digest ^ value) * digest_prime;
}

} // namespace kelo
