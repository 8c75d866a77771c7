/* SPDX-License-Identifier: MIT */
/* bench_host [keep] [PING-TARGET]: a host that sleeps until the library has news, and says when it
 * came to what: a line for each, the time of CLOCK_MONOTONIC in seconds ahead of it. */
#define _POSIX_C_SOURCE 200809L

#include <kelo/kelo.h>

#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

static void say(const char* what, int is_so, int* was_so)
{
    struct timespec now;
    if (is_so == *was_so)
        return;
    *was_so = is_so;
    clock_gettime(CLOCK_MONOTONIC, &now);
    printf("%lld.%09ld %s%s\n", (long long)now.tv_sec, now.tv_nsec, is_so ? "" : "not ", what);
}

int main(int argc, char** argv)
{
    struct cellular_setting settings = {.enable = 1, .apn = "internet", .ping_enable = 1};
    struct gsm_mobile mobile;
    int knows_model = 0, ready = 0, online = 0;
    struct pollfd news = {.fd = kelo_event_fd(), .events = POLLIN};
    uint64_t times;

    setvbuf(stdout, NULL, _IOLBF, 0);
    if (argc > 1 && strcmp(argv[1], "keep") == 0) {
        kelo_keep(NULL);
        argv++;
        argc--;
    }
    if (argc > 1)
        snprintf(settings.ping_target, sizeof settings.ping_target, "%s", argv[1]);
    is_quectel = KELO_FAMILY_PLAIN;
    kelo_init_cellular(&settings, 0);
    while (poll(&news, 1, -1) == 1) { /* no look in between: the idle host is the library's alone */
        if (read(news.fd, &times, sizeof times) != sizeof times || !kelo_copy_mobile(&mobile))
            continue;
        say("model", mobile.model[0] != '\0', &knows_model);
        say("ready", mobile_is_ready() != 0, &ready);
        say("online", kelo_get_connect_status() == 1, &online);
    }
    return 1;
}
