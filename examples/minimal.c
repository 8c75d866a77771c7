/* minimal.c: the smallest host. It owns the modem, tells what it sees, and stops on Ctrl-C. */
#define _POSIX_C_SOURCE 200809L

#include <kelo/kelo.h>

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

/* The library raises these words and leaves the decision to its host. */
static void act_on_requests(void)
{
    /* The word is written on the library's thread: read it atomically. cellular_reload takes it
     * down; refused (-1) while a start or restart is under way, it stays up for the next poll. */
    if (__atomic_load_n(&cell_reload_flag, __ATOMIC_RELAXED))
        cellular_reload();

    /* Taken down first, so that a request raised during the restart is not lost. The restart runs
     * on a thread of its own. */
    if (cell_start_flag_get()) {
        cell_start_flag_unset();
        cellular_module_restart_extern();
    }
}

static void tell_received(void)
{
    if (cellular_is_sms_received()) {
        cellular_set_sms_received(0);
        puts("an SMS came in");
    }
    if (cellular_is_call_received()) {
        cellular_set_call_received(0);
        puts("a call came in; the library hangs up by itself");
    }
}

static void tell_changes(void)
{
    static char last[256];
    char now[sizeof last], status[64];
    struct gsm_mobile mobile; /* a copy: the record itself belongs to the mobile task */

    if (!kelo_copy_mobile(&mobile))
        return;
    libgsm_get_modem_status(status, sizeof status, cellular_get_cur_status());
    snprintf(now, sizeof now, "%s, registration %d, operator '%s', %s", status, mobile.reg_status,
             mobile.oper, mobile.model[0] ? mobile.model : "no model yet");
    if (strcmp(now, last) != 0) {
        puts(now);
        memcpy(last, now, sizeof last);
    }
}

int main(void)
{
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = on_signal;
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);
    setvbuf(stdout, NULL, _IOLBF, 0);

    is_quectel = 0;          /* module family: 0 suits most, see docs/integration.md */
    libgsm_set_low_power(0); /* non-zero holds commands back until the modem says it is up */

    cellular_gsm_init(0);
    cellular_start(0); /* returns once the modem's own thread runs, or no port was found */
    if (!cellular_at_is_ready())
        puts("no modem found; kelo-host shows how to wait for one");

    while (!stop_wanted) {
        act_on_requests();
        tell_received();
        tell_changes();
        pause_ms(500); /* the modem is asked about once a second: polling faster shows no more */
    }

    while (cellular_stop() != 0) /* -1: a restart is under way; it ends by itself */
        pause_ms(500);
    return 0;
}
