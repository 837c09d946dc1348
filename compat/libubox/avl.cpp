// SPDX-License-Identifier: MIT
// The balanced tree: insertion, removal and search.
#include "exported.h"

#include <algorithm>
#include <cstring>

namespace {

// The pointer that holds node: a branch of its parent, or the root.
avl_node *&slot_of(avl_tree *tree, avl_node *node)
{
    if (!node->parent)
        return tree->root;
    return node->parent->left == node ? node->parent->left : node->parent->right;
}

void put_in_slot(avl_tree *tree, avl_node *node, avl_node *successor)
{
    slot_of(tree, node) = successor;
    if (successor)
        successor->parent = node->parent;
}

// Rotations keep the key order and work out the new balances from the old ones, whatever these are.

avl_node *rotate_left(avl_tree *tree, avl_node *node)
{
    avl_node *risen = node->right;
    put_in_slot(tree, node, risen);
    node->right = risen->left;
    if (node->right)
        node->right->parent = node;
    risen->left = node;
    node->parent = risen;
    node->balance = static_cast<signed char>(node->balance - 1 - std::max<int>(risen->balance, 0));
    risen->balance = static_cast<signed char>(risen->balance - 1 + std::min<int>(node->balance, 0));
    return risen;
}

avl_node *rotate_right(avl_tree *tree, avl_node *node)
{
    avl_node *risen = node->left;
    put_in_slot(tree, node, risen);
    node->left = risen->right;
    if (node->left)
        node->left->parent = node;
    risen->right = node;
    node->parent = risen;
    node->balance = static_cast<signed char>(node->balance + 1 - std::min<int>(risen->balance, 0));
    risen->balance = static_cast<signed char>(risen->balance + 1 + std::max<int>(node->balance, 0));
    return risen;
}

// Brings a node whose branches differ by two back to at most one; returns what now stands in its place.
avl_node *rebalance(avl_tree *tree, avl_node *node)
{
    if (node->balance > 1) {
        if (node->right->balance < 0)
            rotate_right(tree, node->right);
        return rotate_left(tree, node);
    }
    if (node->balance < -1) {
        if (node->left->balance > 0)
            rotate_left(tree, node->left);
        return rotate_right(tree, node);
    }
    return node;
}

void after_insert(avl_tree *tree, avl_node *node)
{
    for (avl_node *parent = node->parent; parent; node = parent, parent = node->parent) {
        parent->balance = static_cast<signed char>(parent->balance + (parent->left == node ? -1 : 1));
        if (parent->balance == 0)
            return;
        if (rebalance(tree, parent) != parent)
            return;
    }
}

// One branch of node has lost a level.
void after_removal(avl_tree *tree, avl_node *node, bool left_shrank)
{
    while (node) {
        node->balance = static_cast<signed char>(node->balance + (left_shrank ? 1 : -1));
        node = rebalance(tree, node);
        if (node->balance != 0)
            return;
        left_shrank = node->parent && node->parent->left == node;
        node = node->parent;
    }
}

// heir gets everything that ties node into the tree.
void take_place(avl_tree *tree, avl_node *node, avl_node *heir)
{
    put_in_slot(tree, node, heir);
    heir->left = node->left;
    heir->right = node->right;
    heir->balance = node->balance;
    if (heir->left)
        heir->left->parent = heir;
    if (heir->right)
        heir->right->parent = heir;
}

void remove_from_tree(avl_tree *tree, avl_node *node)
{
    if (!node->left || !node->right) {
        avl_node *parent = node->parent;
        bool was_left = parent && parent->left == node;
        put_in_slot(tree, node, node->left ? node->left : node->right);
        after_removal(tree, parent, was_left);
        return;
    }
    avl_node *heir = node->right;
    while (heir->left)
        heir = heir->left;
    bool heir_is_child = heir->parent == node;
    avl_node *start = heir_is_child ? heir : heir->parent;
    put_in_slot(tree, heir, heir->right);
    take_place(tree, node, heir);
    after_removal(tree, start, !heir_is_child);
}

avl_node *node_of(list_head *link)
{
    return list_entry(link, avl_node, list);
}

// The link behind the last node that has the leader's key.
list_head *behind_group(avl_tree *tree, avl_node *leader)
{
    list_head *link = leader->list.next;
    while (link != &tree->list_head && !node_of(link)->leader)
        link = link->next;
    return link;
}

void add_duplicate(avl_tree *tree, avl_node *leader, avl_node *node)
{
    node->leader = false;
    list_add_tail(&node->list, behind_group(tree, leader));
    tree->count++;
}

void add_leaf(avl_tree *tree, avl_node *parent, bool left, avl_node *node)
{
    node->leader = true;
    node->parent = parent;
    if (!parent) {
        tree->root = node;
        list_add(&node->list, &tree->list_head);
    } else if (left) {
        parent->left = node;
        list_add_tail(&node->list, &parent->list);
    } else {
        parent->right = node;
        list_add_tail(&node->list, behind_group(tree, parent));
    }
    tree->count++;
    after_insert(tree, node);
}

} // namespace

void avl_init(struct avl_tree *tree, avl_tree_comp comp, bool allow_dups, void *ptr)
{
    avl_forget_nodes_(tree);
    tree->comp = comp;
    tree->allow_dups = allow_dups;
    tree->cmp_ptr = ptr;
}

int avl_insert(struct avl_tree *tree, struct avl_node *node)
{
    node->parent = node->left = node->right = nullptr;
    node->balance = 0;
    avl_node *parent = nullptr;
    bool left = false;
    for (avl_node *next = tree->root; next; next = left ? next->left : next->right) {
        int order = tree->comp(node->key, next->key, tree->cmp_ptr);
        if (order == 0 && !tree->allow_dups)
            return -1;
        if (order == 0) {
            add_duplicate(tree, next, node);
            return 0;
        }
        parent = next;
        left = order < 0;
    }
    add_leaf(tree, parent, left, node);
    return 0;
}

void avl_delete(struct avl_tree *tree, struct avl_node *node)
{
    if (node->leader) {
        list_head *next = node->list.next;
        if (next != &tree->list_head && !node_of(next)->leader) {
            take_place(tree, node, node_of(next));
            node_of(next)->leader = true;
        } else {
            remove_from_tree(tree, node);
        }
    }
    list_del(&node->list);
    tree->count--;
}

struct avl_node *avl_find(const struct avl_tree *tree, const void *key)
{
    avl_node *node = tree->root;
    while (node) {
        int order = tree->comp(key, node->key, tree->cmp_ptr);
        if (order == 0)
            return node;
        node = order < 0 ? node->left : node->right;
    }
    return nullptr;
}

struct avl_node *avl_find_greaterequal(const struct avl_tree *tree, const void *key)
{
    avl_node *best = nullptr;
    for (avl_node *node = tree->root; node;) {
        int order = tree->comp(key, node->key, tree->cmp_ptr);
        if (order == 0)
            return node;
        if (order < 0)
            best = node;
        node = order < 0 ? node->left : node->right;
    }
    return best;
}

struct avl_node *avl_find_lessequal(const struct avl_tree *tree, const void *key)
{
    avl_node *best = nullptr;
    for (avl_node *node = tree->root; node;) {
        int order = tree->comp(key, node->key, tree->cmp_ptr);
        if (order >= 0)
            best = node;
        if (order == 0)
            break;
        node = order < 0 ? node->left : node->right;
    }
    if (!best)
        return nullptr;
    return node_of(behind_group(const_cast<avl_tree *>(tree), best)->prev);
}

int avl_strcmp(const void *k1, const void *k2, void *)
{
    return strcmp(static_cast<const char *>(k1), static_cast<const char *>(k2));
}
