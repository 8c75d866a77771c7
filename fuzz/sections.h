// SPDX-License-Identifier: MIT
// Ahead of each source of the library: its variables in sections of their own, so that world.cpp
// can put them back to what they were. No names of C, so that AddressSanitizer still guards them.
#pragma clang section bss = ".kelo.bss" data = ".kelo.data"
