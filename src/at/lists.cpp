// SPDX-License-Identifier: MIT
// The flow lists and their nodes, and the choice of the next command.

#include "at/at.h"
#include "support/diag.h"
#include "support/text.h"

#include <climits>
#include <cstdlib>

namespace kelo
{

at_list start_sim1_list = LIST_HEAD_INIT(start_sim1_list);
at_list reload_sim1_list = LIST_HEAD_INIT(reload_sim1_list);
at_list start_sim2_list = LIST_HEAD_INIT(start_sim2_list);
at_list reload_sim2_list = LIST_HEAD_INIT(reload_sim2_list);
at_list sms_text_list = LIST_HEAD_INIT(sms_text_list);
at_list sms_pdu_list = LIST_HEAD_INIT(sms_pdu_list);
at_list sms_added_list = LIST_HEAD_INIT(sms_added_list);

at_list* cur_at_list = &start_sim1_list;
int at_seq_cursor = 0;

namespace
{

// A node's own copy of a text; an empty one is none. False without memory.
bool own_text(char*& field, const char* text)
{
    field = nullptr;
    if (text == nullptr || *text == '\0')
        return true;
    field = text_duplicate(text).release();
    return field != nullptr;
}

} // namespace

at_info* at_info_create(int id, const char* name, const char* cmd, int timeout, int code,
                        unsigned int flags, at_handler handler, int seq, at_pre_treat pre_treat,
                        int retries, const char* cmd_template)
{
    auto* const at = static_cast<at_info*>(memory_for(sizeof(at_info)));
    if (at == nullptr || !own_text(at->name, name) || !own_text(at->cmd, cmd) ||
        !own_text(at->cmd_template, cmd_template)) {
        at_info_free(at);
        diag_at(plain, __func__, "failed to alloc memory!\n");
        return nullptr;
    }
    at->id = id;
    at->timeout = timeout;
    at->code = code;
    at->flags = flags;
    at->handler = handler;
    at->seq = seq;
    at->pre_treat = pre_treat;
    at->retries = retries;
    list_init(&at->node);
    return at;
}

void at_info_free(at_info* at)
{
    if (at == nullptr)
        return;
    std::free(at->name);
    std::free(at->cmd);
    std::free(at->cmd_template);
    std::free(at->custom_cmd);
    std::free(at);
}

at_list* at_list_of(int flow, int sim)
{
    if (flow == FLOW_START && sim == 1)
        return &start_sim1_list;
    if (flow == FLOW_RELOAD && sim == 1)
        return &reload_sim1_list;
    if (flow == FLOW_START && sim == 2)
        return &start_sim2_list;
    if (flow == FLOW_RELOAD && sim == 2)
        return &reload_sim2_list;
    return nullptr;
}

void at_list_append(at_list* list, at_info* at)
{
    list_add_tail(&at->node, list);
}

void at_list_free(at_list* list)
{
    lock_scope<flow_lock> guard;
    while (!list_empty(list)) {
        // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): list_del unlinked the one before
        at_info* const at = at_of(list->next);
        list_del(&at->node);
        at_info_free(at);
    }
}

at_info* at_list_next(at_list* list)
{
    if (list == nullptr)
        return nullptr;
    at_info* chosen = nullptr;
    list_head* node;
    list_for_each(node, list)
    {
        at_info* const at = at_of(node);
        const int seq = at_effective_seq(at);
        if ((at->flags & AT_FLAG_SENT) != 0 || seq < at_seq_cursor)
            continue;
        if (chosen == nullptr || seq < at_effective_seq(chosen))
            chosen = at; // of equal seqs the first in the list stays
    }
    if (chosen != nullptr) {
        at_seq_cursor = at_effective_seq(chosen);
        chosen->flags |= AT_FLAG_SENT;
    }
    return chosen;
}

void at_flow_skip_rest()
{
    lock_scope<flow_lock> guard;
    if (cur_at_list == nullptr)
        return;
    list_head* node;
    list_for_each(node, cur_at_list) at_of(node)->flags |= AT_FLAG_SENT;
}

void at_set_flags(at_info* at, unsigned int flags)
{
    lock_scope<flow_lock> guard;
    at->flags |= flags;
}

unsigned int at_get_flags(at_info* at)
{
    lock_scope<flow_lock> guard;
    return at->flags;
}

void at_flag_current(gsm_mobile* rec, unsigned int flags)
{
    lock_scope<flow_lock> flow_guard;
    lock_scope<record_lock> record_guard;
    if (rec->cur_at != nullptr)
        rec->cur_at->flags |= flags;
}

} // namespace kelo
