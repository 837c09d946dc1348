// SPDX-License-Identifier: MIT
// The tree and the list.
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

extern "C" {
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/list.h>
}

namespace {

struct item {
    int number;
    avl_node node;
};

int compare_numbers(const void *a, const void *b, void *)
{
    return *static_cast<const int *>(a) - *static_cast<const int *>(b);
}

// A tree of items that live as long as it.
class number_tree {
public:
    explicit number_tree(bool allow_dups) { avl_init(&tree, compare_numbers, allow_dups, nullptr); }

    int insert(int number)
    {
        items.push_back(std::make_unique<item>());
        items.back()->number = number;
        items.back()->node.key = &items.back()->number;
        return avl_insert(&tree, &items.back()->node);
    }

    std::vector<int> numbers()
    {
        std::vector<int> all;
        item *element;
        avl_for_each_element(&tree, element, node) all.push_back(element->number);
        return all;
    }

    avl_tree tree;
    std::vector<std::unique_ptr<item>> items;
};

// Height of a branch, with every balance, parent and order in it checked.
int checked_height(const avl_node *node, const avl_node *parent)
{
    if (!node)
        return 0;
    EXPECT_EQ(node->parent, parent);
    EXPECT_TRUE(node->leader);
    int left = checked_height(node->left, node);
    int right = checked_height(node->right, node);
    EXPECT_EQ(node->balance, right - left);
    EXPECT_LE(std::abs(right - left), 1);
    EXPECT_TRUE(!node->left || compare_numbers(node->left->key, node->key, nullptr) < 0);
    EXPECT_TRUE(!node->right || compare_numbers(node->right->key, node->key, nullptr) > 0);
    return 1 + std::max(left, right);
}

struct linked {
    int number;
    list_head list;
};

std::string joined(list_head *head)
{
    std::string text;
    linked *entry;
    list_for_each_entry(entry, head, list) text += std::to_string(entry->number);
    return text;
}

} // namespace

TEST(avl, random_inserts_and_deletes_keep_order_and_balance)
{
    std::mt19937 random(1);
    for (bool dups : {false, true}) {
        number_tree numbers(dups);
        std::multimap<int, item *> model;
        for (int step = 0; step < 3000; step++) {
            int number = static_cast<int>(random() % 300);
            auto known = model.find(number);
            if (random() % 2 && known != model.end()) {
                avl_delete(&numbers.tree, &known->second->node);
                model.erase(known);
            } else if (numbers.insert(number) == 0) {
                model.emplace(number, numbers.items.back().get());
            } else {
                EXPECT_FALSE(dups);
                EXPECT_NE(known, model.end());
            }
            if (step % 50 == 0)
                checked_height(numbers.tree.root, nullptr);
        }
        std::vector<int> expected;
        for (const auto &entry : model)
            expected.push_back(entry.first);
        EXPECT_EQ(numbers.numbers(), expected);
        EXPECT_EQ(numbers.tree.count, model.size());
        for (const auto &entry : model)
            avl_delete(&numbers.tree, &entry.second->node);
        EXPECT_TRUE(avl_is_empty(&numbers.tree));
        EXPECT_EQ(numbers.tree.root, nullptr);
    }
}

TEST(avl, duplicates_follow_their_leader_in_order_of_insertion)
{
    number_tree numbers(true);
    for (int number : {5, 3, 5, 7, 5})
        EXPECT_EQ(numbers.insert(number), 0);
    EXPECT_EQ(numbers.numbers(), (std::vector<int>{3, 5, 5, 5, 7}));
    int five = 5;
    EXPECT_EQ(avl_find(&numbers.tree, &five), &numbers.items[0]->node);
    EXPECT_EQ(avl_find_lessequal(&numbers.tree, &five), &numbers.items[4]->node);
    avl_delete(&numbers.tree, &numbers.items[0]->node);
    EXPECT_EQ(avl_find(&numbers.tree, &five), &numbers.items[2]->node);
    checked_height(numbers.tree.root, nullptr);
}

TEST(avl, a_taken_key_is_refused_without_duplicates)
{
    number_tree numbers(false);
    EXPECT_EQ(numbers.insert(1), 0);
    EXPECT_EQ(numbers.insert(1), -1);
    EXPECT_EQ(numbers.tree.count, 1u);
}

TEST(avl, neighbours_of_a_missing_key_are_found)
{
    number_tree numbers(false);
    for (int number : {10, 20, 30})
        numbers.insert(number);
    auto number_at = [](avl_node *node) { return node ? *static_cast<const int *>(node->key) : -1; };
    int key = 15;
    EXPECT_EQ(avl_find(&numbers.tree, &key), nullptr);
    EXPECT_EQ(number_at(avl_find_greaterequal(&numbers.tree, &key)), 20);
    EXPECT_EQ(number_at(avl_find_lessequal(&numbers.tree, &key)), 10);
    key = 31;
    EXPECT_EQ(avl_find_greaterequal(&numbers.tree, &key), nullptr);
    key = 9;
    EXPECT_EQ(avl_find_lessequal(&numbers.tree, &key), nullptr);
}

TEST(avl, an_element_is_found_by_its_string_key)
{
    struct named {
        avl_node node;
        const char *name;
    } first = {}, second = {}, *found = nullptr;
    first.node.key = first.name = "eth0";
    second.node.key = second.name = "eth1";
    avl_tree tree;
    avl_init(&tree, avl_strcmp, false, nullptr);
    EXPECT_TRUE(avl_is_empty(&tree));
    avl_insert(&tree, &second.node);
    avl_insert(&tree, &first.node);
    EXPECT_EQ(avl_find_element(&tree, "eth1", found, node), &second);
    EXPECT_EQ(avl_find_element(&tree, "eth2", found, node), nullptr);
    EXPECT_EQ(avl_first_element(&tree, found, node), &first);
    EXPECT_TRUE(avl_is_last(&tree, &second.node));
}

TEST(avl, all_elements_can_be_removed_and_freed)
{
    avl_tree tree;
    avl_init(&tree, compare_numbers, false, nullptr);
    for (int number : {2, 1, 3}) {
        auto *fresh = new item();
        fresh->number = number;
        fresh->node.key = &fresh->number;
        avl_insert(&tree, &fresh->node);
    }
    std::vector<int> removed;
    item *element;
    item *ahead;
    avl_remove_all_elements(&tree, element, node, ahead)
    {
        removed.push_back(element->number);
        delete element;
    }
    EXPECT_EQ(removed, (std::vector<int>{1, 2, 3}));
    EXPECT_TRUE(avl_is_empty(&tree));
    avl_remove_all_elements(&tree, element, node, ahead) ADD_FAILURE();
}

TEST(avl, elements_can_be_deleted_while_walking)
{
    number_tree numbers(false);
    for (int number = 0; number < 10; number++)
        numbers.insert(number);
    item *element;
    item *ahead;
    avl_for_each_element_safe(&numbers.tree, element, node, ahead)
    {
        if (element->number % 2)
            avl_delete(&numbers.tree, &element->node);
    }
    EXPECT_EQ(numbers.numbers(), (std::vector<int>{0, 2, 4, 6, 8}));
    checked_height(numbers.tree.root, nullptr);
}

TEST(ubox_list, entries_stand_where_they_were_put)
{
    LIST_HEAD(head);
    linked entries[] = {{1, {}}, {2, {}}, {3, {}}};
    EXPECT_TRUE(list_empty(&head));
    list_add(&entries[0].list, &head);
    list_add_tail(&entries[1].list, &head);
    list_add(&entries[2].list, &head);
    EXPECT_EQ(joined(&head), "312");
    list_move_tail(&entries[2].list, &head);
    EXPECT_EQ(joined(&head), "123");
    EXPECT_TRUE(list_is_last(&entries[2].list, &head));
    EXPECT_EQ(list_first_entry(&head, linked, list), &entries[0]);
    list_del(&entries[1].list);
    EXPECT_EQ(joined(&head), "13");
}

TEST(ubox_list, entries_can_be_removed_while_walking)
{
    LIST_HEAD(head);
    linked entries[] = {{1, {}}, {2, {}}, {3, {}}};
    for (linked &entry : entries)
        list_add_tail(&entry.list, &head);
    linked *entry;
    linked *ahead;
    list_for_each_entry_safe(entry, ahead, &head, list) list_del_init(&entry->list);
    EXPECT_TRUE(list_empty(&head));
}

TEST(ubox_list, a_spliced_list_keeps_its_order)
{
    LIST_HEAD(head);
    LIST_HEAD(more);
    linked entries[] = {{1, {}}, {2, {}}, {3, {}}};
    list_add_tail(&entries[0].list, &head);
    list_add_tail(&entries[1].list, &more);
    list_add_tail(&entries[2].list, &more);
    list_splice_tail_init(&more, &head);
    EXPECT_EQ(joined(&head), "123");
    EXPECT_TRUE(list_empty(&more));
    list_splice_init(&head, &more);
    EXPECT_EQ(joined(&more), "123");
    list_splice_init(&head, &more);
    EXPECT_EQ(joined(&more), "123");
}
