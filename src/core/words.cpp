// SPDX-License-Identifier: MIT
// The words that threads share, one line each, and the calls that set and get them for a host.
//
// Each is read and written through word_get and its kin alone; scripts/check-words holds that. The
// words of start and stop (who runs, who may change that) are those of task/lifecycle.cpp.

#include "core/core.h"
#include "support/diag.h"
#include "support/wakeup.h"
#include <kelo/link.h>

// clang-format off
//                                    what it says                                                        written by                              read by
int is_quectel = 0;                // family code of the module                                           host, ahead of the start                everybody
int selected_card = 1;             // active SIM, 1 or 2                                                  host, slot change, SIM switch           start, reload, SIM settings, events
int isLowPower = 0;                // low power mode, 0 to 255                                            libgsm_set_low_power                    task, start, APN rule, MQTT, radio reset
int is_pin_ready = 0;              // SIM unlocked and ready                                              task, start, init, dialer               dialer, MQTT, reports, link query
int needSetApn = 0;                // the flow sends the APN to the modem                                 host, cellular_restart                  APN rule
int conn_mode_flag = 0;            // non-zero ends the dialer thread                                     host, init (both ways)                  dialer
int global_quagga_stop = 0;        // ends task and dialer                                                deinit5G, host                          task, dialer, init
int cell_first_boot = 1;           // no mobile task has started yet                                      task                                    host
int cell_network_switch = 0;       // with scan mode 9: 0 LTE with NR, 1 NR                               host                                    scan mode's pre-treatment
int cell_net_proto = 0;            // 0 "IP", 1 "IPV6", 2 "IPV4V6"                                        host                                    APN's pre-treatment
int cell_network_up = 0;           // the data link is verified up                                        dialer                                  dialer, host, link query
int cell_repower_lock = 0;         // a restart is stopping and starting                                  restart                                 restart, reload, init, host
int cell_reload_flag = 0;          // a reload is wanted                                                  task, host, reload (down)               host
int cell_pdpdeact = 0;             // the data context was lost                                           reports, set_5G_para, host (down) host
int cell_ccinfo_recv = 0;          // cell lines due behind a "service cell:"                             reports and serving cell handler        the same
int g_NetStaFlag = 0;              // swallow the next SIM up of an NR-SA cell                            host, reports (down)                    reports
int g_netWorkCardFlag = 0;         // the data link is wanted                                             host's calls                            dialer
int g_stability5GCount = 0;        // the host's own                                                      host, init (0)                          host
unsigned int gsm_dchan_status = 0; // the status word                                                     task, stop, reload, host                everybody

namespace kelo
{

int gsm_init_flag = 0;             // the modem has finished its own start                                task, low power wait, host              task
int flow_walked = 0;               // a choice of a command found none                                    task; change of flow (down)             task, reports
int verizon_flag = 0;              // Verizon's carrier profile is active                                 profile list handler                    APN commands, MQTT
int cell_start_flag = 0;           // a fresh start is wanted                                             events, reports, host (down)            host
int cell_restart_flag = 1;         // we asked for the restart; 1 at load, for the first report of a SIM  restart, events                         events
int sim_failed_count = 0;          // losses of registration in a row                                     events                                  events
int sim_cpin_count = 0;            // SIM failures in a row                                               events                                  events
int no_signal_count = 0;           // reports of no signal, of three                                      events                                  events
int mqtt_conn_lost = 1;            // no sign of a connected client yet                                   MQTT query handler                      the same
int sms_pending_count = 0;         // messages handed in and not yet answered                             whoever hands in, events, reload        the same
int g_mode_no_service = 0;         // the chosen 3G mode can't be served                                  set_5G_para                             kelo_get_cellular
int keeper_on = 0;                 // a keeper is on                                                     keeper                                  port, start, task, SIM, dialer
int link_held = 1;                 // kept: no modem to dial through                                     keeper                                  dialer
int reads_heard = 0;               // reads of the port that held something                               exchange                                keeper
int modem_at_work = 0;             // it has echoed a command of the host's that is not at its end           kelo_ask                                keeper
int body_due = 0;                  // between a message's command and its body nothing else is written    sending                                 exchange, task
int sms_reports_wanted = 0;        // a message has asked for a report of its delivery                      kelo_send_sms                           storage errand
int port_error = 0;                // errno of the last try to open the port, 0: it is open               port                                    keeper
int radio_answer = 0;              // kept: 1 + <fun> of a "+CFUN:" line, 0 for none                      SIM guard, keeper (down)                keeper
int link_trouble = 0;              // kept: a link_state                                                  dialer                                  keeper
int link_due_s = 0;                // kept: monotonic second of the next dial                             dialer                                  keeper
int radio_reset_wanted = 0;        // kept: dialing alone does not help                                   dialer, keeper (down)                   keeper
int redial_wanted = 0;             // kept: the network is there again                                    keeper, dialer (down)                   dialer
int start_count = 0;               // starts that opened the port or tried to                             start                                   keeper
int reload_count = 0;              // reloads                                                             reload                                  keeper
int radio_reset_count = 0;         // radio off and on                                                    radio reset                             keeper
int dial_count = 0;                // kept: starts of the dialer                                          dialer                                  keeper
int link_loss_count = 0;           // kept: of a link that was up                                         dialer                                  keeper
int attach_timeout = 50;           // 50 or more, its unit is the host's                                  set_attach_timeout                      nobody

namespace
{

int sim_status = 0;                // 1 up, 0 down, -1 failed                                             events, host                            host, report
int start_status = 0;              // an init has begun                                                   init, host                              host
int sms_received = 0;              // until the host takes it down                                        reception, host                         host
int call_received = 0;             // the same                                                            events, host                            host
int mqtt_received = 0;             // the same                                                            reports, host                           host
int sim_switch_flag = 0;           // told, and of no use                                                 host                                    nobody
// clang-format on

int set_received(int& flag, int value, const char* text)
{
    word_set(flag, value);
    if (value == 0)
        return 0;
    diag_plain("[Cellular]---> %s received", text);
    wake_host();
    return 0;
}

int store(int& word, int value)
{
    word_set(word, value);
    return value;
}

} // namespace

void cell_restart_flag_set()
{
    word_set(cell_restart_flag, 1);
}
void cell_restart_flag_reset()
{
    word_set(cell_restart_flag, 0);
}
int cell_restart_flag_get()
{
    return word_get(cell_restart_flag);
}

} // namespace kelo

using namespace kelo;

int cellular_is_sms_received()
{
    return word_get(sms_received);
}
int cellular_is_call_received()
{
    return word_get(call_received);
}
int cellular_is_mqtt_received()
{
    return word_get(mqtt_received);
}
int cellular_set_sms_received(int value)
{
    return set_received(sms_received, value, "SMS");
}
int cellular_set_call_received(int value)
{
    return set_received(call_received, value, "Call");
}
int cellular_set_mqtt_received(int value)
{
    return set_received(mqtt_received, value, "MQTT");
}

int get_sim_status()
{
    return word_get(sim_status);
}
int set_sim_status(int value)
{
    const bool changed = word_get(sim_status) != value;
    store(sim_status, value);
    if (changed)
        wake_host();
    return value;
}
int get_start_status()
{
    return word_get(start_status);
}
int set_start_status(int value)
{
    return store(start_status, value);
}
int get_5g_debug()
{
    return word_get(debug_5g);
}
int set_5g_debug(int value)
{
    return store(debug_5g, value);
}

int get_cell_pdpdeact(void)
{
    return word_get(cell_pdpdeact);
}
int set_cell_pdpdeact(int value)
{
    word_set(cell_pdpdeact, value);
    if (value != 0)
        wake_host();
    return 0;
}
int get_net_status_flag(void)
{
    return word_get(g_NetStaFlag);
}
int set_net_status_flag(int value)
{
    word_set(g_NetStaFlag, value);
    return 0;
}
int get_cell_network_up()
{
    return word_get(cell_network_up) != 0 && word_get(is_pin_ready) != 0 ? 1 : 0;
}
void set_network_card_flag(int value)
{
    word_set(g_netWorkCardFlag, value);
}
void set_attach_timeout(int value)
{
    constexpr int least = 50;
    word_set(attach_timeout, value < least ? least : value);
}
void sim_switch_flag_set(int value)
{
    word_set(sim_switch_flag, value);
}

void cell_reload_flag_set(void)
{
    word_set(cell_reload_flag, 1);
    wake_host();
}
void cell_reload_flag_unset(void)
{
    word_set(cell_reload_flag, 0);
}
void cell_start_flag_set(void)
{
    word_set(cell_start_flag, 1);
    wake_host();
}
void cell_start_flag_unset(void)
{
    word_set(cell_start_flag, 0);
}
int cell_start_flag_get(void)
{
    return word_get(cell_start_flag);
}

void sim_failed_count_reset()
{
    word_set(sim_failed_count, 0);
}
void sim_cpin_count_reset()
{
    word_set(sim_cpin_count, 0);
}

int libgsm_set_init_flag(int value)
{
    word_set(gsm_init_flag, value & 0xff);
    return 0;
}
int libgsm_set_low_power(int value)
{
    word_set(isLowPower, value & 0xff);
    return 0;
}
int libgsm_is_low_power()
{
    return word_get(isLowPower);
}
int libgsm_get_verizon_flag(void)
{
    return word_get(verizon_flag);
}
