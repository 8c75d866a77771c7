// SPDX-License-Identifier: MIT
// GPS inside the modem: asks for a position at the timer ticks until one comes, and keeps its text
// for the host to fetch once.
#include "services/services.h"

#include "at/answers.h"
#include "at/at.h"
#include "support/diag.h"
#include "support/text.h"
#include <kelo/gps.h>

#include <fcntl.h>
#include <unistd.h>

namespace kelo
{

namespace
{

constexpr char flag_file[] = "/etc/gpsflag.txt";
constexpr char report[] = "+QGPSLOC:";

// Ticks on which a position was wanted, from 1 at load; the mobile task's alone. The first three of
// a process pass without a query, and it counts no further than that takes.
int gps_tick = 1;
constexpr int first_query_tick = 4;

int libgsm_set_gps_on()
{
    return exec_at_command(modem_record(), "AT+QGPS=1");
}

int libgsm_start_gps_location()
{
    const lock_scope<record_lock> hold;
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr)
        return -1;
    rec->gps_on = 1;
    return 0;
}

int libgsm_stop_gps_location()
{
    lock_scope<record_lock> hold;
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr)
        return -1;
    rec->gps_on = 0;
    hold.release();
    exec_at_command(rec, "AT+QGPSEND");
    return 0;
}

int libgsm_get_gps_location(char* buffer)
{
    const lock_scope<record_lock> hold;
    gsm_mobile* const rec = modem_record();
    if (buffer == nullptr || rec == nullptr || rec->gps_ready == 0)
        return 0;
    rec->gps_ready = 0;
    std::memcpy(buffer, rec->gps_loc, std::strlen(rec->gps_loc) + 1);
    return 1;
}

} // namespace

int libgsm_send_gps_location()
{
    lock_scope<record_lock> hold;
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr)
        return -1;
    const bool wanted = rec->gps_on != 0;
    hold.release();
    if (!wanted)
        return 0;
    if (gps_tick < first_query_tick) {
        gps_tick++;
        return 0;
    }
    exec_at_command(rec, "AT+QGPSLOC=2");
    return 0;
}

int libgsm_check_gps_location(const char* line)
{
    const lock_scope<record_lock> hold;
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr)
        return -1;
    if (rec->gps_on == 0 || line == nullptr)
        return 0;
    const char* const found = text_find(line, report);
    if (found == nullptr)
        return 0;
    rec->gps_on = 0;
    text_set(rec->gps_loc, text_skip(found, sizeof report), "\n"); // behind the blank, too
    rec->gps_ready = 1;
    diag_at(plain, __func__, "gps='%s'\n", rec->gps_loc);
    return 0;
}

event* gps_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (finish_on_final(rec, line, filled(rec->gps_loc)))
        return nullptr;
    const char* const match = text_find(line, "+QGPSLOC");
    if (match == nullptr)
        return nullptr;
    text_set(rec->gps_loc, text_skip(match, 10), "\n");
    diag_at(plain, "gps_handler", "gps='%s'\n", rec->gps_loc);
    return nullptr;
}

} // namespace kelo

int kelo_set_gps_on(void)
{
    return kelo::libgsm_set_gps_on();
}
int kelo_start_gps_location(void)
{
    return kelo::libgsm_start_gps_location();
}
int kelo_stop_gps_location(void)
{
    return kelo::libgsm_stop_gps_location();
}
int kelo_get_gps_location(char* buffer)
{
    return kelo::libgsm_get_gps_location(buffer);
}

void gps_set_flag_file(void)
{
    const int fd = open(kelo::flag_file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        kelo::diag_plain("open gpsflag failed");
    else
        close(fd);
}

void gps_clear_flag_file(void)
{
    if (unlink(kelo::flag_file) == 0)
        kelo::diag_plain("delete file gpsflag");
    else
        kelo::diag_plain("delete file gpsflag error");
}
