/* SPDX-License-Identifier: MIT */
/* kelo/version.h: which kelo this is. The first number is that of the soname (libkelo.so.1). */
#ifndef KELO_VERSION_H
#define KELO_VERSION_H

/* Goes up where a host has to be built anew. The one place of these three: CMake, the packages and
 * the programs read them here. */
#define KELO_VERSION_MAJOR 1
/* Goes up with what is added. */
#define KELO_VERSION_MINOR 0
/* Goes up with what is mended. */
#define KELO_VERSION_PATCH 0

/* For #if: KELO_VERSION_NUMBER >= KELO_MAKE_VERSION(1, 2, 0). */
#define KELO_MAKE_VERSION(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))
/* The version of this header, as a number that goes up. */
#define KELO_VERSION_NUMBER                                                                        \
    KELO_MAKE_VERSION(KELO_VERSION_MAJOR, KELO_VERSION_MINOR, KELO_VERSION_PATCH)

/* Three numbers as a text. */
#define KELO_VERSION_TEXT(major, minor, patch) KELO_VERSION_TEXT_(major, minor, patch)
/* The same of figures, which the macro above makes of names. */
#define KELO_VERSION_TEXT_(major, minor, patch) #major "." #minor "." #patch
/* The version of this header: "1.0.0". */
#define KELO_VERSION KELO_VERSION_TEXT(KELO_VERSION_MAJOR, KELO_VERSION_MINOR, KELO_VERSION_PATCH)

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The version of the library that runs, which may be newer than the header that a host was built
 * with: "1.0.0". From any thread, before everything else; never NULL, lives as long as the process.
 */
const char* kelo_version(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
