// The AT command engine: the catalogues, the flow lists, the exchange with the modem, profile
// files, custom commands and the filling-in of templates.
//
// Threads: the mobile task walks the lists and is the only reader of the port. Any thread may write
// a command (exec_at_command) or change the flow (libgsm_change_flow).
// Nodes live for ever once they are on a list. What another thread may change of one (its flags,
// custom_cmd, custom_seq, timeout) and the lists themselves are guarded by flow_lock; cmd,
// countdown and retries_left belong to the mobile task.
// Words that leave: at_flow_done, through at_flow_finished().
#pragma once

#include "core/gsm.h"
#include <kelo/at.h>
#include <kelo/gsm.h>

#include <cstddef>

namespace kelo
{

using at_list = list_head; // of at_info nodes

// ---- Lists (lists.cpp)

extern at_list start_sim1_list;
extern at_list reload_sim1_list;
extern at_list start_sim2_list;
extern at_list reload_sim2_list;
extern at_list sms_text_list;
extern at_list sms_pdu_list;

// The list of a start or reload flow of SIM 1 or 2; null for any other pair.
at_list* at_list_of(int flow, int sim);

extern at_list* cur_at_list; // the list being walked, null after a change to no flow
extern int at_seq_cursor;    // lowest seq that may still be picked in this pass
extern int at_flow_done;     // 1: a pick found nothing; cleared by a change to start or reload

at_info* at_info_create(int id, const char* name, const char* cmd, int timeout, int code,
                        unsigned int flags, at_handler handler, int seq, at_pre_treat pre_treat,
                        int retries, const char* cmd_template);
void at_info_free(at_info* at);
inline at_info* at_of(list_head* node)
{
    return list_entry(node, at_info, node);
}

// The seq that counts: that of a custom item when it has one.
inline int at_effective_seq(const at_info* at)
{
    return at->custom_seq != 0 ? at->custom_seq : at->seq;
}

void at_list_append(at_list* list, at_info* at); // caller holds flow_lock
void at_list_free(at_list* list);

// The next command of the list, marked as sent; null at the end. Caller holds flow_lock.
at_info* at_list_next(at_list* list);

int at_flow_finished();

// Marks every command of the current list as sent, so that the flow ends behind the running one.
// Takes flow_lock.
void at_flow_skip_rest();

// Sets flags of one node, or of the command last taken from a list. They take flow_lock.
void at_set_flags(at_info* at, unsigned int flags);
unsigned int at_get_flags(at_info* at);
void at_flag_current(gsm_mobile* rec, unsigned int flags);

// ---- Catalogues (catalogue.cpp)

struct cfg_file;

// Results of adding a row. Both of the failures are "not added"; only the first lets a caller look
// in the other catalogue.
constexpr int at_added = 0;
constexpr int at_no_row = -1;
constexpr int at_no_memory = -2;

int at_list_add_general(at_list* list, int id, int seq);
int at_list_add_private(at_list* list, int id, int seq, const cfg_file* cfg);

// The rows that run before the module is known.
void at_list_add_first_rows(at_list* list, bool low_power);

// For tests and tools: the catalogues themselves.
extern at_info at_general_table[];
extern at_info at_private_table[];
extern const std::size_t at_general_rows;
extern const std::size_t at_private_rows;

// ---- Flows (flows.cpp, their tables in flow_tables.cpp)

struct flow_step {
    int seq;
    int id;
};

struct model_flow {
    const char* key;
    int count;
    const flow_step* steps;
};

struct model_table {
    const model_flow* rows;
    int count;
};

extern const model_table flow_start_models;
extern const model_table flow_reload_models;
extern const model_table flow_sms_text_models;
extern const model_table flow_sms_pdu_models;

struct modem_network {
    const char* model;
    const char* network;
    int number;
};

extern const modem_network modem_network_table[];
extern const std::size_t modem_network_rows;

int add_remaining_ats_by_model(const char* model, const char* revision, int flow, at_list* list);

// Fills all six lists for the model, sets custom_cfg and applies the custom items. Mobile task.
void at_compose_flows(gsm_mobile* rec, const char* model, const char* revision);

void libgsm_change_flow(gsm_mobile* rec, int flow, int sim);
void at_select_flow(gsm_mobile* rec, int flow, int sim); // the same, caller holds flow_lock
void libgsm_reset_cell_info(gsm_mobile* rec);

// ---- Exchange (exchange.cpp)

// Writes text, CR, LF in one write, three attempts at most, a second apart. 0 after the attempts;
// -1 for no record, a closed port, no text, no memory. Takes port_lock for each attempt.
int exec_at_command(gsm_mobile* rec, const char* text);

// Writes bytes as they are in the same way, with up to `attempts` attempts; `name` is what the
// retry lines call the function. Gives the result of the last write, or -2 for a port that was
// closed.
long port_write(gsm_mobile* rec, const char* bytes, std::size_t length, int attempts,
                const char* name, const char* shown);

// Reads the port dry, but for the limit of one response. The buffer is the caller's to free, and
// always has room for a NUL behind `length`.
struct response {
    char* text;
    std::size_t length;
    bool drained; // false: the limit came first, and more waits
};
inline constexpr std::size_t response_limit = 64 * 1024;
int read_at_result(gsm_mobile* rec, response& result);

// Picks the next command and sends it. Null when a row was passed over, and when the list has
// nothing more; `list_ended` tells them apart.
at_info* libgsm_send_atcommand(gsm_mobile* rec, bool& list_ended);

// Reads and handles what the port has. Gives the last event of the batch, or null. `drained` false:
// more waits than one response may hold. `heard` false: the port was ready and had nothing.
struct read_outcome {
    event* raised = nullptr;
    bool drained = true;
    bool heard = false;
};
read_outcome libgsm_check_event(gsm_mobile* rec, at_info* cur);

int libgsm_schedule_run(gsm_mobile* rec, at_info* cur);

// ---- Profile files (profiles.cpp)

struct cfg_item {
    char* name;
    char* value;
    list_head node;
};

struct cfg_file {
    char* path;
    char* module; // null without a MODULE line
    list_head items;
    list_head node;
};

extern list_head cfg_file_list;

int search_cfg_file(const char* folder);
int cfg_file_add(const char* folder, const char* name);
int parse_cfg_file(cfg_file* cfg);
cfg_file* cfg_file_find(const char* model);
void trim_tail(char* text, std::size_t length);
void trim_copy(char* destination, const char* source);

// ---- Custom commands (custom_config.cpp)

// Callers of all three hold flow_lock.
void libgsm_apply_custom_config();
void libgsm_set_at_timeout(at_list* list);
void at_list_apply_item(at_list* list, const at_config_item* item);

// ---- Pre-treatment (pre_treat.cpp)

char* at_substitute(const char* text, std::size_t text_length, const char* placeholder,
                    const char* value);

int general_pre_treat(gsm_mobile* mobile, at_info* at);
int cband_pre_treat(gsm_mobile* mobile, at_info* at);
int netseq_pre_treat(gsm_mobile* mobile, at_info* at);
int netmode_pre_treat(gsm_mobile* mobile, at_info* at);
int apn_pre_treat(gsm_mobile* mobile, at_info* at);
int userpwd_pre_treat(gsm_mobile* mobile, at_info* at);
int cont3_pre_treat(gsm_mobile* mobile, at_info* at);
int cpin_pre_treat(gsm_mobile* mobile, at_info* at);
int sms_des_pre_treat(gsm_mobile* mobile, at_info* at);
int sms_len_pre_treat(gsm_mobile* mobile, at_info* at);
int smsc_pre_treat(gsm_mobile* mobile, at_info* at);
int ucs2_pre_treat(gsm_mobile* mobile, at_info* at);
int volte_pre_treat(gsm_mobile* mobile, at_info* at);
int selslot_pre_treat(gsm_mobile* mobile, at_info* at);
int cgmm_pre_treat(gsm_mobile* mobile, at_info* at);
int cgmi_pre_treat(gsm_mobile* mobile, at_info* at);
int cgmr_pre_treat(gsm_mobile* mobile, at_info* at);
int cgsn_pre_treat(gsm_mobile* mobile, at_info* at);

} // namespace kelo
