/* SPDX-License-Identifier: MIT */
/* kelo/host.h: what a host may bring. Both symbols are weak references of the library: a host that
 * exports them is called, without them the library does without.
 *
 * A program that is linked with the library exports them by itself. They are looked for once, when
 * the library is loaded, so one that loads it by dlopen has to have them in sight by then:
 *
 *     in the program                  link it with -rdynamic, or with
 *                                     -Wl,--export-dynamic-symbol=kelo_system (and log_log)
 *     in a plug-in or other library   load that one first, with RTLD_GLOBAL, or by LD_PRELOAD
 *
 * How the library itself is opened (RTLD_LOCAL, RTLD_LAZY) does not matter. It stays in memory
 * after a dlclose; what brings these two has to stay, too.
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
