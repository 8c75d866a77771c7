// SPDX-License-Identifier: MIT
// Diagnostics: one call per class. Each call writes one line whole: a text without a line end of
// its own gets one, and the line is flushed, so that a host whose standard output is a pipe sees it
// at once and two threads never mix a line. What a thread says while it holds a lock is kept, and
// written when it has let go of its last one. A handler of the host (kelo/log.h) gets the lines in
// place of the two streams.
#pragma once

#include <cstddef>

namespace kelo
{

// Non-zero: lines of the debug class are written.
extern int debug_5g;

[[gnu::format(printf, 1, 2)]] void diag_plain(const char* format, ...); // standard output
[[gnu::format(printf, 1, 2)]] void diag_debug(const char* format,
                                              ...); // the same, while debug is on
// Lines of the plain class that are formatted already; behind them is room for a line end.
void diag_text(char* text, std::size_t length);

[[gnu::format(printf, 1, 2)]] void diag_error(const char* format, ...); // standard error

// A line of one of the classes that opens with a name and the number of the line that says it:
// diag_at(plain, __func__, "failed to alloc memory!\n").
#define diag_at(which, name, format, ...)                                                          \
    diag_##which("%s:%d " format, name, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

bool diag_debug_on();

// For lock.cpp alone: a thread enters and leaves its outermost lock.
void diag_hold();
void diag_let_go();

// Whether this thread holds a lock, or is in the host's handler of lines.
bool diag_holds_back();

} // namespace kelo
