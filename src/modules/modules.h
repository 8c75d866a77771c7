// All that is said of a module: the catalogues of commands, the flows that each module walks, how a
// command gets its text, and what a host changes of it.
//
// Threads: the mobile task composes the flows and makes the texts. Any thread may change the flow
// (libgsm_change_flow).
// Words that leave: at_flow_done.
#pragma once

#include "at/at.h"

#include <cstddef>

namespace kelo
{

// ---- Catalogues (catalogue.cpp)

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

// Whether a command is wanted at all. The APN goes to the modem only after a change of settings or
// in low power mode; otherwise the dialer brings it.
bool at_may_go(const at_info* at);

void libgsm_change_flow(gsm_mobile* rec, int flow, int sim);
void at_select_flow(gsm_mobile* rec, int flow, int sim); // the same, caller holds flow_lock

// ---- Which module it is (identify.cpp)

event* cgmm_handler(gsm_mobile* rec, char* line);
event* cgmr_handler(gsm_mobile* rec, char* line);

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

// Makes `text` the command's text; null leaves the old one. The text becomes the node's. Takes
// flow_lock.
void at_install(at_info* at, char* text);

// Installs the command's template with `value` in the place of `placeholder`.
void at_fill(at_info* at, const char* placeholder, const char* value);

} // namespace kelo
