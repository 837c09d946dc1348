// SPDX-License-Identifier: MIT
// Timers and intervals.
#include "uloop_fixture.h"

#include <climits>
#include <string>
#include <vector>

namespace {

using uloop_timers = loop_test;
using uloop_intervals = loop_test;

} // namespace

TEST_F(uloop_timers, run_in_order_of_expiry)
{
    std::string order;
    timer late([&] { order += '3'; });
    timer early([&] { order += '1'; });
    timer middle([&] { order += '2'; });
    uloop_timeout_set(&late, 8);
    uloop_timeout_set(&early, 2);
    uloop_timeout_set(&middle, 5);
    run_for(12);
    EXPECT_EQ(order, "123");
}

TEST_F(uloop_timers, less_than_a_millisecond_apart_run_in_the_order_they_were_armed)
{
    std::string order;
    timer first([&] { order += '1'; });
    timer second([&] { order += '2'; });
    first.time = {100, 999900};
    second.time = {100, 999000};
    uloop_timeout_add(&first);
    uloop_timeout_add(&second);
    timer third([&] { order += '0'; });
    third.time = {100, 998800};
    uloop_timeout_add(&third);
    run_for(0);
    EXPECT_EQ(order, "012");
}

TEST_F(uloop_timers, fire_less_than_a_millisecond_early)
{
    for (int i = 0; i < 5; i++) {
        timer end([] { uloop_end(); });
        auto start = clock_now();
        uloop_timeout_set(&end, 5);
        uloop_run();
        EXPECT_GT(ms_since(start), 4.0);
    }
}

TEST_F(uloop_timers, setting_an_armed_timer_moves_its_expiry)
{
    int calls = 0;
    timer t([&] { calls++; });
    EXPECT_EQ(uloop_timeout_set(&t, 1), 0);
    EXPECT_EQ(uloop_timeout_set(&t, 60000), 0);
    EXPECT_TRUE(t.pending);
    EXPECT_EQ(uloop_timeout_add(&t), -1);
    run_for(5);
    EXPECT_EQ(calls, 0);
}

TEST_F(uloop_timers, cancel_tells_whether_the_timer_was_armed)
{
    timer t([] { FAIL(); });
    EXPECT_EQ(uloop_timeout_cancel(&t), -1);
    uloop_timeout_set(&t, 0);
    EXPECT_EQ(uloop_timeout_cancel(&t), 0);
    EXPECT_FALSE(t.pending);
    EXPECT_EQ(uloop_timeout_cancel(&t), -1);
    run_for(2);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
TEST_F(uloop_timers, remaining_is_truncated_towards_zero)
{
    timer t;
    EXPECT_EQ(uloop_timeout_remaining(&t), -1);
    EXPECT_EQ(uloop_timeout_remaining64(&t), -1);
    uloop_timeout_set(&t, 60000);
    usleep(10);
    EXPECT_LT(uloop_timeout_remaining(&t), 60000);
    EXPECT_GT(uloop_timeout_remaining(&t), 50000);
    uloop_timeout_set(&t, -1500);
    EXPECT_LE(uloop_timeout_remaining64(&t), -1500);
    EXPECT_GT(uloop_timeout_remaining64(&t), -10000);
}

TEST_F(uloop_timers, the_narrow_remaining_saturates)
{
    timer t;
    t.time.tv_sec = 100000000;
    uloop_timeout_add(&t);
    EXPECT_EQ(uloop_timeout_remaining(&t), INT_MAX);
    EXPECT_GT(uloop_timeout_remaining64(&t), INT_MAX);
    EXPECT_EQ(uloop_get_next_timeout(), INT_MAX);
}
#pragma GCC diagnostic pop

TEST_F(uloop_timers, the_longest_delay_works)
{
    timer t;
    EXPECT_EQ(uloop_timeout_set(&t, INT_MAX), 0);
    EXPECT_GT(uloop_timeout_remaining64(&t), INT_MAX - 10000);
    EXPECT_LE(uloop_timeout_remaining64(&t), INT_MAX);
}

TEST_F(uloop_timers, the_next_timeout_is_never_negative)
{
    EXPECT_EQ(uloop_get_next_timeout(), -1);
    timer t;
    uloop_timeout_set(&t, -5);
    EXPECT_EQ(uloop_get_next_timeout(), 0);
    uloop_timeout_set(&t, 60000);
    EXPECT_GT(uloop_get_next_timeout(), 50000);
}

TEST_F(uloop_timers, a_negative_delay_fires_in_the_next_turn_ahead_of_the_others)
{
    std::string order;
    timer zero([&] { order += '0'; });
    timer past([&] { order += '-'; });
    uloop_timeout_set(&zero, 0);
    EXPECT_EQ(uloop_timeout_set(&past, -1500), 0);
    uloop_run_timeout(0);
    EXPECT_EQ(order, "-0");
}

TEST_F(uloop_timers, are_disarmed_before_their_callback)
{
    bool was_pending = true;
    timer t;
    t.run = [&] { was_pending = t.pending; };
    uloop_timeout_set(&t, 0);
    uloop_run_timeout(0);
    EXPECT_FALSE(was_pending);
}

TEST_F(uloop_timers, may_free_themselves_in_their_callback)
{
    auto *t = new timer();
    t->run = [t] { delete t; };
    uloop_timeout_set(t, 0);
    run_for(1);
}

TEST_F(uloop_timers, without_callback_disappear)
{
    uloop_timeout t = {};
    uloop_timeout_set(&t, 0);
    uloop_run_timeout(0);
    EXPECT_FALSE(t.pending);
}

TEST_F(uloop_timers, cancelled_by_one_of_the_same_pass_do_not_run)
{
    timer second([] { FAIL(); });
    timer first([&] { EXPECT_EQ(uloop_timeout_cancel(&second), 0); });
    uloop_timeout_set(&first, 0);
    uloop_timeout_set(&second, 0);
    run_for(1);
}

TEST_F(uloop_timers, rearmed_without_delay_hold_up_descriptors_for_about_a_millisecond)
{
    pipe_pair ends;
    int calls = 0;
    timer t;
    t.run = [&] {
        calls++;
        uloop_timeout_set(&t, 0);
    };
    watch reader(ends.reader(), [](unsigned int) { uloop_end(); });
    uloop_fd_add(&reader, ULOOP_READ);
    ends.fill();
    uloop_timeout_set(&t, 0);
    auto start = clock_now();
    uloop_run();
    EXPECT_GT(calls, 2);
    EXPECT_GE(ms_since(start), 0.9);
}

TEST_F(uloop_intervals, repeat_and_count_their_expirations)
{
    static int calls;
    calls = 0;
    uloop_interval every = {};
    every.cb = [](uloop_interval *) {
        if (++calls == 2)
            uloop_end();
    };
    EXPECT_EQ(uloop_interval_remaining(&every), -1);
    EXPECT_EQ(uloop_interval_set(&every, 2), 0);
    uloop_run();
    EXPECT_EQ(calls, 2);
    EXPECT_GE(every.expirations, static_cast<uint64_t>(calls));
    EXPECT_EQ(uloop_interval_set(&every, 60000), 0);
    EXPECT_GT(uloop_interval_remaining(&every), 50000);
    EXPECT_EQ(uloop_interval_cancel(&every), 0);
    EXPECT_EQ(uloop_interval_cancel(&every), -1);
}

TEST_F(uloop_intervals, missed_expirations_are_counted)
{
    uloop_interval every = {};
    every.cb = [](uloop_interval *) { uloop_end(); };
    uloop_interval_set(&every, 1);
    usleep(10000);
    uloop_run();
    EXPECT_GE(every.expirations, 5u);
    uloop_interval_cancel(&every);
}
