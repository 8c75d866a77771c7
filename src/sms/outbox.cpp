// SPDX-License-Identifier: MIT
// The SMS outbox: a queue in memory, filled by any thread, emptied by the mobile task.
#include "sms/sms.h"

#include "support/diag.h"
#include "support/owned.h"
#include "support/text.h"

#include <algorithm>
#include <cstdlib>

namespace kelo
{

namespace
{

list_head sms_outbox = LIST_HEAD_INIT(sms_outbox); // guarded by outbox_lock
int waiting = 0;                                   // parts on it

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

sms_part* part_of(list_head* node)
{
    return static_cast<sms_part*>(list_entry(node, sms_outbox_item, node));
}

// Callers of both hold outbox_lock.
bool next_is_numbered()
{
    return !list_empty(&sms_outbox) && sms_job_wishes(part_of(sms_outbox.next)->job).number != 0;
}

sms_part* take_head()
{
    if (list_empty(&sms_outbox))
        return nullptr;
    sms_part* const part = part_of(sms_outbox.next);
    list_del(&part->node);
    waiting--;
    return part;
}

} // namespace

sms_part* sms_part_create(int mode, const char* tag, const char* number, int length,
                          std::string_view body, sms_job* job, int index)
{
    if (job == nullptr || refused_in_fork("sms_outbox_enq"))
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
    std::copy(body.begin(), body.end(), body_copy.get());
    auto* const part = static_cast<sms_part*>(memory_for(sizeof(sms_part)));
    if (part == nullptr)
        return nullptr;
    static_cast<sms_outbox_item&>(*part) = {mode,   tag_copy.release(),  number_copy.release(),
                                            length, body_copy.release(), {}};
    part->job = job;
    part->number = index;
    sms_job_begins_part(job);
    return part;
}

bool sms_part_ends(sms_part* part, part_fate fate, sms_error error)
{
    sms_job* const job = std::exchange(part->job, nullptr);
    const bool last = job != nullptr && sms_job_part_ends(job, part->number, fate, error);
    std::free(part->sms_tag);
    std::free(part->sms_number);
    std::free(part->sms_body);
    std::free(part);
    return last;
}

bool sms_outbox_append(list_head& parts, int most)
{
    const lock_scope<outbox_lock> hold;
    int count = 0;
    list_head* node;
    list_for_each(node, &parts) count++;
    if (most > 0 && waiting + count > most)
        return false;
    waiting += count;
    while (!list_empty(&parts)) {
        list_head* const first = parts.next;
        list_del(first);
        list_add_tail(first, &sms_outbox);
    }
    return true;
}

void sms_outbox_return(sms_part* part)
{
    const lock_scope<outbox_lock> hold;
    list_add_tail(&part->node, sms_outbox.next); // ahead of the first
    waiting++;
}

sms_part* sms_outbox_take(bool answered)
{
    const lock_scope<outbox_lock> hold;
    return answered || !next_is_numbered() ? take_head() : nullptr;
}

bool sms_outbox_next_is_numbered()
{
    const lock_scope<outbox_lock> hold;
    return next_is_numbered();
}

namespace
{

// Takes the parts of a message off. Caller holds outbox_lock.
void take_parts(const sms_job* job, list_head& taken)
{
    list_head* node = sms_outbox.next;
    while (node != &sms_outbox) {
        list_head* const next = node->next;
        if (part_of(node)->job == job) {
            list_del(node);
            list_add_tail(node, &taken);
            waiting--;
        }
        node = next;
    }
}

} // namespace

void sms_parts_take_back(list_head& parts)
{
    while (!list_empty(&parts)) {
        sms_part* const part = part_of(parts.next);
        list_del(&part->node);
        sms_part_ends(part, part_fate::taken_back);
    }
}

void sms_outbox_drop(const sms_job* job)
{
    list_head taken = LIST_HEAD_INIT(taken);
    {
        const lock_scope<outbox_lock> hold;
        take_parts(job, taken);
    }
    sms_parts_take_back(taken);
}

bool sms_queue_one(int mode, const char* tag, const char* number, int length, std::string_view body)
{
    sms_job* const job = sms_job_create(tag, number != nullptr ? number : "", 1, {});
    sms_part* const part = sms_part_create(mode, tag, number, length, body, job, 1);
    if (part == nullptr) {
        sms_job_without_parts(job, false);
        return false;
    }
    list_head one = LIST_HEAD_INIT(one);
    list_add_tail(&part->node, &one);
    return sms_outbox_append(one);
}

bool sms_outbox_cancel(int number)
{
    list_head taken = LIST_HEAD_INIT(taken);
    {
        const lock_scope<outbox_lock> hold;
        const sms_job* job = nullptr;
        int parts = 0;
        list_head* node;
        list_for_each(node, &sms_outbox)
        {
            const bool its = sms_job_wishes(part_of(node)->job).number == number;
            job = its ? part_of(node)->job : job;
            parts += its;
        }
        if (job != nullptr && parts == sms_job_parts(job))
            take_parts(job, taken);
    }
    const bool found = !list_empty(&taken);
    sms_parts_take_back(taken);
    return found;
}

} // namespace kelo

using namespace kelo;

int sms_outbox_enq(int mode, const char* tag, const char* number, int length, const char* body)
{
    return sms_queue_one(mode, tag, number, length, body != nullptr ? body : "") ? 0 : -1;
}

struct sms_outbox_item* sms_outbox_deq(void)
{
    const lock_scope<outbox_lock> hold;
    return take_head();
}

void sms_outbox_free(struct sms_outbox_item* item)
{
    if (item != nullptr)
        sms_part_ends(static_cast<sms_part*>(item), part_fate::taken_back);
}
