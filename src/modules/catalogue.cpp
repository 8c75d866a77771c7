// The two catalogues of AT commands, and how a row becomes a node of a flow.
//
// The rows are read linearly when lists are built, and never after that.

#include "modules/modules.h"

#include "core/family.h"
#include "handlers/handlers.h"
#include "services/services.h"
#include "sms/sms.h"
#include "support/diag.h"
#include "support/text.h"

#include <cstdlib>
#include <iterator>

namespace kelo
{

namespace
{

// The record serves heap nodes too, so its texts are not const; nobody writes those of a row.
constexpr char* fixed(const char* text)
{
    return const_cast<char*>(text);
}

// A row of the general catalogue: the text to send is built in.
constexpr at_info row(int id, const char* cmd, int timeout, int code, unsigned int flags,
                      at_handler handler, at_pre_treat pre_treat, int retries)
{
    return {id,        nullptr, fixed(cmd), timeout, code,    flags,   handler, 0,
            pre_treat, retries, 0,          0,       nullptr, nullptr, 0,       {}};
}

// A row of the private catalogue: the text comes from the module's profile file, by key.
constexpr at_info row(int id, const char* key, int timeout, int code, unsigned int flags,
                      at_handler handler, at_pre_treat pre_treat)
{
    return {id,        fixed(key), nullptr, timeout, code,    flags,   handler, 0,
            pre_treat, 0,          0,       0,       nullptr, nullptr, 0,       {}};
}

} // namespace

// Searched by id, first match. Not const: a module family may change a timeout for good.
// clang-format off
at_info at_general_table[] = {
    //   id  command                                          timeout code fl  handler               pre-treatment  retries
    row( 33, "AT",                                                     30,   0,  0, general_handler,      nullptr,        0),
    row(  2, "ATZ",                                                     3,   1,  0, general_handler,      nullptr,        0),
    row(  3, "ATE0",                                                    3,   2,  0, general_handler,      nullptr,        0),
    row(  8, "AT+CMEE=2",                                              30,   3,  0, general_handler,      nullptr,        0),
    row( 85, "AT+QSIMDET=1,0",                                          5,  83,  0, ok_handler,           nullptr,        0),
    row(106, "AT+QMTCONN?",                                             3, 104,  0, qmtconn_handler,      nullptr,        0),
    row( 86, "AT+QSCLK=1",                                              3,  84,  0, ok_handler,           nullptr,        0),
    row( 87, "AT+QCFG=\"spi/set\",0",                                   3,  85,  0, ok_handler,           nullptr,        0),
    row( 88, "AT+QALTERNATIVESLEEP=1,20",                               3,  86,  0, ok_handler,           nullptr,        0),
    row( 89, "AT+QCFG=\"risignaltype\",\"physical\"",                   3,  87,  0, ok_handler,           nullptr,        0),
    row( 90, "ATI",                                                     3,  88,  0, ati_handler,          nullptr,        0),
    row( 91, "AT+QMBNCFG=\"Deactivate\"",                               3,  89,  0, general_handler,      nullptr,        0),
    row( 92, "AT+QMBNCFG=\"AutoSel\",1",                                3,  90,  0, general_handler,      nullptr,        0),
    row( 93, "AT+QMBNCFG=\"list\"",                                     3,  91,  0, qmbncfg_list_handler, nullptr,        0),
    row( 94, "at+qcfg=\"ims\",1",                                       3,  92,  0, general_handler,      nullptr,        0),
    row( 95, "AT+QINDCFG=\"act\",1,1 ",                                 3,  93,  0, general_handler,      nullptr,        0),
    row( 96, "at+qcfg=\"urc/ri/smsincoming\",\"pulse\",20,1",           3,  94,  0, general_handler,      nullptr,        0),
    row( 97, "at+qcfg=\"urc/ri/other\",\"pulse\",20,1",                 3,  95,  0, general_handler,      nullptr,        0),
    row( 98, "at+qcfg=\"urc/ri/ring\",\"always\",120,1,4000,\"on\",1",  3,  96,  0, general_handler,      nullptr,        0),
    row( 99, "AT+QSSLCFG=\"seclevel\",1,0",                             3,  97,  0, general_handler,      nullptr,        0),
    row(100, "AT+QSSLCFG=\"ignorelocaltime\",1,1",                      3,  98,  0, general_handler,      nullptr,        0),
    row(101, "AT+QSSLCFG=\"ignoreinvalidcertsign\",1,1",                3,  99,  0, general_handler,      nullptr,        0),
    row(102, "AT+QSSLCFG=\"ignoremulticertchainverify\",1,1",           3, 100,  0, general_handler,      nullptr,        0),
    row(103, "AT+QSSLCFG=\"sni\",1,1",                                  3, 101,  0, general_handler,      nullptr,        0),
    row(104, "AT+QMTCFG=\"ssl\",0,1,1",                                 3, 102,  0, general_handler,      nullptr,        0),
    row(  1, "AT+QGPS=1",                                               3,   4,  0, general_handler,      nullptr,        0),
    row(  9, "AT+CGMM",                                                30,   9,  0, cgmm_handler,         cgmm_pre_treat, 0),
    row( 10, "AT+CGMI",                                                 3,  10,  0, cgmi_handler,         cgmi_pre_treat, 0),
    row( 11, "AT+CGMR",                                                30,  11,  0, cgmr_handler,         cgmr_pre_treat, 0),
    row( 12, "AT+CGSN",                                                 3,  12,  0, cgsn_handler,         cgsn_pre_treat, 0),
    row( 13, "AT+CPIN?",                                                5,  13,  0, cpin_handler,         nullptr,        0),
    row( 34, "AT+CIMI",                                                 3,  32,  0, cimi_handler,         nullptr,        0),
    row( 43, "AT+CGREG=2",                                              3,  41,  0, general_handler,      nullptr,        0),
    row( 44, "AT+CGREG=1",                                              3,  42,  0, general_handler,      nullptr,        0),
    row( 45, "AT+CGREG=0",                                              3,  43,  0, general_handler,      nullptr,        0),
    row( 18, "AT+CREG=2",                                               3,  18,  0, general_handler,      nullptr,        0),
    row( 41, "AT+CREG=1",                                               3,  39,  0, general_handler,      nullptr,        0),
    row( 42, "AT+CREG=0",                                               3,  40,  0, general_handler,      nullptr,        0),
    row( 29, "AT+CGREG?",                                               3,  44,  0, creg_handler,         nullptr,        3),
    row( 46, "AT+CREG?",                                                3,  28,  0, creg_handler,         nullptr,        0),
    row( 32, "AT+COPS?",                                               30,  31,  0, cops_handler,         nullptr,        0),
    row( 31, "AT+COPS=3,2",                                             3,  30,  0, general_handler,      nullptr,        0),
    row( 30, "AT+COPS=3,0",                                             3,  29,  0, general_handler,      nullptr,        0),
    row( 27, "AT+CSQ",                                                  3,  26,  0, csq_handler,          nullptr,        0),
    row( 21, "AT+CNUM",                                                 3,  21,  0, cnum_handler,         nullptr,        0),
    row( 64, "AT+QMBNCFG=\"Autosel\",1",                                3,  64,  0, general_handler,      nullptr,        0),
    row( 65, "AT+CLIR=2",                                               3,  65, 64, general_handler,      nullptr,        0),
    row( 67, "AT+CLVL=4",                                               3,  67, 64, general_handler,      nullptr,        0),
    row( 69, "AT+QMIC=20577,14567",                                     3,  69, 64, general_handler,      nullptr,        0),
    row( 70, "AT+QRXGAIN=20577",                                        3,  70, 64, general_handler,      nullptr,        0),
    row( 78, "AT+CEREG=2",                                              3,  76,  0, general_handler,      nullptr,        0),
    row( 79, "AT+CEREG?",                                              30,  77,  0, creg_handler,         nullptr,        3),
};

at_info at_private_table[] = {
    //   id  key                  timeout code fl  handler              pre-treatment
    row(  1, "AT_ENABLE_GPS",           1,   4,  0, general_handler,     general_pre_treat),
    row( 16, "AT_GPS_LOC",              3,  16,  0, gps_handler,         general_pre_treat),
    row( 15, "AT_GET_ICCID",            3,  15,  0, qccid_handler,       general_pre_treat),
    row( 37, "AT_GET_SIGNAL1",          3,  33,  0, general_handler,     general_pre_treat),
    row( 39, "AT_CLIP_ENABLED",         3,  37,  0, general_handler,     general_pre_treat),
    row( 40, "AT_SMS_SET_CHARSET",      3,  38,  0, general_handler,     general_pre_treat),
    row( 20, "AT_MODE",                 3,  20,  0, general_handler,     general_pre_treat),
    row( 24, "AT_CHECK_NETWORK",       30,  23,  0, nwinfo_handler,      general_pre_treat),
    row( 57, "AT_SET_SMSC",             3,  55,  0, general_handler,     smsc_pre_treat),
    row( 23, "AT_GET_SMSC",             3,  22,  0, csca_handler,        general_pre_treat),
    row( 35, "AT_CBAND",                3,  34,  0, general_handler,     cband_pre_treat),
    row( 36, "AT_SET_NET_SEQ",          3,  35,  0, netseq_handler,      netseq_pre_treat),
    row( 38, "AT_GET_BAND",             3,  36,  0, general_handler,     general_pre_treat),
    row( 28, "AT_SET_NET_URC",          3,  27,  0, general_handler,     general_pre_treat),
    row( 17, "AT_CLIP_ENABLED",         3,  17,  0, general_handler,     general_pre_treat),
    row( 19, "AT_SMS_SET_CHARSET",      3,  19,  0, general_handler,     general_pre_treat),
    row( 25, "AT_GET_BAND",             3,  24,  0, band_handler,        general_pre_treat),
    row( 47, "AT_NETWORK_AUTO",         3,  45,  0, general_handler,     netmode_pre_treat),
    row( 50, "AT_SET_APN",              3,  48,  0, apn_handler,         apn_pre_treat),
    row( 51, "AT_SET_USER_PWD",         3,  49,  0, general_handler,     userpwd_pre_treat),
    row( 53, "AT_ACTIVE_CONT",        150,  51,  0, general_handler,     general_pre_treat),
    row( 14, "AT_GET_NETWORK",          3,  14,  0, scanmode_handler,    general_pre_treat),
    row( 54, "AT_SET_CONT1",            3,  52,  0, general_handler,     general_pre_treat),
    row( 55, "AT_SET_CONT3",            3,  53,  0, general_handler,     cont3_pre_treat),
    row( 48, "AT_CFUN_FULL",            5,  46,  0, cfun_full_handler,   general_pre_treat),
    row( 49, "AT_CFUN_MINI",            5,  47,  0, cfun_mini_handler,   general_pre_treat),
    row( 56, "AT_SEND_PIN",             1,  54,  0, cpin_handler,        cpin_pre_treat),
    row( 58, "AT_SEND_SMS_TEXT_MODE",   1,  56,  0, general_handler,     general_pre_treat),
    row( 22, "AT_GSM",                  3,  58,  0, general_handler,     general_pre_treat),
    row( 62, "AT_SEND_SMS_DES",         1,  60,  0, sms_send_handler,    sms_des_pre_treat),
    row( 59, "AT_SEND_SMS_PDU_MODE",    1,  57,  0, general_handler,     general_pre_treat),
    row( 61, "AT_UCS2",                 1,  59,  0, general_handler,     ucs2_pre_treat),
    row( 63, "AT_SEND_SMS_LEN",         1,  61,  0, sms_send_handler,    sms_len_pre_treat),
    row( 66, "AT_CALL_STATE_INIT",      1,  66, 64, general_handler,     general_pre_treat),
    row( 68, "AT_AUDIO_PCM_SLAVE",      1,  68, 64, general_handler,     general_pre_treat),
    row( 71, "AT_SET_VOLTE",            1,  71,  0, general_handler,     volte_pre_treat),
    row( 72, "AT_GET_SERVINGCELL",     15,  72,  0, servingcell_handler, general_pre_treat),
    row( 73, "AT_SEL_SIMSLOT",          6,  73,  0, selslot_handler,     selslot_pre_treat),
    row( 80, "AT_GET_USB_MODE",         3,  78,  0, general_handler,     general_pre_treat),
    row( 81, "AT_SET_NVWR_SEV",         3,  79,  0, general_handler,     general_pre_treat),
    row( 82, "AT_SET_NVWR_SEQ",         3,  80,  0, general_handler,     general_pre_treat),
    row( 83, "AT_SET_IPPASS",           3,  81,  0, general_handler,     general_pre_treat),
    row( 84, "AT_DEL_GTRNDIS",          3,  82,  0, general_handler,     general_pre_treat),
    row(105, "AT_GET_MBN_LIST",        10, 103,  0, mbn_list_handler,    general_pre_treat),
};
// clang-format on

const std::size_t at_general_rows = std::size(at_general_table);
const std::size_t at_private_rows = std::size(at_private_table);

namespace
{

at_info* find_row(at_info* table, std::size_t rows, int id)
{
    for (std::size_t i = 0; i < rows; i++)
        if (table[i].id == id)
            return &table[i];
    return nullptr;
}

bool is_empty(const char* text)
{
    return text == nullptr || *text == '\0';
}

// Slow modules get their time in the row itself, so that every node made from now on has it.
struct slow_row {
    bool (*slow)();
    int id;
    int seconds;
};
constexpr slow_row slow_rows[] = {
    {slowest_to_start, 33, 60},
    {slow_to_start, 33, 20},
    {slow_to_start, 13, 30},
};

void apply_family_timeout(at_info* row)
{
    for (const slow_row& entry : slow_rows)
        if (entry.id == row->id && entry.slow())
            row->timeout = entry.seconds;
}

int append_node(at_list* list, const at_info* row, const char* cmd, int seq,
                const char* cmd_template)
{
    at_info* const at =
        at_info_create(row->id, nullptr, cmd, row->timeout, row->code, row->flags, row->handler,
                       seq, row->pre_treat, row->retries, cmd_template);
    if (at == nullptr)
        return at_no_memory;
    lock_scope guard(flow_lock);
    at_list_append(list, at);
    return at_added;
}

const char* find_value(const cfg_file* cfg, const char* key)
{
    const list_head* node;
    list_for_each(node, &cfg->items)
    {
        const cfg_item* const item = list_entry(const_cast<list_head*>(node), cfg_item, node);
        if (item->name != nullptr && std::strcmp(item->name, key) == 0)
            return item->value;
    }
    return nullptr;
}

} // namespace

int at_list_add_general(at_list* list, int id, int seq)
{
    at_info* const row = find_row(at_general_table, at_general_rows, id);
    if (row == nullptr)
        return at_no_row; // no message: the caller looks in the private catalogue next
    if (is_empty(row->cmd) || row->handler == nullptr) {
        diag_at(plain, __func__, "unexpected error!\n");
        return at_no_row;
    }
    apply_family_timeout(row);
    return append_node(list, row, row->cmd, seq, nullptr);
}

int at_list_add_private(at_list* list, int id, int seq, const cfg_file* cfg)
{
    if (cfg == nullptr) {
        diag_at(plain, __func__, "unknown model!\n");
        return at_no_row;
    }
    const at_info* const row = find_row(at_private_table, at_private_rows, id);
    if (row == nullptr) {
        diag_at(plain, __func__, "the at(id=%d) do not exist in private array!\n", id);
        return at_no_row;
    }
    if (is_empty(row->name)) {
        diag_at(plain, __func__, "[id=%d] invalid name!\n", id);
        return at_no_row;
    }
    if (row->handler == nullptr) {
        diag_at(plain, __func__, "unexpected error!\n");
        return at_no_row;
    }
    const char* const value = find_value(cfg, row->name);
    if (value == nullptr) {
        diag_at(plain, __func__, "the at(%s) do not exist in cfg file!\n", row->name);
        return at_no_row;
    }
    return append_node(list, row, nullptr, seq, value);
}

namespace
{

constexpr flow_step first_rows_low_power[] = {
    {1, 9},   {2, 11},   {3, 12},   {4, 90},   {5, 86},   {6, 89},  {7, 85},
    {8, 92},  {9, 94},   {10, 41},  {11, 95},  {12, 96},  {13, 97}, {14, 98},
    {15, 99}, {16, 100}, {17, 101}, {18, 102}, {19, 103},
};
constexpr flow_step first_rows[] = {{1, 9}, {2, 11}, {3, 85}, {4, 106}};

} // namespace

void at_list_add_first_rows(at_list* list, bool low_power)
{
    const flow_step* const steps = low_power ? first_rows_low_power : first_rows;
    const std::size_t count = low_power ? std::size(first_rows_low_power) : std::size(first_rows);
    for (std::size_t i = 0; i < count; i++)
        at_list_add_general(list, steps[i].id, steps[i].seq);
}

} // namespace kelo
