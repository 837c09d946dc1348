// SPDX-License-Identifier: MIT
#include "model/lists.h"

#include "platform/result_codes.h"
#include "tests/unit/model/model_test.h"
#include "tests/unit/support/failing_memory.h"

namespace {

class lists : public t_model_test {
protected:
    ~lists() override
    {
        list.clear();
        other.clear();
    }

    t_device_list_head list = {};
    t_device_list_head other = {};
};

} // namespace

// holds: list-order, list-add-codes
TEST_F(lists, devices_are_ordered_by_priority_and_ties_keep_the_order_of_adding)
{
    for (t_device *device : {add_port("two", 2), add_port("minus", -1), add_port("zero", 0), add_port("two_too", 2)})
        EXPECT_EQ(list.add(device), OK);
    EXPECT_EQ(names_of(list), (t_names{"minus", "zero", "two", "two_too"}));
}

// holds: list-order
TEST_F(lists, priorities_are_compared_as_signed_bytes)
{
    for (t_device *device : {add_port("high", 127), add_port("low", -128), add_port("none", 0)})
        list.add(device);
    EXPECT_EQ(names_of(list), (t_names{"low", "none", "high"}));
}

// holds: list-add-twice
TEST_F(lists, a_device_added_twice_stays_once_and_starts_counting_anew)
{
    t_device *device = add_port("eth1", 1);
    list.add(add_port("eth0", 0));
    list.add(device);
    list.head.next->next->retry_count = 3;
    t_log_capture log;
    EXPECT_EQ(list.add(device), ERR_ALREADY_PRESENT);
    EXPECT_TRUE(
        log.has("Info", "add_unique_device_inorder_to_list", "dev:eth1 already in list, Reset its retry count!"));
    EXPECT_EQ(names_of(list), (t_names{"eth0", "eth1"}));
    EXPECT_EQ(list.head.next->next->retry_count, 0u);
    EXPECT_EQ(list.count, 2);
}

TEST_F(lists, a_new_node_is_zero_but_for_its_device)
{
    t_device *device = add_port("eth1", 1);
    list.add(device);
    const t_device_list *node = list.head.next;
    EXPECT_EQ(node->dev, device);
    EXPECT_EQ(node->retry_count, 0u);
    EXPECT_EQ(node->aging_time.sec, 0);
    EXPECT_EQ(node->aging_time.usec, 0);
    EXPECT_EQ(node->next, nullptr);
}

// holds: list-add-codes
TEST_F(lists, adding_without_memory_changes_nothing)
{
    list.add(add_port("eth0", 0));
    t_device *device = add_port("eth1", 1);
    t_log_capture log;
    t_memory_shortage shortage(0, sizeof(t_device_list));
    EXPECT_EQ(list.add(device), ERR_NO_MEMORY);
    EXPECT_TRUE(log.has("Error", "add_unique_device_inorder_to_list", "malloc new t_device_list for dev:eth1 failed!"));
    EXPECT_EQ(names_of(list), t_names{"eth0"});
}

// holds: list-null
TEST_F(lists, null_arguments_are_reported_by_code_only)
{
    t_device *device = add_port("eth0");
    t_log_capture log;
    EXPECT_EQ(add_unique_device_inorder_to_list(nullptr, device), ERR_INVALID_INPUT);
    EXPECT_EQ(add_unique_device_inorder_to_list(&list.head, nullptr), ERR_INVALID_INPUT);
    EXPECT_EQ(remove_unique_device_from_list(nullptr, device), ERR_INVALID_INPUT);
    EXPECT_EQ(remove_unique_device_from_list(&list.head, nullptr), ERR_INVALID_INPUT);
    EXPECT_FALSE(check_device_in_list(nullptr, device));
    EXPECT_FALSE(check_device_in_list(&list.head, nullptr));
    EXPECT_EQ(merge_two_list(nullptr, &other), ERR_INVALID_INPUT);
    EXPECT_EQ(merge_two_list(&list, nullptr), ERR_INVALID_INPUT);
    EXPECT_EQ(copy_list(nullptr, &other), ERR_INVALID_INPUT);
    EXPECT_EQ(copy_list(&list, nullptr), ERR_INVALID_INPUT);
    free_device_list(nullptr);
    EXPECT_TRUE(log.lines().empty());
}

// holds: list-remove-codes
TEST_F(lists, a_member_is_removed_from_any_place)
{
    t_device *first = add_port("eth1", 1), *middle = add_port("eth2", 2), *last = add_port("eth3", 3);
    for (t_device *device : {first, middle, last})
        list.add(device);
    t_log_capture log;
    EXPECT_EQ(list.remove(middle), OK);
    EXPECT_TRUE(log.has("Debug", "remove_unique_device_from_list", "Success remove dev:eth2 from list!"));
    EXPECT_EQ(names_of(list), (t_names{"eth1", "eth3"}));
    EXPECT_EQ(list.remove(last), OK);
    EXPECT_EQ(list.remove(first), OK);
    EXPECT_EQ(list.head.next, nullptr);
    EXPECT_EQ(list.remove(first), ERR_NOTHING_DONE);
}

// holds: list-remove-codes
TEST_F(lists, membership_goes_by_record_and_not_by_name)
{
    t_device *member = add_port("eth1", 1), *stranger = add_port("eth2", 1);
    t_device twin = {};
    copy_name(twin.name, "eth1");
    list.add(member);
    EXPECT_TRUE(check_device_in_list(&list.head, member));
    EXPECT_FALSE(check_device_in_list(&list.head, stranger));
    EXPECT_FALSE(check_device_in_list(&list.head, &twin));
}

// holds: list-merge
TEST_F(lists, merging_a_device_that_is_there_already_counts_it_again)
{
    t_device *common = add_port("eth1", 1);
    list.add(common);
    other.add(common);
    other.add(add_port("eth2", 2));
    t_log_capture log;
    EXPECT_EQ(merge_two_list(&list, &other), ERR_NOTHING_DONE);
    EXPECT_EQ(list.count, 3);
    EXPECT_EQ(names_of(list), (t_names{"eth1", "eth2"}));
    EXPECT_EQ(other.count, 0);
    EXPECT_EQ(other.head.next, nullptr);
    EXPECT_EQ(lines_of(log, "Debug"), (t_names{"merge_two_list: Move deivce eth1 to main list",
                                               "merge_two_list: Move deivce eth2 to main list"}));
}

// holds: list-merge
TEST_F(lists, merging_keeps_the_main_list_in_order)
{
    list.add(add_port("eth1", 1));
    list.add(add_port("eth4", 4));
    for (t_device *device : {add_port("eth5", 5), add_port("eth2", 2), add_port("eth0", 0)})
        other.add(device);
    merge_two_list(&list, &other);
    EXPECT_EQ(names_of(list), (t_names{"eth0", "eth1", "eth2", "eth4", "eth5"}));
    EXPECT_EQ(list.count, 5);
}

TEST_F(lists, a_node_without_device_breaks_neither_merging_nor_adding)
{
    other.insert(&other.head, nullptr);
    list.insert(&list.head, nullptr);
    t_log_capture log;
    merge_two_list(&list, &other);
    EXPECT_TRUE(log.has("Debug", "merge_two_list", "Move deivce null to main list"));
    EXPECT_EQ(list.count, 2);
    EXPECT_EQ(list.add(add_port("eth1", 1)), OK);
    EXPECT_EQ(names_of(list), (t_names{"null", "eth1"}));
}

// holds: list-copy-codes
TEST_F(lists, a_copy_has_the_devices_in_order_but_not_their_counters)
{
    for (t_device *device : {add_port("eth1", 1), add_port("eth2", 2)})
        other.add(device);
    other.head.next->retry_count = 7;
    other.head.next->aging_time.sec = 9;
    t_log_capture log;
    EXPECT_EQ(copy_list(&list, &other), OK);
    EXPECT_EQ(names_of(list), (t_names{"eth1", "eth2"}));
    EXPECT_EQ(names_of(other), (t_names{"eth1", "eth2"}));
    EXPECT_EQ(list.count, 2);
    EXPECT_EQ(list.head.next->retry_count, 0u);
    EXPECT_EQ(list.head.next->aging_time.sec, 0);
    EXPECT_EQ(lines_of(log, "Debug"),
              (t_names{"copy_list: Copy deivce eth1 to list", "copy_list: Copy deivce eth2 to list"}));
}

// holds: list-copy-codes
TEST_F(lists, a_copy_drops_what_the_destination_held)
{
    list.add(add_port("eth8", 8));
    list.add(add_port("eth9", 9));
    other.add(add_port("eth1", 1));
    EXPECT_EQ(copy_list(&list, &other), OK);
    EXPECT_EQ(names_of(list), t_names{"eth1"});
    EXPECT_EQ(list.count, 3);
}

TEST_F(lists, copying_an_empty_list_changes_nothing)
{
    list.add(add_port("eth8", 8));
    EXPECT_EQ(copy_list(&list, &other), OK);
    EXPECT_EQ(names_of(list), t_names{"eth8"});
    EXPECT_EQ(list.count, 1);
}

// holds: list-copy-codes
TEST_F(lists, a_copy_that_runs_out_of_memory_keeps_what_it_has)
{
    for (t_device *device : {add_port("eth1", 1), add_port("eth2", 2), add_port("eth3", 3)})
        other.add(device);
    t_log_capture log;
    t_memory_shortage shortage(2, sizeof(t_device_list));
    EXPECT_EQ(copy_list(&list, &other), ERR_NO_MEMORY);
    EXPECT_TRUE(log.has("Error", "copy_list", "malloc new t_device_list for dev:eth3 failed!"));
    EXPECT_EQ(names_of(list), (t_names{"eth1", "eth2"}));
    EXPECT_EQ(list.count, 2);
}

TEST_F(lists, operations_on_nodes_leave_the_count_to_their_callers)
{
    t_device *device = add_port("eth1", 1);
    EXPECT_EQ(add_unique_device_inorder_to_list(&list.head, device), OK);
    EXPECT_EQ(list.count, 0);
    list.add(add_port("eth2", 2));
    EXPECT_EQ(remove_unique_device_from_list(&list.head, device), OK);
    EXPECT_EQ(list.count, 1);
    free_device_list(&list.head);
    EXPECT_EQ(list.head.next, nullptr);
    EXPECT_EQ(list.count, 1);
}

TEST_F(lists, a_count_follows_adding_removing_and_clearing)
{
    t_device *first = add_port("eth1", 1), *second = add_port("eth2", 2);
    EXPECT_EQ(list.first(), nullptr);
    list.add(second);
    list.add(first);
    list.add(second);
    EXPECT_EQ(list.count, 2);
    EXPECT_EQ(list.first(), first);
    list.remove(first);
    list.remove(first);
    EXPECT_EQ(list.count, 1);
    EXPECT_EQ(list.first(), second);
    list.clear();
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.head.next, nullptr);
}

TEST_F(lists, a_silent_addition_is_like_any_other_but_for_its_words)
{
    t_device *first = add_port("eth1", 1), *second = add_port("eth2", 2), *third = add_port("eth3", 3);
    t_log_capture log;
    EXPECT_EQ(list.add_silently(second), OK);
    EXPECT_EQ(list.add_silently(first), OK);
    list.head.next->retry_count = 3;
    EXPECT_EQ(list.add_silently(first), ERR_ALREADY_PRESENT);
    EXPECT_EQ(list.head.next->retry_count, 0u);
    {
        t_memory_shortage shortage(0, sizeof(t_device_list));
        EXPECT_EQ(list.add_silently(third), ERR_NO_MEMORY);
    }
    EXPECT_EQ(names_of(list), (t_names{"eth1", "eth2"}));
    EXPECT_EQ(list.count, 2);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(lists, those_that_leave_are_dropped_and_counted_and_each_is_asked_once)
{
    for (int i = 1; i <= 4; i++)
        list.add(add_port("eth" + std::to_string(i), i));
    t_names asked;
    const int dropped = list.drop_if([&asked](const t_device_list &node) {
        asked.push_back(node.dev->name);
        return node.dev->priority % 2 != 0;
    });
    EXPECT_EQ(dropped, 2);
    EXPECT_EQ(asked, (t_names{"eth1", "eth2", "eth3", "eth4"}));
    EXPECT_EQ(names_of(list), (t_names{"eth2", "eth4"}));
    EXPECT_EQ(list.count, 2);
    EXPECT_EQ(list.drop_if([](const t_device_list &) { return true; }), 2);
    EXPECT_EQ(list.head.next, nullptr);
}

TEST_F(lists, a_member_may_move_to_another_list)
{
    for (int i = 1; i <= 3; i++)
        list.add(add_port("eth" + std::to_string(i), i));
    t_device_list *moved = list.find(port_model.dev_hashmap_head);
    ASSERT_NE(moved, nullptr);
    list.unlink(moved);
    other.link(&other.head, moved);
    EXPECT_EQ(names_of(list), (t_names{"eth2", "eth3"}));
    EXPECT_EQ(names_of(other), (t_names{"eth1"}));
    EXPECT_EQ(list.count, 2);
    EXPECT_EQ(other.count, 1);
    EXPECT_EQ(list.find(other.first()), nullptr);
}
