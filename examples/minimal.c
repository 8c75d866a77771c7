/* SPDX-License-Identifier: MIT */
/* minimal.c [APN]: the smallest host. It brings the device online and keeps it there, tells what it
 * sees, and stops on Ctrl-C. */
#define _POSIX_C_SOURCE 200809L

#include <kelo/kelo.h>

#include <malloc.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

static volatile sig_atomic_t stop_wanted;

static void on_signal(int number)
{
    (void)number;
    stop_wanted = 1; /* the loop sees it within one pause: no work in a handler */
}

static void pause_ms(long ms)
{
    struct timespec left = {ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&left, NULL); /* a signal may shorten it, which is what we want */
}

static void tell_received(void)
{
    static struct kelo_sms sms;

    while (kelo_take_sms(&sms)) /* a long message comes in parts: kelo_take_message joins them */
        printf("an SMS of %d bytes came in\n", sms.length);
    if (kelo_is_call_received()) {
        kelo_clean_call_received();
        puts("a call came in; the library hangs up by itself");
    }
}

static void tell_changes(void)
{
    static char last[256];
    char now[sizeof last];
    struct gsm_mobile mobile; /* a copy: the record itself belongs to the mobile task */

    if (!kelo_copy_mobile(&mobile))
        return;
    snprintf(now, sizeof now, "link %s, %s, registration %d, operator '%s', %s",
             kelo_get_connect_status() ? "up" : "down", kelo_reason_name(kelo_get_reason()),
             mobile.reg_status, mobile.oper, mobile.model[0] ? mobile.model : "no model yet");
    if (strcmp(now, last) != 0) {
        puts(now);
        memcpy(last, now, sizeof last);
    }
}

int main(int argc, char** argv)
{
    struct cellular_setting settings = {.enable = 1, .ping_enable = 1, .ping_target = "8.8.8.8"};
    struct sigaction action = {.sa_handler = on_signal};
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);
    static char line[512]; /* room for one: stdio would take a page */
    setvbuf(stdout, line, _IOLBF, sizeof line);
#ifdef M_ARENA_MAX
    mallopt(M_ARENA_MAX, 1); /* one for each thread takes more memory than it saves time */
#endif

    is_quectel = KELO_FAMILY_PLAIN; /* suits most modules, see docs/integration.md */
    if (argc > 1 && strlen(argv[1]) < sizeof settings.apn) {
        strcpy(settings.apn, argv[1]);
        needSetApn = 1; /* the modem gets it, too, not the dialer alone */
    }
    kelo_keep(NULL);                  /* whatever fails, the library brings it back by itself */
    kelo_init_cellular(&settings, 0); /* returns at once: the modem comes up on other threads */

    while (!stop_wanted) {
        tell_received();
        tell_changes();
        pause_ms(500); /* the modem is asked about once a second: polling faster shows no more */
    }

    kelo_deinit_cellular();      /* asks all threads to end */
    while (cellular_stop() != 0) /* waits for the modem's; -1: a restart ends by itself first */
        pause_ms(500);
    return 0;
}
