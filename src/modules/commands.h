// SPDX-License-Identifier: MIT
// The numbers of the AT commands, by name. Flows and a host's custom items name a command by its
// number, so a number keeps its meaning for good.
#pragma once

namespace kelo::command
{

// A name is that of the AT command, or of the key in the profile files without its AT_. With
// `_0`, `_1`, `_2` the command sets that value; without, it asks.
enum number : int {
    // Of the general catalogue
    qgps_1 = 1,
    atz = 2,
    ate0 = 3,
    cmee_2 = 8,
    cgmm = 9,
    cgmi = 10,
    cgmr = 11,
    cgsn = 12,
    cpin = 13,
    creg_2 = 18,
    cnum = 21,
    csq = 27,
    cgreg = 29,
    cops_long = 30,    // names of operators
    cops_numeric = 31, // their numbers
    cops = 32,
    attention = 33, // "AT" alone
    cimi = 34,
    creg_1 = 41,
    creg_0 = 42,
    cgreg_2 = 43,
    cgreg_1 = 44,
    cgreg_0 = 45,
    creg = 46,
    mbn_autosel = 64,
    clir_2 = 65,
    clvl_4 = 67,
    qmic = 69,
    qrxgain = 70,
    cereg_2 = 78,
    cereg = 79,
    qsimdet = 85,
    qsclk_1 = 86,
    qcfg_spi = 87,
    qalternativesleep = 88,
    qcfg_risignaltype = 89,
    ati = 90,
    mbn_deactivate = 91,
    mbn_autosel_first = 92, // ahead of all flows, in low power mode
    mbn_list = 93,
    qcfg_ims = 94,
    qindcfg_act = 95,
    ri_smsincoming = 96,
    ri_other = 97,
    ri_ring = 98,
    ssl_seclevel = 99,
    ssl_ignore_time = 100,
    ssl_ignore_cert = 101,
    ssl_ignore_chain = 102,
    ssl_sni = 103,
    qmtcfg_ssl = 104,
    qmtconn = 106,

    // Of the private catalogue
    enable_gps = 1, // a flow that names this number gets qgps_1: the general catalogue comes first
    get_network = 14,
    get_iccid = 15,
    gps_loc = 16,
    clip_enabled = 17,
    sms_set_charset = 19,
    mode = 20,
    gsm = 22,
    get_smsc = 23,
    check_network = 24,
    get_band = 25,
    set_net_urc = 28,
    cband = 35,
    set_net_seq = 36,
    get_signal1 = 37,
    get_band_unread = 38, // the same text, whose answer is not looked at
    clip_enabled_spare = 39,
    sms_set_charset_spare = 40,
    network_auto = 47,
    cfun_full = 48,
    cfun_mini = 49,
    set_apn = 50,
    set_user_pwd = 51,
    active_cont = 53,
    set_cont1 = 54,
    set_cont3 = 55,
    send_pin = 56,
    set_smsc = 57,
    send_sms_text_mode = 58,
    send_sms_pdu_mode = 59,
    ucs2 = 61,
    send_sms_des = 62,
    send_sms_len = 63,
    call_state_init = 66,
    audio_pcm_slave = 68,
    set_volte = 71,
    get_servingcell = 72,
    sel_simslot = 73,
    get_usb_mode = 80,
    set_nvwr_sev = 81,
    set_nvwr_seq = 82,
    set_ippass = 83,
    del_gtrndis = 84,
    get_mbn_list = 105,
};

} // namespace kelo::command
