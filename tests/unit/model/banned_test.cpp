// SPDX-License-Identifier: MIT
#include "model/banned.h"

#include <thread>

#include "platform/result_codes.h"
#include "tests/unit/model/model_test.h"
#include "tests/unit/support/failing_memory.h"
#include "tests/unit/support/fake_clock.h"

namespace {

constexpr int32_t NOW = 1000;

class bans : public t_model_test {
protected:
    bans()
    {
        fake_clock.set(NOW, 500);
        device = add_port("eth1", 1);
        add_port("eth2", 2);
    }

    int ban(const char *name, int32_t seconds)
    {
        return add_unique_banned_device_to_list(port_model.dev_hashmap_head, list, name, seconds);
    }
    int lift(const char *name, t_device *dev = nullptr)
    {
        return remove_banned_device_from_list(port_model.dev_hashmap_head, list, name, dev);
    }
    int lift_infinite(const char *name, t_device *dev = nullptr)
    {
        return remove_infinte_banned_device_from_list(port_model.dev_hashmap_head, list, name, dev);
    }
    const t_device_list &first() { return *list->head.next; }
    bool lock_is_free()
    {
        if (pthread_spin_trylock(&gate.locks.banned_lock) != 0)
            return false;
        pthread_spin_unlock(&gate.locks.banned_lock);
        return true;
    }

    t_device_list_head *list = &port_model.banned_list;
    t_device *device;
};

} // namespace

// holds: ban-codes
TEST_F(bans, a_ban_ends_its_seconds_from_now)
{
    t_log_capture log;
    EXPECT_EQ(ban("eth1", 30), OK);
    EXPECT_TRUE(log.has("Info", "add_unique_banned_device_to_list", "dev:eth1 is banned to act as wan now for 30s!"));
    EXPECT_EQ(list->count, 1);
    EXPECT_EQ(first().dev, device);
    EXPECT_EQ(first().aging_time.sec, NOW + 30);
    EXPECT_EQ(first().aging_time.usec, 500);
    EXPECT_TRUE(is_banned_device(list, device));
    EXPECT_TRUE(lock_is_free());
}

TEST_F(bans, the_latest_ban_stands_in_front)
{
    ban("eth1", 30);
    ban("eth2", 10);
    EXPECT_EQ(names_of(*list), (t_names{"eth2", "eth1"}));
    EXPECT_EQ(list->count, 2);
}

TEST_F(bans, the_seconds_that_are_left_are_rounded_up)
{
    EXPECT_EQ(ban_seconds_left(list, device), 0);
    ban("eth1", 30);
    EXPECT_EQ(ban_seconds_left(list, device), 30);
    EXPECT_EQ(ban_end_s(list, device), NOW + 30u);
    fake_clock.set(NOW + 29, 501);
    EXPECT_EQ(ban_seconds_left(list, device), 1);
    fake_clock.set(NOW + 30, 500);
    EXPECT_EQ(ban_seconds_left(list, device), 0); // still in the list, until the next update
    EXPECT_EQ(ban_end_s(list, device), 0u);
    ban("eth1", BAN_FOREVER);
    EXPECT_EQ(ban_seconds_left(list, device), BAN_FOREVER);
    EXPECT_EQ(ban_end_s(list, device), static_cast<uint32_t>(INT32_MAX));
}

// holds: ban-end-moves
TEST_F(bans, a_shorter_ban_keeps_the_first_end_and_a_longer_one_moves_it)
{
    ban("eth1", 30);
    t_log_capture log;
    EXPECT_EQ(ban("eth1", 10), ERR_ALREADY_PRESENT);
    EXPECT_TRUE(
        log.has("Info", "add_unique_banned_device_to_list", "dev:eth1 already in list, Remain aging_time unchanged!"));
    EXPECT_EQ(first().aging_time.sec, NOW + 30);
    fake_clock.advance_ms(5000);
    EXPECT_EQ(ban("eth1", 60), ERR_ALREADY_PRESENT);
    EXPECT_TRUE(
        log.has("Info", "add_unique_banned_device_to_list", "dev:eth1 already in list, Update its aging_time!"));
    EXPECT_EQ(first().aging_time.sec, NOW + 5 + 60);
    EXPECT_EQ(list->count, 1);
    EXPECT_TRUE(lock_is_free());
}

TEST_F(bans, a_ban_of_the_time_that_is_left_changes_nothing)
{
    ban("eth1", 30);
    t_log_capture log;
    ban("eth1", 30);
    EXPECT_TRUE(log.has_body("dev:eth1 already in list, Remain aging_time unchanged!"));
}

// holds: ban-without-end
TEST_F(bans, an_infinite_ban_outlasts_every_update_and_ends_when_asked)
{
    t_log_capture log;
    EXPECT_EQ(ban("eth1", BAN_FOREVER), OK);
    EXPECT_TRUE(log.has("Info", "add_unique_banned_device_to_list", "dev:eth1 is banned to act as wan now for -1s!"));
    EXPECT_EQ(first().aging_time.sec, 0);
    EXPECT_EQ(first().aging_time.usec, INT32_MAX);
    for (int32_t later : {1, 3000, 100'000'000}) {
        fake_clock.set(later);
        update_banned_device_list(list);
        EXPECT_EQ(list->count, 1);
    }
    EXPECT_EQ(lift_infinite("eth1"), OK);
    EXPECT_TRUE(log.has("Debug", "remove_infinte_banned_device_from_list",
                        "Success remove infinte banned dev:eth1 from banned list!"));
    EXPECT_EQ(list->count, 0);
    EXPECT_FALSE(is_banned_device(list, device));
}

TEST_F(bans, a_finite_ban_becomes_infinite)
{
    ban("eth1", 30);
    t_log_capture log;
    EXPECT_EQ(ban("eth1", BAN_FOREVER), ERR_ALREADY_PRESENT);
    EXPECT_TRUE(log.has("Info", "add_unique_banned_device_to_list",
                        "dev:eth1 already in list, Update its aging_time to infinite until next time the device link "
                        "up!"));
    EXPECT_EQ(first().aging_time.usec, INT32_MAX);
}

// holds: ban-long
TEST_F(bans, an_infinite_ban_yields_to_a_finite_one_once_the_clock_is_past_2147_seconds)
{
    fake_clock.set(1000);
    ban("eth1", BAN_FOREVER);
    ban("eth1", 30);
    EXPECT_EQ(first().aging_time.usec, INT32_MAX);
    fake_clock.set(2200);
    ban("eth1", 30);
    EXPECT_EQ(first().aging_time.sec, 2230);
    EXPECT_EQ(first().aging_time.usec, 0);
}

// holds: ban-time-0
TEST_F(bans, a_ban_of_0_seconds_lifts_the_ban)
{
    ban("eth1", 30);
    t_log_capture log;
    EXPECT_EQ(ban("eth1", 0), OK);
    EXPECT_TRUE(log.has("Debug", "remove_banned_device_from_list", "Success remove dev:eth1 from banned list!"));
    EXPECT_EQ(list->count, 0);
    EXPECT_EQ(ban("eth1", 0), ERR_NOTHING_DONE);
}

// holds: ban-time-0, ban-codes
TEST_F(bans, a_ban_of_minus_2_seconds_is_refused)
{
    EXPECT_EQ(ban("eth1", -2), ERR_INVALID_INPUT);
    EXPECT_EQ(ban("eth1", INT32_MIN), ERR_INVALID_INPUT);
    EXPECT_EQ(list->count, 0);
}

// holds: ban-end-in-time
TEST_F(bans, a_ban_of_1_second_is_gone_1_second_later_and_not_before)
{
    ban("eth1", 1);
    fake_clock.set(NOW + 1, 499);
    update_banned_device_list(list);
    EXPECT_EQ(list->count, 1);
    fake_clock.set(NOW + 1, 500);
    t_log_capture log;
    update_banned_device_list(list);
    EXPECT_TRUE(log.has("Info", "update_banned_device_list",
                        "banned dev:eth1 out of time, remove it from banned list, now allow it to be wan!"));
    EXPECT_EQ(list->count, 0);
    EXPECT_EQ(list->head.next, nullptr);
    EXPECT_TRUE(lock_is_free());
}

// holds: ban-end-in-time
TEST_F(bans, an_update_takes_out_only_what_ran_out)
{
    for (const char *name : {"eth3", "eth4", "eth5"})
        add_port(name);
    ban("eth1", 5);
    ban("eth2", 50);
    ban("eth3", BAN_FOREVER);
    ban("eth4", 6);
    ban("eth5", 500);
    fake_clock.advance_ms(10000);
    t_log_capture log;
    update_banned_device_list(list);
    EXPECT_EQ(names_of(*list), (t_names{"eth5", "eth3", "eth2"}));
    EXPECT_EQ(list->count, 3);
    EXPECT_EQ(lines_of(log, "Info"),
              (t_names{"update_banned_device_list: banned dev:eth4 out of time, remove it from banned list, now allow "
                       "it to be wan!",
                       "update_banned_device_list: banned dev:eth1 out of time, remove it from banned list, now allow "
                       "it to be wan!"}));
}

// holds: ban-long
TEST_F(bans, long_bans_compare_by_what_is_left_of_a_32_bit_product)
{
    ban("eth1", 10);
    // 4295 s are 4295000000 us, of which 32 bits keep 32704 us: less than the 10 s that are left.
    ban("eth1", 4295);
    EXPECT_EQ(first().aging_time.sec, NOW + 10);
    // 2148 s are a negative number of microseconds there.
    ban("eth1", 2148);
    EXPECT_EQ(first().aging_time.sec, NOW + 10);
    ban("eth1", 2147);
    EXPECT_EQ(first().aging_time.sec, NOW + 2147);
}

TEST_F(bans, the_longest_ban_ends_with_the_clock)
{
    ban("eth1", INT32_MAX);
    EXPECT_EQ(first().aging_time.sec, INT32_MAX);
    fake_clock.set(INT32_MAX - 1);
    update_banned_device_list(list);
    EXPECT_EQ(list->count, 1);
}

// holds: ban-codes, ban-lift-codes
TEST_F(bans, an_unknown_port_is_neither_banned_nor_freed)
{
    t_log_capture log;
    EXPECT_EQ(ban("eth9", 30), ERR_NOTHING_DONE);
    EXPECT_TRUE(log.has("Error", "add_unique_banned_device_to_list", "Device eth9 doesn't existed!"));
    EXPECT_EQ(lift("eth9"), ERR_NOTHING_DONE);
    EXPECT_TRUE(log.has("Error", "remove_banned_device_from_list", "Device eth9 doesn't existed!"));
    EXPECT_EQ(lift_infinite("eth9"), ERR_NOTHING_DONE);
    EXPECT_TRUE(log.has("Error", "remove_infinte_banned_device_from_list", "Device eth9 doesn't existed!"));
    EXPECT_EQ(ban("", 30), ERR_NOTHING_DONE);
    EXPECT_EQ(ban(std::string(3000, 'x').c_str(), 30), ERR_NOTHING_DONE);
}

// holds: ban-codes, ban-lift-codes
TEST_F(bans, null_arguments_are_reported_by_code_only)
{
    t_device *table = port_model.dev_hashmap_head;
    t_log_capture log;
    EXPECT_EQ(add_unique_banned_device_to_list(nullptr, list, "eth1", 1), ERR_INVALID_INPUT);
    EXPECT_EQ(add_unique_banned_device_to_list(table, nullptr, "eth1", 1), ERR_INVALID_INPUT);
    EXPECT_EQ(add_unique_banned_device_to_list(table, list, nullptr, 1), ERR_INVALID_INPUT);
    EXPECT_EQ(remove_banned_device_from_list(nullptr, list, "eth1", device), ERR_INVALID_INPUT);
    EXPECT_EQ(remove_banned_device_from_list(table, nullptr, "eth1", device), ERR_INVALID_INPUT);
    EXPECT_EQ(remove_banned_device_from_list(table, list, nullptr, nullptr), ERR_INVALID_INPUT);
    EXPECT_EQ(remove_infinte_banned_device_from_list(nullptr, list, "eth1", device), ERR_INVALID_INPUT);
    EXPECT_EQ(remove_infinte_banned_device_from_list(table, nullptr, "eth1", device), ERR_INVALID_INPUT);
    EXPECT_EQ(remove_infinte_banned_device_from_list(table, list, nullptr, nullptr), ERR_INVALID_INPUT);
    update_banned_device_list(nullptr);
    EXPECT_FALSE(is_banned_device(nullptr, device));
    EXPECT_FALSE(is_banned_device(list, nullptr));
    EXPECT_TRUE(log.lines().empty());
}

// holds: ban-lift-codes
TEST_F(bans, a_ban_is_lifted_by_record_or_by_name)
{
    ban("eth1", 30);
    EXPECT_EQ(lift(nullptr, device), OK);
    ban("eth1", 30);
    EXPECT_EQ(lift("eth1"), OK);
    EXPECT_EQ(lift("eth1"), ERR_NOTHING_DONE);
    // The record wins over the name.
    ban("eth1", 30);
    EXPECT_EQ(lift("eth2", device), OK);
    EXPECT_EQ(list->count, 0);
    EXPECT_TRUE(lock_is_free());
}

// holds: ban-lift-codes
TEST_F(bans, lifting_infinite_bans_leaves_finite_ones)
{
    ban("eth1", 30);
    EXPECT_EQ(lift_infinite("eth1"), ERR_NOTHING_DONE);
    EXPECT_EQ(lift_infinite("eth2"), ERR_NOTHING_DONE);
    EXPECT_EQ(list->count, 1);
    EXPECT_TRUE(lock_is_free());
}

// holds: ban-codes
TEST_F(bans, a_ban_without_memory_changes_nothing)
{
    t_log_capture log;
    t_memory_shortage shortage(0, sizeof(t_device_list));
    EXPECT_EQ(ban("eth1", 30), ERR_NO_MEMORY);
    EXPECT_TRUE(log.has("Error", "add_unique_banned_device_to_list", "malloc new t_device_list for dev:eth1 failed!"));
    EXPECT_EQ(list->count, 0);
    EXPECT_EQ(list->head.next, nullptr);
    EXPECT_TRUE(lock_is_free());
}

TEST_F(bans, threads_that_ban_lift_and_expire_at_once_leave_a_list_that_adds_up)
{
    t_log_capture quiet(0);
    auto churn = [this](const char *name, int32_t seconds) {
        for (int i = 0; i < 3000; i++) {
            ban(name, seconds);
            update_banned_device_list(list);
            is_banned_device(list, device);
            if (i % 3 == 0)
                lift(name);
            else if (i % 3 == 1)
                lift_infinite(name);
        }
    };
    std::thread first_thread(churn, "eth1", 30), second_thread(churn, "eth2", BAN_FOREVER),
        third_thread(churn, "eth1", 60);
    first_thread.join();
    second_thread.join();
    third_thread.join();
    EXPECT_EQ(names_of(*list).size(), list->count);
    EXPECT_LE(list->count, 2);
}
