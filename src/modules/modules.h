// SPDX-License-Identifier: MIT
// All that is said of a module: the catalogues of commands, the flows that each module walks, how a
// command gets its text, and what a host changes of it.
//
// Threads: the mobile task composes the flows and makes the texts. Any thread may change the flow
// (libgsm_change_flow).
// Words that leave: flow_walked.
#pragma once

#include "at/at.h"
#include "support/owned.h"

#include <cstddef>
#include <span>
#include <utility>

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

// A command as the catalogues have it. In the private one its text is a key of the module's profile
// file.
struct command_row {
    const char* text;
    at_handler handler;
    at_pre_treat pre_treat;
    short id, timeout, code; // the timeout in seconds
    unsigned char flags, retries;
};

// For tests and tools: the catalogues themselves.
extern command_row at_general_table[];
extern const command_row at_private_table[];
extern const std::size_t at_general_rows;
extern const std::size_t at_private_rows;

// ---- The table of modules (module_table.cpp)

struct flow_step {
    short seq;
    short id;
};
// Of the flow for a module; empty for none. The revision tells variants apart that share a model
// text; where it names no key, the model text stands for the first key that begins with it. A
// module without a start flow of its own may have those of another, by a file.
std::span<const flow_step> module_steps(const char* model, const char* revision, int flow);

// By a file alone: which one it is, and what the module passes for in the functions below.
const cfg_file* module_brought(const char* model, const char* revision); // or null
const char* module_alike(const char* model, const char* revision);

bool module_is_listed(const char* name);         // a key whose flow is known
const char* module_named_with(const char* text); // a name that begins with the text, or null

const char* module_in(const char* line); // where the model starts in a line, or null
const char* module_unlisted();           // what named itself and is in no row; record_lock is held
const char* module_network(const char* model);
const char* module_net_sequence(const char* model);
const char* module_band_mask(const char* model, const char* revision); // or null

enum class apn_form : char {
    context, // the whole definition of a context
    name,
    name_with_protocol,
};
apn_form module_apn_form(const char* model);

struct mode_value {
    int scanmode;
    const char* value;
    const char* nr_alone = nullptr; // when set, cell_network_switch chooses: 0 value, 1 this one
};
struct mode_values {
    std::span<const mode_value> values;
    const char* otherwise; // for the scan modes without a value
    bool mapped;           // the value is the number that the modem reports in currscanmode, too
};
const mode_values* module_modes(const char* model); // or null

std::span<const flow_step> common_message_steps(); // a PDU, as most modules send it

const char* module_key(std::size_t index); // of a row, for tests; null behind the last

// ---- Modules that a profile file brings by itself (by_file.cpp)

// Looks at the MODEL and LIKE of the files that were read; a pair that is not right is said, and
// the file counts as one without. On the thread that reads them.
void modules_of_files();

const cfg_file*
module_file(const char* model); // whose MODEL begins the model, the longest; or null

// ---- Flows (flows.cpp)

int add_remaining_ats_by_model(const char* model, const char* revision, int flow, at_list* list);

// Fills all six lists for the model, sets custom_cfg and applies the custom items; once, for the
// first pair that the table has a flow for. Mobile task.
void at_compose_flows(gsm_mobile* rec, const char* model, const char* revision);

// Whether a command is wanted at all. The APN goes to the modem only after a change of settings or
// in low power mode; otherwise the dialer brings it.
bool at_may_go(const at_info* at);

// Sends one PDU on any module: by the rows that most of them have in common where its own flow has
// none. They are made when a message waits, so that nothing is said of them where none does. Mobile
// task.
constexpr int flow_sms_added = 100;
void at_compose_added_flow();

void libgsm_change_flow(gsm_mobile* rec, int flow, int sim);
void at_select_flow(gsm_mobile* rec, int flow, int sim); // the same, caller holds flow_lock

// ---- Which module it is (identify.cpp)

event* cgmm_handler(gsm_mobile* rec, char* line);
event* cgmr_handler(gsm_mobile* rec, char* line);

// Where the answer to AT+CGMR had no end, the flows of a file's module still have to be made.
// Mobile task.
void at_compose_flows_of_file(gsm_mobile* rec);

// ---- Custom commands (custom_config.cpp)

// Callers of all three hold flow_lock.
void libgsm_apply_custom_config();
void libgsm_set_at_timeout(at_list* list);
void at_list_apply_item(at_list* list, const at_config_item* item);

// ---- Pre-treatment (pre_treat.cpp)

text_pointer at_substitute(const char* text, std::size_t text_length, const char* placeholder,
                           const char* value);

// Each is the operation of the rows that name it.
using pre_treatment = int(gsm_mobile* mobile, at_info* at);
pre_treatment general_pre_treat, cband_pre_treat, netseq_pre_treat, netmode_pre_treat,
    apn_pre_treat, userpwd_pre_treat, cont3_pre_treat, cpin_pre_treat, sms_des_pre_treat,
    sms_len_pre_treat, smsc_pre_treat, ucs2_pre_treat, volte_pre_treat, selslot_pre_treat,
    cgmm_pre_treat, cgmi_pre_treat, cgmr_pre_treat, cgsn_pre_treat;

} // namespace kelo
