/* SPDX-License-Identifier: MIT */
/* Balanced tree whose nodes live inside the caller's records; all nodes are also chained in key order. */
#ifndef LIBUBOX_AVL_H
#define LIBUBOX_AVL_H

#include <stdbool.h>
#include <stddef.h>

#include "list.h"

struct avl_node {
    struct list_head list;
    struct avl_node *parent;
    struct avl_node *left;
    struct avl_node *right;
    /* Borrowed; set by the caller before avl_insert, and must not change while the node is in a tree. */
    const void *key;
    /* Height of the right branch minus height of the left one. */
    signed char balance;
    /* Of several nodes with one key only the first, the leader, hangs in the tree; the others follow it in the chain.
     */
    bool leader;
};

/* Below, equal to or above 0, as strcmp; ptr is the one given to avl_init. */
typedef int (*avl_tree_comp)(const void *k1, const void *k2, void *ptr);

struct avl_tree {
    struct list_head list_head;
    struct avl_node *root;
    unsigned int count;
    bool allow_dups;
    avl_tree_comp comp;
    void *cmp_ptr;
};

void avl_init(struct avl_tree *tree, avl_tree_comp comp, bool allow_dups, void *ptr);
/* 0, or -1 if the key is taken and duplicates are not allowed. */
int avl_insert(struct avl_tree *tree, struct avl_node *node);
void avl_delete(struct avl_tree *tree, struct avl_node *node);
/* The first node with this key, or NULL. */
struct avl_node *avl_find(const struct avl_tree *tree, const void *key);
/* The first node whose key is not below this one, or NULL. */
struct avl_node *avl_find_greaterequal(const struct avl_tree *tree, const void *key);
/* The last node whose key is not above this one, or NULL. */
struct avl_node *avl_find_lessequal(const struct avl_tree *tree, const void *key);

static inline bool avl_is_empty(const struct avl_tree *tree)
{
    return tree->count == 0;
}

static inline bool avl_is_first(const struct avl_tree *tree, const struct avl_node *node)
{
    return tree->list_head.next == &node->list;
}

static inline bool avl_is_last(const struct avl_tree *tree, const struct avl_node *node)
{
    return tree->list_head.prev == &node->list;
}

/* Empties the tree without touching its nodes, which may be gone already. */
static inline void avl_forget_nodes_(struct avl_tree *tree)
{
    INIT_LIST_HEAD(&tree->list_head);
    tree->root = NULL;
    tree->count = 0;
}

#define avl_entry_(link, element, node_member) \
    container_of(container_of(link, struct avl_node, list), __typeof__(*(element)), node_member)

#define avl_first_element(tree, element, node_member) avl_entry_((tree)->list_head.next, element, node_member)
#define avl_last_element(tree, element, node_member) avl_entry_((tree)->list_head.prev, element, node_member)
#define avl_next_element(element, node_member) avl_entry_((element)->node_member.list.next, element, node_member)
#define avl_prev_element(element, node_member) avl_entry_((element)->node_member.list.prev, element, node_member)

/* element is only there to name the type. */
#define avl_find_element(tree, search_key, element, node_member) \
    container_of_safe(avl_find(tree, search_key), __typeof__(*(element)), node_member)
#define avl_find_ge_element(tree, search_key, element, node_member) \
    container_of_safe(avl_find_greaterequal(tree, search_key), __typeof__(*(element)), node_member)
#define avl_find_le_element(tree, search_key, element, node_member) \
    container_of_safe(avl_find_lessequal(tree, search_key), __typeof__(*(element)), node_member)

#define avl_for_each_element(tree, element, node_member)            \
    for ((element) = avl_first_element(tree, element, node_member); \
         &(element)->node_member.list != &(tree)->list_head; (element) = avl_next_element(element, node_member))

#define avl_for_each_element_reverse(tree, element, node_member)                                                       \
    for ((element) = avl_last_element(tree, element, node_member); &(element)->node_member.list != &(tree)->list_head; \
         (element) = avl_prev_element(element, node_member))

/* The body may avl_delete (and free) element. */
#define avl_for_each_element_safe(tree, element, node_member, ahead)                                                  \
    for ((element) = avl_first_element(tree, element, node_member), (ahead) = avl_next_element(element, node_member); \
         &(element)->node_member.list != &(tree)->list_head;                                                          \
         (element) = (ahead), (ahead) = avl_next_element(ahead, node_member))

/* The tree is empty before the first element reaches the body, which may free it but must not avl_delete it. */
#define avl_remove_all_elements(tree, element, node_member, ahead)                                                    \
    for ((element) = avl_first_element(tree, element, node_member), (ahead) = avl_next_element(element, node_member), \
        avl_forget_nodes_(tree);                                                                                      \
         &(element)->node_member.list != &(tree)->list_head;                                                          \
         (element) = (ahead), (ahead) = avl_next_element(ahead, node_member))

#endif
