// SPDX-License-Identifier: MIT
// The two catalogues of AT commands, and how a row becomes a node of a flow.
//
// The rows are read linearly when lists are built, and never after that.

#include "modules/modules.h"

#include "core/family.h"
#include "handlers/handlers.h"
#include "modules/commands.h"
#include "services/services.h"
#include "sms/sms.h"
#include "support/diag.h"
#include "support/rows.h"
#include "support/text.h"

#include <cstring>
#include <span>

namespace kelo
{

namespace
{

using namespace command;

// A row of the general catalogue: the text to send is built in.
constexpr command_row built_in(int id, const char* cmd, int timeout, int code,
                               at_handler handler = general_handler,
                               at_pre_treat pre_treat = nullptr, int retries = 0,
                               unsigned int flags = 0)
{
    return {cmd,
            handler,
            pre_treat,
            static_cast<short>(id),
            static_cast<short>(timeout),
            static_cast<short>(code),
            static_cast<unsigned char>(flags),
            static_cast<unsigned char>(retries)};
}

// A row of the private catalogue: the text comes from the module's profile file, by key.
constexpr command_row of_profile(int id, const char* key, int timeout, int code,
                                 at_handler handler = general_handler,
                                 at_pre_treat pre_treat = general_pre_treat, unsigned int flags = 0)
{
    return built_in(id, key, timeout, code, handler, pre_treat, 0, flags);
}

} // namespace

// Searched by number, first match. Not const: a module family may change a timeout for good.
// clang-format off
command_row at_general_table[] = {
    //       number               command                                     seconds code, then handler, pre-treatment, tries, flags
    built_in(attention,           "AT",                                                      30,   0),
    built_in(atz,                 "ATZ",                                                      3,   1),
    built_in(ate0,                "ATE0",                                                     3,   2),
    built_in(cmee_2,              "AT+CMEE=2",                                               30,   3),
    built_in(qsimdet,             "AT+QSIMDET=1,0",                                           5,  83, ok_handler),
    built_in(qmtconn,             "AT+QMTCONN?",                                              3, 104, qmtconn_handler),
    built_in(qsclk_1,             "AT+QSCLK=1",                                               3,  84, ok_handler),
    built_in(qcfg_spi,            "AT+QCFG=\"spi/set\",0",                                    3,  85, ok_handler),
    built_in(qalternativesleep,   "AT+QALTERNATIVESLEEP=1,20",                                3,  86, ok_handler),
    built_in(qcfg_risignaltype,   "AT+QCFG=\"risignaltype\",\"physical\"",                    3,  87, ok_handler),
    built_in(ati,                 "ATI",                                                      3,  88, ati_handler),
    built_in(mbn_deactivate,      "AT+QMBNCFG=\"Deactivate\"",                                3,  89),
    built_in(mbn_autosel_first,   "AT+QMBNCFG=\"AutoSel\",1",                                 3,  90),
    built_in(mbn_list,            "AT+QMBNCFG=\"list\"",                                      3,  91, qmbncfg_list_handler),
    built_in(qcfg_ims,            "at+qcfg=\"ims\",1",                                        3,  92),
    built_in(qindcfg_act,         "AT+QINDCFG=\"act\",1,1 ",                                  3,  93),
    built_in(ri_smsincoming,      "at+qcfg=\"urc/ri/smsincoming\",\"pulse\",20,1",            3,  94),
    built_in(ri_other,            "at+qcfg=\"urc/ri/other\",\"pulse\",20,1",                  3,  95),
    built_in(ri_ring,             "at+qcfg=\"urc/ri/ring\",\"always\",120,1,4000,\"on\",1",   3,  96),
    built_in(ssl_seclevel,        "AT+QSSLCFG=\"seclevel\",1,0",                              3,  97),
    built_in(ssl_ignore_time,     "AT+QSSLCFG=\"ignorelocaltime\",1,1",                       3,  98),
    built_in(ssl_ignore_cert,     "AT+QSSLCFG=\"ignoreinvalidcertsign\",1,1",                 3,  99),
    built_in(ssl_ignore_chain,    "AT+QSSLCFG=\"ignoremulticertchainverify\",1,1",            3, 100),
    built_in(ssl_sni,             "AT+QSSLCFG=\"sni\",1,1",                                   3, 101),
    built_in(qmtcfg_ssl,          "AT+QMTCFG=\"ssl\",0,1,1",                                  3, 102),
    built_in(qgps_1,              "AT+QGPS=1",                                                3,   4),
    built_in(cgmm,                "AT+CGMM",                                                 30,   9, cgmm_handler, cgmm_pre_treat),
    built_in(cgmi,                "AT+CGMI",                                                  3,  10, cgmi_handler, cgmi_pre_treat),
    built_in(cgmr,                "AT+CGMR",                                                 30,  11, cgmr_handler, cgmr_pre_treat),
    built_in(cgsn,                "AT+CGSN",                                                  3,  12, cgsn_handler, cgsn_pre_treat),
    built_in(cpin,                "AT+CPIN?",                                                 5,  13, cpin_handler),
    built_in(cimi,                "AT+CIMI",                                                  3,  32, cimi_handler),
    built_in(cgreg_2,             "AT+CGREG=2",                                               3,  41),
    built_in(cgreg_1,             "AT+CGREG=1",                                               3,  42),
    built_in(cgreg_0,             "AT+CGREG=0",                                               3,  43),
    built_in(creg_2,              "AT+CREG=2",                                                3,  18),
    built_in(creg_1,              "AT+CREG=1",                                                3,  39),
    built_in(creg_0,              "AT+CREG=0",                                                3,  40),
    built_in(cgreg,               "AT+CGREG?",                                                3,  44, creg_handler, nullptr, 3),
    built_in(creg,                "AT+CREG?",                                                 3,  28, creg_handler),
    built_in(cops,                "AT+COPS?",                                                30,  31, cops_handler),
    built_in(cops_numeric,        "AT+COPS=3,2",                                              3,  30),
    built_in(cops_long,           "AT+COPS=3,0",                                              3,  29),
    built_in(csq,                 "AT+CSQ",                                                   3,  26, csq_handler),
    built_in(cnum,                "AT+CNUM",                                                  3,  21, cnum_handler),
    built_in(mbn_autosel,         "AT+QMBNCFG=\"Autosel\",1",                                 3,  64),
    built_in(clir_2,              "AT+CLIR=2",                                                3,  65, general_handler, nullptr, 0, AT_FLAG_VOICE),
    built_in(clvl_4,              "AT+CLVL=4",                                                3,  67, general_handler, nullptr, 0, AT_FLAG_VOICE),
    built_in(qmic,                "AT+QMIC=20577,14567",                                      3,  69, general_handler, nullptr, 0, AT_FLAG_VOICE),
    built_in(qrxgain,             "AT+QRXGAIN=20577",                                         3,  70, general_handler, nullptr, 0, AT_FLAG_VOICE),
    built_in(cereg_2,             "AT+CEREG=2",                                               3,  76),
    built_in(cereg,               "AT+CEREG?",                                               30,  77, creg_handler, nullptr, 3),
};

const command_row at_private_table[] = {
    //         number                 key                 seconds code, then handler, pre-treatment, flags
    of_profile(enable_gps,            "AT_ENABLE_GPS",           1,   4),
    of_profile(gps_loc,               "AT_GPS_LOC",              3,  16, gps_handler),
    of_profile(get_iccid,             "AT_GET_ICCID",            3,  15, qccid_handler),
    of_profile(get_signal1,           "AT_GET_SIGNAL1",          3,  33),
    of_profile(clip_enabled_spare,    "AT_CLIP_ENABLED",         3,  37),
    of_profile(sms_set_charset_spare, "AT_SMS_SET_CHARSET",      3,  38),
    of_profile(mode,                  "AT_MODE",                 3,  20),
    of_profile(check_network,         "AT_CHECK_NETWORK",       30,  23, nwinfo_handler),
    of_profile(set_smsc,              "AT_SET_SMSC",             3,  55, general_handler, smsc_pre_treat),
    of_profile(get_smsc,              "AT_GET_SMSC",             3,  22, csca_handler),
    of_profile(cband,                 "AT_CBAND",                3,  34, general_handler, cband_pre_treat),
    of_profile(set_net_seq,           "AT_SET_NET_SEQ",          3,  35, netseq_handler, netseq_pre_treat),
    of_profile(get_band_unread,       "AT_GET_BAND",             3,  36),
    of_profile(set_net_urc,           "AT_SET_NET_URC",          3,  27),
    of_profile(clip_enabled,          "AT_CLIP_ENABLED",         3,  17),
    of_profile(sms_set_charset,       "AT_SMS_SET_CHARSET",      3,  19),
    of_profile(get_band,              "AT_GET_BAND",             3,  24, band_handler),
    of_profile(network_auto,          "AT_NETWORK_AUTO",         3,  45, general_handler, netmode_pre_treat),
    of_profile(set_apn,               "AT_SET_APN",              3,  48, apn_handler, apn_pre_treat),
    of_profile(set_user_pwd,          "AT_SET_USER_PWD",         3,  49, general_handler, userpwd_pre_treat),
    of_profile(active_cont,           "AT_ACTIVE_CONT",        150,  51),
    of_profile(get_network,           "AT_GET_NETWORK",          3,  14, scanmode_handler),
    of_profile(set_cont1,             "AT_SET_CONT1",            3,  52),
    of_profile(set_cont3,             "AT_SET_CONT3",            3,  53, general_handler, cont3_pre_treat),
    of_profile(cfun_full,             "AT_CFUN_FULL",            5,  46, cfun_full_handler),
    of_profile(cfun_mini,             "AT_CFUN_MINI",            5,  47, cfun_mini_handler),
    of_profile(send_pin,              "AT_SEND_PIN",             1,  54, cpin_handler, cpin_pre_treat),
    of_profile(send_sms_text_mode,    "AT_SEND_SMS_TEXT_MODE",   1,  56),
    of_profile(gsm,                   "AT_GSM",                  3,  58),
    of_profile(send_sms_des,          "AT_SEND_SMS_DES",         1,  60, sms_send_handler, sms_des_pre_treat),
    of_profile(send_sms_pdu_mode,     "AT_SEND_SMS_PDU_MODE",    1,  57),
    of_profile(ucs2,                  "AT_UCS2",                 1,  59, general_handler, ucs2_pre_treat),
    of_profile(send_sms_len,          "AT_SEND_SMS_LEN",         1,  61, sms_send_handler, sms_len_pre_treat),
    of_profile(call_state_init,       "AT_CALL_STATE_INIT",      1,  66, general_handler, general_pre_treat, AT_FLAG_VOICE),
    of_profile(audio_pcm_slave,       "AT_AUDIO_PCM_SLAVE",      1,  68, general_handler, general_pre_treat, AT_FLAG_VOICE),
    of_profile(set_volte,             "AT_SET_VOLTE",            1,  71, general_handler, volte_pre_treat),
    of_profile(get_servingcell,       "AT_GET_SERVINGCELL",     15,  72, servingcell_handler),
    of_profile(sel_simslot,           "AT_SEL_SIMSLOT",          6,  73, selslot_handler, selslot_pre_treat),
    of_profile(get_usb_mode,          "AT_GET_USB_MODE",         3,  78),
    of_profile(set_nvwr_sev,          "AT_SET_NVWR_SEV",         3,  79),
    of_profile(set_nvwr_seq,          "AT_SET_NVWR_SEQ",         3,  80),
    of_profile(set_ippass,            "AT_SET_IPPASS",           3,  81),
    of_profile(del_gtrndis,           "AT_DEL_GTRNDIS",          3,  82),
    of_profile(get_mbn_list,          "AT_GET_MBN_LIST",        10, 103, mbn_list_handler),
};
// clang-format on

const std::size_t at_general_rows = std::size(at_general_table);
const std::size_t at_private_rows = std::size(at_private_table);

namespace
{

template <class Row, std::size_t size> Row* row_of(Row (&table)[size], int id)
{
    return find_row(table, [id](const command_row& row) { return row.id == id; });
}

bool is_empty(const char* text)
{
    return text == nullptr || *text == '\0';
}

// Slow modules get their time in the row itself, so that every node made from now on has it.
struct slow_row {
    bool (*slow)();
    int id;
    short seconds;
};
constexpr slow_row slow_rows[] = {
    {slowest_to_start, attention, 60},
    {slow_to_start, attention, 20},
    {slow_to_start, cpin, 30},
};

void apply_family_timeout(command_row* row)
{
    for (const slow_row& entry : slow_rows)
        if (entry.id == row->id && entry.slow())
            row->timeout = entry.seconds;
}

int append_node(at_list* list, const command_row* row, const char* cmd, int seq,
                const char* cmd_template)
{
    at_info* const at =
        at_info_create(row->id, nullptr, cmd, row->timeout, row->code, row->flags, row->handler,
                       seq, row->pre_treat, row->retries, cmd_template);
    if (at == nullptr)
        return at_no_memory;
    lock_scope<flow_lock> guard;
    at_list_append(list, at);
    return at_added;
}

} // namespace

int at_list_add_general(at_list* list, int id, int seq)
{
    command_row* const row = row_of(at_general_table, id);
    if (row == nullptr)
        return at_no_row; // no message: the caller looks in the private catalogue next
    if (is_empty(row->text) || row->handler == nullptr) {
        diag_at(plain, __func__, "unexpected error!\n");
        return at_no_row;
    }
    apply_family_timeout(row);
    return append_node(list, row, row->text, seq, nullptr);
}

int at_list_add_private(at_list* list, int id, int seq, const cfg_file* cfg)
{
    if (cfg == nullptr) {
        diag_at(plain, __func__, "unknown model!\n");
        return at_no_row;
    }
    const command_row* const row = row_of(at_private_table, id);
    if (row == nullptr) {
        diag_at(plain, __func__, "the at(id=%d) do not exist in private array!\n", id);
        return at_no_row;
    }
    if (is_empty(row->text)) {
        diag_at(plain, __func__, "[id=%d] invalid name!\n", id);
        return at_no_row;
    }
    if (row->handler == nullptr) {
        diag_at(plain, __func__, "unexpected error!\n");
        return at_no_row;
    }
    const char* const value = cfg_value(cfg, row->text);
    if (value == nullptr) {
        diag_at(plain, __func__, "the at(%s) do not exist in cfg file!\n", row->text);
        return at_no_row;
    }
    return append_node(list, row, nullptr, seq, value);
}

namespace
{

// Their seq is their place.
// clang-format off
constexpr int first_rows_low_power[] = {
    cgmm, cgmr, cgsn, ati, qsclk_1, qcfg_risignaltype, qsimdet, mbn_autosel_first, qcfg_ims, creg_1,
    qindcfg_act, ri_smsincoming, ri_other, ri_ring, ssl_seclevel, ssl_ignore_time, ssl_ignore_cert,
    ssl_ignore_chain, ssl_sni,
};
// clang-format on
constexpr int first_rows[] = {cgmm, cgmr, qsimdet, qmtconn};

} // namespace

void at_list_add_first_rows(at_list* list, bool low_power)
{
    int seq = 0;
    for (const int id : low_power ? std::span<const int>(first_rows_low_power) : first_rows)
        at_list_add_general(list, id, ++seq);
}

} // namespace kelo
