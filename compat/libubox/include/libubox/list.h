/* SPDX-License-Identifier: MIT */
/* Circular doubly linked list: the links live inside the caller's records, the head is a link of its own. */
#ifndef LIBUBOX_LIST_H
#define LIBUBOX_LIST_H

#include <stdbool.h>
#include <stddef.h>

/* ptr must be a pointer to what the member is: one to an element of an array member is refused. */
#ifndef container_of
#define container_of(ptr, type, member)                                                  \
    __extension__({                                                                      \
        const __typeof__(((type *)(void *)(ptr))->member) *container_of_member_ = (ptr); \
        (type *)(void *)((char *)container_of_member_ - offsetof(type, member));         \
    })
#endif

/* The same, and NULL for NULL. */
#ifndef container_of_safe
#define container_of_safe(ptr, type, member)                                                              \
    __extension__({                                                                                       \
        const __typeof__(((type *)(void *)(ptr))->member) *container_of_safe_member_ = (ptr);             \
        container_of_safe_member_ ? container_of(container_of_safe_member_, type, member) : (type *)NULL; \
    })
#endif

struct list_head {
    struct list_head *next;
    struct list_head *prev;
};

/* <sys/queue.h> uses these names for its own lists. */
#undef LIST_HEAD
#undef LIST_HEAD_INIT

#define LIST_HEAD_INIT(name) \
    {                        \
        &(name), &(name)     \
    }
#define LIST_HEAD(name) struct list_head name = LIST_HEAD_INIT(name)

static inline void INIT_LIST_HEAD(struct list_head *list)
{
    list->next = list;
    list->prev = list;
}

static inline bool list_empty(const struct list_head *head)
{
    return head->next == head;
}

static inline bool list_is_first(const struct list_head *entry, const struct list_head *head)
{
    return entry->prev == head;
}

static inline bool list_is_last(const struct list_head *entry, const struct list_head *head)
{
    return entry->next == head;
}

/* Puts entry behind the link at, which may be the head. */
static inline void list_add(struct list_head *entry, struct list_head *at)
{
    entry->prev = at;
    entry->next = at->next;
    at->next->prev = entry;
    at->next = entry;
}

/* Puts entry in front of the link at; for a head that is the end of the list. */
static inline void list_add_tail(struct list_head *entry, struct list_head *at)
{
    list_add(entry, at->prev);
}

/* The links of a removed entry are NULL, so a second removal is noticed. */
static inline void list_del(struct list_head *entry)
{
    /* Whoever is linked has neighbours; the analyzer forgets that in loops that empty a list. */
    entry->next->prev = entry->prev; // NOLINT(clang-analyzer-core.NullDereference)
    entry->prev->next = entry->next;
    entry->next = NULL;
    entry->prev = NULL;
}

static inline void list_del_init(struct list_head *entry)
{
    list_del(entry);
    INIT_LIST_HEAD(entry);
}

static inline void list_move(struct list_head *entry, struct list_head *head)
{
    list_del(entry);
    list_add(entry, head);
}

static inline void list_move_tail(struct list_head *entry, struct list_head *head)
{
    list_del(entry);
    list_add_tail(entry, head);
}

/* Moves all entries of list behind the link at; the head list must not be used again before it is initialised. */
static inline void list_splice(const struct list_head *list, struct list_head *at)
{
    if (list_empty(list))
        return;
    list->next->prev = at;
    list->prev->next = at->next;
    at->next->prev = list->prev;
    at->next = list->next;
}

static inline void list_splice_tail(const struct list_head *list, struct list_head *at)
{
    list_splice(list, at->prev);
}

static inline void list_splice_init(struct list_head *list, struct list_head *at)
{
    list_splice(list, at);
    INIT_LIST_HEAD(list);
}

static inline void list_splice_tail_init(struct list_head *list, struct list_head *at)
{
    list_splice(list, at->prev);
    INIT_LIST_HEAD(list);
}

#define list_entry(ptr, type, member) container_of(ptr, type, member)
#define list_first_entry(ptr, type, member) list_entry((ptr)->next, type, member)
#define list_last_entry(ptr, type, member) list_entry((ptr)->prev, type, member)
#define list_next_entry_(pos, member) list_entry((pos)->member.next, __typeof__(*(pos)), member)
#define list_prev_entry_(pos, member) list_entry((pos)->member.prev, __typeof__(*(pos)), member)

#define list_for_each(pos, head) for ((pos) = (head)->next; (pos) != (head); (pos) = (pos)->next)

#define list_for_each_safe(pos, ahead, head) \
    for ((pos) = (head)->next, (ahead) = (pos)->next; (pos) != (head); (pos) = (ahead), (ahead) = (pos)->next)

#define list_for_each_entry(pos, head, member)                                                 \
    for ((pos) = list_first_entry(head, __typeof__(*(pos)), member); &(pos)->member != (head); \
         (pos) = list_next_entry_(pos, member))

/* The body may remove (and free) pos. */
#define list_for_each_entry_safe(pos, ahead, head, member)                                                    \
    for ((pos) = list_first_entry(head, __typeof__(*(pos)), member), (ahead) = list_next_entry_(pos, member); \
         &(pos)->member != (head); (pos) = (ahead), (ahead) = list_next_entry_(ahead, member))

#define list_for_each_entry_reverse(pos, head, member)                                        \
    for ((pos) = list_last_entry(head, __typeof__(*(pos)), member); &(pos)->member != (head); \
         (pos) = list_prev_entry_(pos, member))

#endif
