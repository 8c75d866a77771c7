/* SPDX-License-Identifier: MIT */
/* Ahead of every source of a build with cmake/toolchains/musl.cmake: what Debian's C++ headers,
 * made for its own C library, take from there and musl lacks. Nothing of it reaches a table or a
 * call of the library's own. */
#ifdef __cplusplus
#define __GLIBC_PREREQ(major, minor) 0
#include <bits/c++config.h>
#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
#undef _GLIBCXX_USE_PTHREAD_RWLOCK_CLOCKLOCK
#define __locale_t locale_t
#include <locale.h>
enum { /* the masks of its ctype facet */
       _ISupper = 1 << 0,
       _ISlower = 1 << 1,
       _ISalpha = 1 << 2,
       _ISdigit = 1 << 3,
       _ISxdigit = 1 << 4,
       _ISspace = 1 << 5,
       _ISprint = 1 << 6,
       _ISgraph = 1 << 7,
       _ISblank = 1 << 8,
       _IScntrl = 1 << 9,
       _ISpunct = 1 << 10,
       _ISalnum = 1 << 11
};
#endif
