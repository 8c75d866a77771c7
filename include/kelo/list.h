/* SPDX-License-Identifier: MIT */
/* kelo/list.h: the intrusive list that the library shares with its host.
 *
 * A circular doubly linked list: the head is a list_head in static storage that points at itself
 * while the list is empty, and every record on the list embeds one list_head of its own. Entries go
 * in at the tail. The library takes no lock for a host: whoever fills a list does so before the
 * library walks it.
 *
 * A host that brings helpers of the same names defines KELO_NO_LIST_HELPERS and gets the record
 * alone.
 */
#ifndef KELO_LIST_H
#define KELO_LIST_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct list_head {
    struct list_head* next;
    struct list_head* prev;
};

#ifndef KELO_NO_LIST_HELPERS

/* What an unlinked node's links hold, so that a use after unlinking faults at a known address. */
#define LIST_POISON_NEXT ((struct list_head*)0x100100)
#define LIST_POISON_PREV ((struct list_head*)0x200200)

/* Static initialiser of a head or node that points at itself. */
#define LIST_HEAD_INIT(name)                                                                       \
    {                                                                                              \
        &(name), &(name)                                                                           \
    }

/* The record of `type` whose member `member` is the list node `node`. */
#define list_entry(node, type, member) ((type*)(void*)((char*)(node)-offsetof(type, member)))

/* Walks the nodes of `head`; `node` must not be unlinked on the way. */
#define list_for_each(node, head)                                                                  \
    for ((node) = (head)->next; (node) != (head); (node) = (node)->next)

static inline void list_init(struct list_head* head)
{
    head->next = head;
    head->prev = head;
}

static inline int list_empty(const struct list_head* head)
{
    return head->next == head;
}

static inline void list_add_tail(struct list_head* node, struct list_head* head)
{
    node->next = head;
    node->prev = head->prev;
    head->prev->next = node;
    head->prev = node;
}

static inline void list_del(struct list_head* node)
{
    node->prev->next = node->next;
    node->next->prev = node->prev;
    node->next = LIST_POISON_NEXT;
    node->prev = LIST_POISON_PREV;
}

#endif /* KELO_NO_LIST_HELPERS */

#ifdef __cplusplus
}
#endif
#endif
