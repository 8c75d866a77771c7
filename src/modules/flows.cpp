// SPDX-License-Identifier: MIT
// Flows: how the lists are filled for a module, and how one of them becomes the current list.

#include "modules/modules.h"

#include "handlers/questions.h"
#include "modules/commands.h"
#include "sms/sms.h"
#include "support/diag.h"
#include "support/text.h"

namespace kelo
{

namespace
{

// Profile of the detected module, found on first need.
const cfg_file* matched_cfg_file = nullptr;

const cfg_file* profile_of(const char* model, const char* revision)
{
    const cfg_file* const file = module_brought(model, revision);
    return file != nullptr ? file : cfg_file_find(model);
}

void add_step(at_list* list, const flow_step& step, const char* model, const char* revision)
{
    if (at_list_add_general(list, step.id, step.seq) != at_no_row)
        return;
    if (matched_cfg_file == nullptr)
        matched_cfg_file = profile_of(model, revision);
    if (matched_cfg_file == nullptr) {
        diag_at(plain, "add_remaining_ats_by_model", "failed to match module '%s'\n", model);
        return;
    }
    at_list_add_private(list, step.id, step.seq, matched_cfg_file);
}

} // namespace

int add_remaining_ats_by_model(const char* model, const char* revision, int flow, at_list* list)
{
    if (model == nullptr || *model == '\0' || revision == nullptr || *revision == '\0')
        return -1;
    for (const flow_step& step : module_steps(model, revision, flow))
        add_step(list, step, model, revision);
    return 0;
}

void at_compose_flows(gsm_mobile* rec, const char* model, const char* revision)
{
    // A line that no row is known for may have been something else; what identifies the module then
    // comes behind it.
    static bool composed = false;
    if (composed)
        return;
    composed = *model != '\0' && !module_steps(model, revision, FLOW_START).empty();
    for (const int sim : {1, 2})
        for (const int flow : {FLOW_START, FLOW_RELOAD})
            add_remaining_ats_by_model(model, revision, flow, at_list_of(flow, sim));
    add_remaining_ats_by_model(model, revision, FLOW_SMS_TEXT, &sms_text_list);
    add_remaining_ats_by_model(model, revision, FLOW_SMS_PDU, &sms_pdu_list);
    // One step: a change of flow by another thread sees the lists without custom items and leaves
    // them to this, or whole and with all of theirs.
    lock_scope<flow_lock> flow_guard;
    {
        lock_scope<record_lock> record_guard;
        rec->custom_cfg = 1;
    }
    libgsm_apply_custom_config();
}

void at_compose_added_flow()
{
    static bool made = false;
    if (made || matched_cfg_file == nullptr || !list_empty(&sms_pdu_list))
        return;
    made = true;
    for (const flow_step& step : common_message_steps())
        add_step(&sms_added_list, step, "", ""); // its profile is known
}

bool at_may_go(const at_info* at)
{
    if (at->id != command::set_apn)
        return true;
    const int need = word_get(needSetApn);
    const int low_power = word_get(isLowPower);
    if (need == 0 && low_power == 0) {
        diag_plain("[4G] skip set apn command");
        return false;
    }
    diag_plain("[4G] set apn, needSetApn=%d, isLowPower=%d\n", need, low_power);
    return true;
}

namespace
{

int custom_cfg_of(gsm_mobile* rec)
{
    lock_scope<record_lock> guard;
    return rec->custom_cfg;
}

at_list* list_to_walk(int flow, int sim, bool identified)
{
    if (flow == FLOW_SMS_TEXT)
        return &sms_text_list;
    if (flow == FLOW_SMS_PDU)
        return &sms_pdu_list;
    if (flow == flow_sms_added)
        return list_empty(&sms_pdu_list) ? &sms_added_list : &sms_pdu_list;
    // Only the first list of all can identify a module: until that has happened, SIM 2 starts on
    // it.
    if (flow == FLOW_START && sim == 2 && !identified)
        sim = 1;
    return at_list_of(flow, sim);
}

void at_list_reset(at_list* list)
{
    list_head* node;
    list_for_each(node, list)
    {
        at_info* const at = at_of(node);
        at->flags &= ~(AT_FLAG_SENT | AT_FLAG_SKIP | AT_FLAG_IGNORE);
        text_replace(at->custom_cmd, nullptr);
        at->custom_seq = 0;
    }
}

} // namespace

void at_select_flow(gsm_mobile* rec, int flow, int sim)
{
    const bool identified = custom_cfg_of(rec) != 0;
    cur_at_list = list_to_walk(flow, sim, identified);
    if (cur_at_list == nullptr) {
        diag_at(plain, "libgsm_change_flow", "fatal error!\n");
        return;
    }
    if (flow == FLOW_START || flow == FLOW_RELOAD) {
        libgsm_reset_cell_info(rec);
        word_set(flow_walked, 0);
        sms_send_interrupted();
        sms_storage_forget();
        questions_forget();
    }
    at_list_reset(cur_at_list);
    libgsm_set_at_timeout(cur_at_list);
    if (identified)
        libgsm_apply_custom_config();
    at_seq_cursor = 0;
    lock_scope<record_lock> record_guard;
    rec->flow = flow == flow_sms_added ? FLOW_SMS_PDU : flow;
    rec->at_done = 1;
    rec->is5g = KELO_5G_NONE;
}

void libgsm_change_flow(gsm_mobile* rec, int flow, int sim)
{
    if (rec == nullptr)
        return;
    lock_scope<flow_lock> guard;
    at_select_flow(rec, flow, sim);
}

} // namespace kelo

using namespace kelo;

const char* libgsm_get_modem_network_type()
{
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr)
        return "LTE";
    lock_scope<record_lock> guard;
    return module_network(rec->model);
}
