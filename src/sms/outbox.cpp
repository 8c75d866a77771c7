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
bool is_sendable(const char* number, const char* body)
{
    return !text_has_control(number) && std::strpbrk(number, "\"\t") == nullptr &&
           std::strpbrk(body, "\x1a\x1b") == nullptr;
}

} // namespace

sms_outbox_item* sms_outbox_item_create(int mode, const char* tag, const char* number, int length,
                                        const char* body)
{
    if (is_empty(tag) || is_empty(number) || is_empty(body))
        return nullptr;
    if (!is_sendable(number, body)) {
        diag_at(plain, "sms_outbox_enq", "refused a message with control characters\n");
        return nullptr;
    }
    auto* const item = static_cast<sms_outbox_item*>(std::calloc(1, sizeof(sms_outbox_item)));
    if (item == nullptr)
        return nullptr;
    item->sms_mode = mode;
    item->sms_tag = text_duplicate(tag).release();
    item->sms_number = text_duplicate(number).release();
    item->sms_length = length;
    item->sms_body = text_duplicate(body).release();
    if (item->sms_tag == nullptr || item->sms_number == nullptr || item->sms_body == nullptr) {
        sms_outbox_free(item);
        return nullptr;
    }
    return item;
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
    sms_outbox_item* const item = sms_outbox_item_create(mode, tag, number, length, body);
    if (item == nullptr)
        return -1;
    const lock_scope hold(outbox_lock);
    list_add_tail(&item->node, &sms_outbox);
    return 0;
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
