// SPDX-License-Identifier: MIT
// What a host changes of the start and reload flows through cell_at_config_h.
//
// Every function here runs with flow_lock held by its caller: a change of flow and the composition
// of the lists apply the items as one step of their own, which nobody may see half done.
#include "modules/modules.h"

#include "handlers/handlers.h"
#include "support/diag.h"
#include "support/text.h"

#include <algorithm>
#include <climits>

list_head cell_at_config_h = LIST_HEAD_INIT(cell_at_config_h);

namespace kelo
{

namespace
{

// Above every seq that a first row has, so that an added command comes behind them.
constexpr int lowest_added_seq = 21;

constexpr int added_timeout = 3; // seconds

int item_timeout(const at_config_item* item)
{
    if (item->timeout >= 0)
        return item->timeout;
    diag_at(plain, __func__, "[ID%d] refused timeout (%d)\n", item->id, item->timeout);
    return 0;
}

// The text of an item, null for none. A text that would end a command early, and go on as another,
// is none.
const char* item_text(const at_config_item* item)
{
    if (item->cmd == nullptr || *item->cmd == '\0')
        return nullptr;
    if (!text_has_control(item->cmd))
        return item->cmd;
    diag_at(plain, __func__, "[ID%d] refused a command with control characters\n", item->id);
    return nullptr;
}

void change_command(at_info* at, const at_config_item* item, const char* text)
{
    at->flags = (at->flags & ~AT_FLAG_IGNORE) | (item->ignore != 0 ? AT_FLAG_IGNORE : 0);
    at->custom_seq = item->seq;
    const int timeout = item_timeout(item);
    if (timeout != 0)
        at->timeout = timeout;
    text_replace(at->custom_cmd, text_duplicate(text));
}

void add_command(at_list* list, const at_config_item* item, const char* text)
{
    int highest = lowest_added_seq;
    list_head* node = nullptr;
    list_for_each(node, list)
    {
        highest = std::max(highest, at_of(node)->seq);
    }
    const int next = highest < INT_MAX ? highest + 1 : highest;
    const int timeout = item_timeout(item);
    at_info* const at = at_info_create(
        item->id, nullptr, text, timeout != 0 ? timeout : added_timeout, AT_CODE_CUSTOM,
        AT_FLAG_CUSTOM, general_handler, item->seq != 0 ? item->seq : next, nullptr, 1, nullptr);
    if (at != nullptr)
        at_list_append(list, at);
}

// The first command of a number, or null.
at_info* find_command(at_list* list, int id)
{
    list_head* node = nullptr;
    list_for_each(node, list)
    {
        if (at_of(node)->id == id)
            return at_of(node);
    }
    return nullptr;
}

} // namespace

void at_list_apply_item(at_list* list, const at_config_item* item)
{
    const char* const text = item_text(item);
    at_info* const at = find_command(list, item->id);
    if (at != nullptr)
        change_command(at, item, text);
    else if (text != nullptr)
        add_command(list, item, text);
}

void libgsm_apply_custom_config()
{
    list_head* node = nullptr;
    list_for_each(node, &cell_at_config_h)
    {
        const auto* const item = list_entry(node, at_config_item, node);
        at_list* const list = at_list_of(item->flow, item->sim);
        if (list == nullptr) {
            diag_at(plain, __func__, "unexpected error(sim=%d, flow=%d)!\n", item->sim, item->flow);
            continue;
        }
        at_list_apply_item(list, item);
    }
}

void libgsm_set_at_timeout(at_list* list)
{
    list_head* node = nullptr;
    list_for_each(node, &cell_at_config_h)
    {
        const auto* const item = list_entry(node, at_config_item, node);
        const int timeout = item_timeout(item);
        at_info* const at = timeout != 0 ? find_command(list, item->id) : nullptr;
        if (at == nullptr)
            continue;
        at->timeout = timeout;
        diag_at(plain, __func__, "[ID%d] update timeout (%d)\n\n", at->id, timeout);
    }
}

} // namespace kelo
