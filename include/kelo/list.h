/* SPDX-License-Identifier: MIT */
/* kelo/list.h: the intrusive list that the library shares with its host.
 *
 * A circular doubly linked list: the head is a list_head in static storage that points at itself
 * while the list is empty, and every record on the list embeds one list_head of its own. Entries go
 * in at the tail. The library takes no lock for a host: whoever fills a list does so before the
 * library walks it.
 *
 * A host that brings helpers of the same names defines KELO_NO_LIST_HELPERS and gets the record
 * alone. One that has a list_head of its own, as code in the style of Linux does, defines
 * KELO_NO_LIST_HEAD, ahead of the first header of kelo or on the compiler's command line: the
 * record is then called kelo_list_head, in the records of kelo/at.h and kelo/sms.h too, the helpers
 * are left to the host, and both may be included in any order. The layout is the same, two
 * pointers, next and prev.
 */
#ifndef KELO_LIST_H
#define KELO_LIST_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifdef KELO_NO_LIST_HEAD
#define KELO_LIST_HEAD kelo_list_head
#ifndef KELO_NO_LIST_HELPERS
#define KELO_NO_LIST_HELPERS
#endif
#else
#define KELO_LIST_HEAD list_head /* name of the record below */
#endif

/* A head, or the node of a record. */
struct KELO_LIST_HEAD {
    struct KELO_LIST_HEAD* next; /* the head behind the last node */
    struct KELO_LIST_HEAD* prev; /* the head ahead of the first */
};

/* Puts a node at the end of a list, as cell_at_config_h is one. Always there. */
static inline void kelo_list_add_tail(struct KELO_LIST_HEAD* node, struct KELO_LIST_HEAD* head)
{
    node->next = head;
    node->prev = head->prev;
    head->prev->next = node;
    head->prev = node;
}

#ifndef KELO_NO_LIST_HELPERS

/* What an unlinked node's links hold, so that a use after unlinking faults at a known address. */
#define LIST_POISON_NEXT ((struct list_head*)0x100100)
#define LIST_POISON_PREV ((struct list_head*)0x200200) /* the other link */

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

/* Makes an empty list of a head. */
static inline void list_init(struct list_head* head)
{
    head->next = head;
    head->prev = head;
}

/* Non-zero for an empty list. */
static inline int list_empty(const struct list_head* head)
{
    return head->next == head;
}

/* Puts a node at the end of a list. */
static inline void list_add_tail(struct list_head* node, struct list_head* head)
{
    kelo_list_add_tail(node, head);
}

/* Takes a node off its list. */
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
