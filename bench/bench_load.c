/* SPDX-License-Identifier: MIT */
/* bench_load LIBRARY: how long dlopen takes with it and all that it needs, in microseconds. */
#define _POSIX_C_SOURCE 200809L

#include <dlfcn.h>
#include <stdio.h>
#include <time.h>

int main(int argc, char** argv)
{
    struct timespec begin, end;
    if (argc != 2)
        return 2;
    clock_gettime(CLOCK_MONOTONIC, &begin);
    if (dlopen(argv[1], RTLD_NOW) == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    clock_gettime(CLOCK_MONOTONIC, &end);
    printf("%.1f\n",
           (double)(end.tv_sec - begin.tv_sec) * 1e6 + (double)(end.tv_nsec - begin.tv_nsec) / 1e3);
    return 0;
}
