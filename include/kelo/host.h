/* SPDX-License-Identifier: MIT */
/* kelo/host.h: what a host may bring. Both symbols are weak references of the library: a host that
 * exports them is called, without them the library does without.
 */
#ifndef KELO_HOST_H
#define KELO_HOST_H

#ifdef __cplusplus
extern "C" {
#endif

/* Runs one shell command line; the result is ignored. Absent, the library runs the line itself. */
int kelo_system(const char* command);

/* Takes one log message with a printf format. Absent, these messages go nowhere. */
void log_log(int level, const char* file, const char* function, int line, const char* format, ...);

#ifdef __cplusplus
}
#endif
#endif
