// SPDX-License-Identifier: MIT
#include "tests/testing.h" // compiled once, ahead of the tests that include it
