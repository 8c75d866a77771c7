// SPDX-License-Identifier: MIT
// Status queries: the host's polls, the report, the fields of the modem record one by one, and the
// few commands beside them.
#include "api/api.h"

#include "at/at.h"
#include "modules/modules.h"
#include "support/diag.h"
#include "support/seldom.h"
#include "support/shell.h"
#include "support/sleeps.h"
#include "support/text.h"
#include <kelo/link.h>
#include <kelo/status.h>
#include <kelo/version.h>

#include <cstdarg>
#include <cstdio>

namespace kelo
{

namespace
{

// A reference into the record, or `none` without one.
template <std::size_t size>
const char* text_field(char (gsm_mobile::*field)[size], const char* none)
{
    gsm_mobile* const rec = modem_record();
    return rec != nullptr ? rec->*field : none;
}

int number_field(int gsm_mobile::*field, int none)
{
    const lock_scope<record_lock> hold;
    const gsm_mobile* const rec = modem_record();
    return rec != nullptr ? rec->*field : none;
}

// What the report needs of the record, of one moment.
struct report_source {
    int signal = 0;
    int stem = 0;
};

report_source copy_report(cellular_status& report)
{
    KELO_SELDOM static gsm_mobile nothing; // zeros that take no room in the library
    const lock_scope<record_lock> hold;
    const gsm_mobile* rec = modem_record();
    if (rec == nullptr)
        rec = &nothing;
    text_set(report.oper, rec->oper);
    text_set(report.sn, rec->sn);
    text_set(report.imsi, rec->imsi);
    text_set(report.iccid, rec->iccid);
    const int sim = get_sim_status();
    const bool identified = sim == KELO_SIM_UP && *rec->iccid != '\0';
    report.sim_state = sim == KELO_SIM_FAILED ? KELO_SIM_STATE_FAILED
                       : identified           ? KELO_SIM_STATE_READY
                                              : KELO_SIM_STATE_THERE;
    return {rec->currscanmode == KELO_SCAN_WCDMA ? rec->rssi : rec->rsrp, rec->qeng_net_stem};
}

int net_type_of(int stem)
{
    switch (stem) {
    case KELO_NET_STEM_5G:
        return KELO_NET_TYPE_5G;
    case KELO_NET_STEM_UMTS:
        return KELO_NET_TYPE_3G;
    default: // LTE, and a link that is up ahead of the first serving cell report
        return KELO_NET_TYPE_4G;
    }
}

// The chosen mode can't be served: whatever a dialer has brought up is of another one.
void take_link_down()
{
    shell_run_by_host("echo \"\" > /tmp/network5Gmess.txt");
    shell_run_by_host("ifconfig wwan0 down");
    shell_run_by_host("ifconfig wwan0.1 down");
}

} // namespace

} // namespace kelo

using namespace kelo;

int kelo_get_cellular(struct cellular_status* record)
{
    if (record == nullptr) {
        diag_plain("get5Gfunc pass parameter error\n");
        return 0;
    }
    const report_source source = copy_report(*record);
    if (word_get(g_mode_no_service) != 0) {
        record->signal = 0;
        record->net_type = KELO_NET_TYPE_NONE;
        take_link_down();
        return 1;
    }
    record->signal = source.signal;
    const bool online = get_cell_network_up() != 0 && record->sim_state == KELO_SIM_STATE_READY;
    record->net_type = online ? net_type_of(source.stem) : KELO_NET_TYPE_NONE;
    return 1;
}

int libgsm_check_version_code(char* buffer)
{
    const lock_scope<record_lock> hold;
    gsm_mobile* const rec = modem_record();
    if (buffer == nullptr || rec == nullptr || rec->version_code_new == 0)
        return 0;
    rec->version_code_new = 0;
    std::memcpy(buffer, rec->version_code, std::strlen(rec->version_code) + 1);
    return 1;
}

int libgsm_check_qmbncfg_code(void)
{
    lock_scope<record_lock> hold;
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr || rec->qmbn_code_new == 0)
        return 0;
    rec->qmbn_code_new = 0;
    char command[64];
    const bool sendable = accepts_text("carrier profile", rec->qmbn_code);
    at_command_write(command, sizeof command, "AT+QMBNCFG=\"SELECT\",\"%s\"", rec->qmbn_code);
    hold.release();
    if (!sendable)
        return 0;
    libgsm_send_at(command);
    seconds_sleep(1);
    libgsm_send_at("at+qcfg=\"ims\",1");
    seconds_sleep(1);
    return 0;
}

// ---- Fields of the record

#define TEXT_GETTER(name, field, none)                                                             \
    const char* name(void)                                                                         \
    {                                                                                              \
        return text_field(&gsm_mobile::field, none);                                               \
    }
#define NUMBER_GETTER(name, field, none)                                                           \
    int name(void)                                                                                 \
    {                                                                                              \
        return number_field(&gsm_mobile::field, none);                                             \
    }

// clang-format off
//            call                        field         without a record
TEXT_GETTER  (libgsm_get_model,           model,        nullptr)
TEXT_GETTER  (libgsm_get_mfrs,            mfrs,         nullptr)
TEXT_GETTER  (libgsm_get_revision,        revision,     nullptr)
TEXT_GETTER  (libgsm_get_sn,              sn,           nullptr)
TEXT_GETTER  (libgsm_get_imsi,            imsi,         nullptr)
TEXT_GETTER  (libgsm_get_iccid,           iccid,        nullptr)
TEXT_GETTER  (libgsm_get_number,          number,       nullptr)
TEXT_GETTER  (libgsm_get_smscenter,       smscenter,    nullptr)
TEXT_GETTER  (libgsm_get_act,             act,          nullptr)
TEXT_GETTER  (libgsm_get_oper,            oper,         nullptr)
TEXT_GETTER  (libgsm_get_band,            band,         nullptr)
TEXT_GETTER  (libgsm_get_plmn,            plmn,         nullptr)
TEXT_GETTER  (libgsm_get_lac,             lac,          nullptr)
TEXT_GETTER  (libgsm_get_pincode,         pincode,      "")
NUMBER_GETTER(libgsm_get_currscanmode,    currscanmode, 0)
NUMBER_GETTER(libgsm_get_cid,             cid,          -1)
NUMBER_GETTER(libgsm_get_tech,            tech,         -1)
NUMBER_GETTER(libgsm_get_rssi,            rssi,         -1)
NUMBER_GETTER(libgsm_get_at_port,         at_port,      -1)
NUMBER_GETTER(libgsm_get_mcc,             mcc,          -1)
NUMBER_GETTER(libgsm_get_mnc,             mnc,          -1)
NUMBER_GETTER(libgsm_get_cqi,             cqi,          -1)
NUMBER_GETTER(libgsm_get_is5g,            is5g,         -1)
NUMBER_GETTER(libgsm_get_sinr,            sinr,         -1)
NUMBER_GETTER(libgsm_get_ul_bandwidth,    ul_bandwidth, -1)
NUMBER_GETTER(libgsm_get_dl_bandwidth,    dl_bandwidth, -1)
NUMBER_GETTER(libgsm_get_pcid,            pcid,         -1)
NUMBER_GETTER(libgsm_get_rsrp,            rsrp,         -1)
NUMBER_GETTER(libgsm_get_rsrq,            rsrq,         -1)
NUMBER_GETTER(libgsm_get_earfcn,          earfcn,       -1)
NUMBER_GETTER(libgsm_get_enodebid,        enodebid,     -1)
NUMBER_GETTER(libgsm_get_cellid,          cellid,       -1)
NUMBER_GETTER(libgsm_get_qeng_net_stem,   qeng_net_stem, -1)
// clang-format on

// ---- Polls

int kelo_get_connect_status(void)
{
    return get_cell_network_up();
}
int kelo_at_is_ready(void)
{
    return cellular_at_is_ready();
}
int kelo_is_sms_received(void)
{
    return cellular_is_sms_received();
}
int kelo_clean_sms_received(void)
{
    return cellular_set_sms_received(0);
}
int kelo_is_call_received(void)
{
    return cellular_is_call_received();
}
int kelo_clean_call_received(void)
{
    return cellular_set_call_received(0);
}
int kelo_is_sim_insert(void)
{
    return get_sim_status() != KELO_SIM_FAILED ? 1 : 0;
}
int kelo_check_version_code(char* buffer)
{
    return libgsm_check_version_code(buffer);
}
int kelo_get_unknown_model(char* buffer, size_t size)
{
    if (buffer == nullptr || size == 0)
        return 0;
    const lock_scope<record_lock> hold;
    const gsm_mobile* const rec = modem_record();
    const bool known = rec == nullptr || *rec->model != '\0';
    return std::snprintf(buffer, size, "%s", known ? "" : module_unlisted()) > 0;
}
int kelo_update_apn(void)
{
    return libgsm_update_apn();
}
const char* kelo_version(void)
{
    return KELO_VERSION;
}
const char* kelo_get_cellular_revision(void)
{
    return libgsm_get_revision();
}

// ---- Thread bodies without work

void* brindle_led_control_thread(void*)
{
    return nullptr;
}
void sms_monitor_thread(void*) {}
