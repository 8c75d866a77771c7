// SPDX-License-Identifier: MIT
#pragma once

// For large variables that many a host never makes the library write to. They lie behind all
// others, which then share a few pages, and what is not written to stays out of memory. A sanitizer
// lays out its variables by itself.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__clang__)
#define KELO_SELDOM
#else
#define KELO_SELDOM [[gnu::section(".bss.seldom")]]
#endif
