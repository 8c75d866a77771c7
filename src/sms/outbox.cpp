// The SMS outbox: a queue in memory, filled by any thread, emptied by the mobile task.
#include "sms/sms.h"

#include "support/diag.h"
#include "support/owned.h"
#include "support/text.h"

#include <cstdlib>

namespace kelo
{

namespace
{

list_head sms_outbox = LIST_HEAD_INIT(sms_outbox); // guarded by outbox_lock

bool is_empty(const char* text)
{
    return text == nullptr || *text == '\0';
}

// A number stands between the quotes of a command. A body may have lines, but a Ctrl-Z in it would
// send it half, and let the modem read the rest as commands; an Escape would throw it away.
bool is_sendable(const char* number, std::string_view body)
{
    return !text_has_control(number) && std::strpbrk(number, "\"\t") == nullptr &&
           body.find_first_of("\x1a\x1b") == std::string_view::npos;
}

} // namespace

sms_outbox_item* sms_outbox_item_create(int mode, const char* tag, const char* number, int length,
                                        std::string_view body)
{
    if (refused_in_fork("sms_outbox_enq"))
        return nullptr;
    if (is_empty(tag) || is_empty(number) || body.empty())
        return nullptr;
    if (!is_sendable(number, body)) {
        diag_at(plain, "sms_outbox_enq", "refused a message with control characters\n");
        return nullptr;
    }
    text_pointer tag_copy = text_duplicate(tag);
    text_pointer number_copy = text_duplicate(number);
    text_pointer body_copy = text_room(body.size());
    if (tag_copy == nullptr || number_copy == nullptr || body_copy == nullptr)
        return nullptr;
    body.copy(body_copy.get(), body.size());
    auto* const item = static_cast<sms_outbox_item*>(memory_for(sizeof(sms_outbox_item)));
    if (item != nullptr)
        *item = {mode, tag_copy.release(), number_copy.release(), length, body_copy.release(), {}};
    return item;
}

bool sms_outbox_put(sms_outbox_item* item)
{
    const lock_scope hold(outbox_lock);
    if (item != nullptr)
        list_add_tail(&item->node, &sms_outbox);
    return item != nullptr;
}

void sms_outbox_append(list_head& items)
{
    const lock_scope hold(outbox_lock);
    while (!list_empty(&items)) {
        list_head* const first = items.next;
        list_del(first);
        list_add_tail(first, &sms_outbox);
    }
}

} // namespace kelo

using namespace kelo;

int sms_outbox_enq(int mode, const char* tag, const char* number, int length, const char* body)
{
    return sms_outbox_put(
               sms_outbox_item_create(mode, tag, number, length, body != nullptr ? body : ""))
               ? 0
               : -1;
}

struct sms_outbox_item* sms_outbox_deq(void)
{
    const lock_scope hold(outbox_lock);
    if (list_empty(&sms_outbox))
        return nullptr;
    list_head* const first = sms_outbox.next;
    list_del(first);
    return list_entry(first, sms_outbox_item, node);
}

void sms_outbox_free(struct sms_outbox_item* item)
{
    if (item == nullptr)
        return;
    std::free(item->sms_tag);
    std::free(item->sms_number);
    std::free(item->sms_body);
    std::free(item);
}
