/* brgpio_standin.c: a SIM switch for machines without one. Preloaded, or linked ahead of the C
 * library, it stands in for the driver of /dev/brgpio while BRGPIO_RECORD names a file, and adds a
 * line to it for each call: "open <access mode>", "ioctl <request> <argument>", "close".
 * BRGPIO_RESULT is what the request gives, 0 without it. All other files are the C library's.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define NEXT(type, name) ((type)(intptr_t)dlsym(RTLD_NEXT, name))

static int device = -1; /* one open at a time */

static void note(const char* format, ...)
{
    FILE* const record = fopen(getenv("BRGPIO_RECORD"), "ae");
    va_list values;
    va_start(values, format);
    vfprintf(record, format, values);
    va_end(values);
    fclose(record);
}

int open(const char* path, int flags, ...)
{
    int (*const next)(const char*, int, ...) = NEXT(int (*)(const char*, int, ...), "open");
    va_list values;
    va_start(values, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(values, int) : 0;
    va_end(values);
    if (strcmp(path, "/dev/brgpio") != 0 || getenv("BRGPIO_RECORD") == NULL)
        return next(path, flags, mode);
    device = next("/dev/null", flags);
    note("open %d\n", flags & O_ACCMODE);
    return device;
}

int ioctl(int fd, unsigned long request, ...)
{
    va_list values;
    va_start(values, request);
    int32_t* const argument = va_arg(values, int32_t*);
    va_end(values);
    if (fd != device || fd < 0)
        return NEXT(int (*)(int, unsigned long, ...), "ioctl")(fd, request, argument);
    note("ioctl 0x%lx %d\n", request, (int)*argument);
    return getenv("BRGPIO_RESULT") != NULL ? atoi(getenv("BRGPIO_RESULT")) : 0;
}

int close(int fd)
{
    if (fd == device && fd >= 0) {
        device = -1;
        note("close\n");
    }
    return NEXT(int (*)(int), "close")(fd);
}
