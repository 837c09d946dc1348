// SPDX-License-Identifier: MIT
#include "core/link_change.h"

#include <cerrno>

#include "core/background.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/engine_life.h"
#include "core/wishes.h"
#include "model/banned.h"
#include "model/lists.h"
#include "platform/clock.h"
#include "platform/command.h"
#include "platform/ending.h"
#include "platform/result_codes.h"
#include "tests/unit/core/engine_fixture.h"
#include "tests/unit/support/this_build.h"

namespace {

class link_change : public t_engine_test {
protected:
    // Leaves a wish as a background thread does.
    static void wish_from_a_thread()
    {
        pthread_t thread;
        ASSERT_EQ(start_background_thread(
                      &thread,
                      [](void *) -> void * {
                          interrupt_cycle();
                          leave_background();
                          return nullptr;
                      },
                      nullptr),
                  0);
        pthread_join(thread, nullptr);
    }
};

// Long enough for a thread to reach a lock that somebody holds. A test that is too early passes without having seen
// the race; it never fails for it.
constexpr uint32_t REACH_LOCK_MS = 50;

// holds: link-outside-router-mode
TEST_F(link_change, outside_router_mode_not_even_the_state_is_stored)
{
    port_model.router_mode = 0;
    EXPECT_EQ(wan_detect_process_link_change(dev("eth1"), true), OK);
    EXPECT_FALSE(dev("eth1")->link_active);
    EXPECT_TRUE(log->has("Debug", "wan_detect_process_link_change",
                         "wan_detect in ap/repeater mode, ignore the deivce status change!"));
    dev("eth0")->link_active = 1;
    EXPECT_EQ(wan_detect_process_link_change(dev("eth0"), false), OK);
    EXPECT_TRUE(dev("eth0")->link_active);
    EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED);
}

// holds: link-while-off
TEST_F(link_change, an_unchanged_state_is_ignored)
{
    wan_detect_process_link_change(dev("eth1"), false);
    EXPECT_TRUE(log->has("Debug", "wan_detect_process_link_change", "Device eth1 status not change!"));
}

// holds: link-while-off
TEST_F(link_change, with_detection_off_the_state_is_stored_and_nothing_more)
{
    port_model.enable = 0;
    dev("eth0")->link_active = 1;
    wan_detect_process_link_change(dev("eth0"), false);
    EXPECT_FALSE(dev("eth0")->link_active);
    EXPECT_TRUE(log->has("Info", "wan_detect_process_link_change", "Device eth0 link status change to down!"));
    EXPECT_TRUE(
        log->has("Debug", "wan_detect_process_link_change", "wan_detect not enable, ignore the deivce status change!"));
    EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED);
}

// holds: loss-opens-cycle
TEST_F(link_change, the_wan_port_losing_its_link_opens_a_cycle_10_s_later)
{
    dev("eth0")->link_active = 1;
    wan_detect_process_link_change(dev("eth0"), false);
    EXPECT_TRUE(engine.detecting);
    EXPECT_FALSE(port_model.wan_detect_running);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
    EXPECT_TRUE(log->has("Info", "wan_detect_process_link_change", "Wan down!! Begin detecting in 10000ms"));
    EXPECT_EQ(engine.possible_wan_dev_list.count, 0);
}

// holds: loss-again
TEST_F(link_change, a_second_loss_within_the_10_s_restarts_the_wait)
{
    dev("eth0")->link_active = 1;
    wan_detect_process_link_change(dev("eth0"), false);
    uloop_timeout_set(&engine.start_wan_detect, 3000);
    wan_detect_process_link_change(dev("eth0"), true);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
    uloop_timeout_set(&engine.start_wan_detect, 3000);
    wan_detect_process_link_change(dev("eth0"), false);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
    EXPECT_EQ(log->count("Info", "wan_detect_process_link_change", "Reset start detecting time to 10000ms"), 2);
}

// holds: loss-in-cycle
TEST_F(link_change, a_loss_during_a_running_cycle_filters_again_after_a_second)
{
    be_running();
    dev("eth0")->link_active = 1;
    wan_detect_process_link_change(dev("eth0"), false);
    EXPECT_EQ(armed(engine.start_wan_detect), 1000);
    EXPECT_TRUE(
        log->has("Info", "wan_detect_process_link_change", "Wan down during detecting!! Begin detecting in 1000ms"));
}

// holds: plugged-in-at-rest
TEST_F(link_change, the_wan_port_coming_up_while_no_cycle_is_open_is_ignored)
{
    wan_detect_process_link_change(dev("eth0"), true);
    EXPECT_TRUE(dev("eth0")->link_active);
    EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED);
    EXPECT_TRUE(log->has("Debug", "wan_detect_process_link_change", "Ignore: Device eth0 link status change to up!"));
}

// holds: plugged-in-at-rest
TEST_F(link_change, another_port_is_ignored_while_no_cycle_is_open)
{
    wan_detect_process_link_change(dev("eth1"), true);
    EXPECT_TRUE(dev("eth1")->link_active);
    EXPECT_TRUE(log->has("Debug", "wan_detect_process_link_change", "Ignore: Device eth1 link status change to up!"));
    EXPECT_FALSE(engine.detecting);
    EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED);
    EXPECT_FALSE(log->has_body("Noticed lan dev:eth1 turned up during delay! Add it to possible_wan_dev_list_cache "
                               "after 9000ms!"));
    EXPECT_FALSE(log->has_body("Noticed dev:eth1 turned up during detecting! Add it to possible_wan_dev_list_cache "
                               "after 9000ms!"));
}

TEST_F(link_change, another_port_going_down_is_ignored_during_a_cycle_too)
{
    be_running();
    dev("eth1")->link_active = 1;
    wan_detect_process_link_change(dev("eth1"), false);
    EXPECT_TRUE(log->has("Debug", "wan_detect_process_link_change", "Ignore: Device eth1 link status change to down!"));
    EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED);
}

TEST_F(link_change, a_port_that_comes_up_before_the_cycle_runs_is_noticed)
{
    be_waiting();
    wan_detect_process_link_change(dev("eth1"), true);
    EXPECT_TRUE(log->has("Debug", "wan_detect_process_link_change",
                         "Noticed lan dev:eth1 turned up during delay! Add it to possible_wan_dev_list_cache after "
                         "9000ms!"));
    EXPECT_TRUE(stop_background_threads());
}

// holds: plugged-in-joins
TEST_F(link_change, a_port_that_comes_up_during_the_cycle_is_noticed_and_so_is_the_wan_port)
{
    be_running();
    wan_detect_process_link_change(dev("eth1"), true);
    wan_detect_process_link_change(dev("eth0"), true);
    for (const char *port : {"eth0", "eth1"})
        EXPECT_TRUE(log->has("Debug", "wan_detect_process_link_change",
                             std::string("Noticed dev:") + port +
                                 " turned up during detecting! Add it to possible_wan_dev_list_cache after 9000ms!"));
    EXPECT_TRUE(stop_background_threads());
}

TEST_F(link_change, shutdown_ends_a_settling_delay_at_once_and_the_thread_touches_nothing)
{
    be_waiting();
    wan_detect_process_link_change(dev("eth1"), true);
    const t_time_stamp start = get_time_stamp();
    EXPECT_TRUE(stop_background_threads());
    EXPECT_LT(time_stamp_diff_us(get_time_stamp(), start), 2'000'000);
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 0);
}

// holds: plugged-in-joins
TEST_F(link_change, a_settled_port_is_parked_and_joins_at_the_next_pass)
{
    be_waiting();
    plug({"eth1"});
    delay_trigger_thread(dev("eth1"), 0);
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 1);
    EXPECT_TRUE(
        log->has("Info", "delay_trigger_thread", "Add device eth1 to backup possible wan list(1 devices contained)!"));
    uloop_timeout_set(&engine.start_wan_detect, 0);
    fire(engine.start_wan_detect);
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 0);
    EXPECT_TRUE(log->has_body("Start to detect in 2 device(s):eth0、eth1、"));
    EXPECT_EQ(candidates(), "eth1");
}

TEST_F(link_change, a_port_parked_already_is_told)
{
    be_waiting();
    dev("eth1")->link_active = 1;
    delay_trigger_thread(dev("eth1"), 0);
    delay_trigger_thread(dev("eth1"), 0);
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 1);
    EXPECT_TRUE(log->has("Info", "delay_trigger_thread",
                         "Failed to add device eth1 to backup possible wan list! might add reapeatly"));
}

// holds: plugged-in-too-late
TEST_F(link_change, a_port_that_went_down_again_is_not_parked)
{
    be_waiting();
    delay_trigger_thread(dev("eth1"), 0);
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 0);
    EXPECT_TRUE(
        log->has("Info", "delay_trigger_thread",
                 "device eth1 turned down during 9000ms delay, skipping add it to possible_wan_dev_list_cache"));
}

// holds: plugged-in-too-late
TEST_F(link_change, a_port_that_settles_after_the_cycle_is_not_parked)
{
    dev("eth1")->link_active = 1;
    delay_trigger_thread(dev("eth1"), 0);
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 0);
    EXPECT_TRUE(log->has("Info", "delay_trigger_thread",
                         "skipping add device eth1 to possible_wan_dev_list_cache due to detect is over!"));
}

// A background thread's wish reaches the loop, which arms the timer itself.
// holds: loss-opens-cycle
TEST_F(link_change, a_loss_seen_by_a_background_thread_arms_the_timer_on_the_loop)
{
    ASSERT_TRUE(attach_wishes_to_loop());
    dev("eth0")->link_active = 1;
    pthread_t thread;
    ASSERT_EQ(start_background_thread(
                  &thread,
                  [](void *port) -> void * {
                      wan_detect_process_link_change(static_cast<t_device *>(port), false);
                      leave_background();
                      return nullptr;
                  },
                  dev("eth0")),
              0);
    pthread_join(thread, nullptr);
    EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED);
    uloop_run_timeout(1000);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
    detach_wishes_from_loop();
}

TEST_F(link_change, the_last_of_several_wishes_wins)
{
    ASSERT_TRUE(attach_wishes_to_loop());
    pthread_t thread;
    start_background_thread(
        &thread,
        [](void *) -> void * {
            interrupt_cycle();
            open_cycle_after_loss();
            leave_background();
            return nullptr;
        },
        nullptr);
    pthread_join(thread, nullptr);
    be_waiting();
    uloop_run_timeout(1000);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
    detach_wishes_from_loop();
}

TEST_F(link_change, a_wish_that_arrives_after_the_cycle_ended_opens_the_next_one_with_the_full_wait)
{
    ASSERT_TRUE(attach_wishes_to_loop());
    wish_from_a_thread();
    uloop_run_timeout(1000);
    EXPECT_TRUE(engine.detecting);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
    detach_wishes_from_loop();
}

TEST_F(link_change, a_wish_that_arrives_after_the_wan_role_went_to_a_linked_port_opens_nothing)
{
    ASSERT_TRUE(attach_wishes_to_loop());
    plug({"eth2"});
    port_model.wan_dev = dev("eth2");
    wish_from_a_thread();
    uloop_run_timeout(1000);
    EXPECT_FALSE(engine.detecting);
    EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED);
    detach_wishes_from_loop();
}

TEST_F(link_change, a_pass_answers_the_wishes_that_were_left_before_it)
{
    ASSERT_TRUE(attach_wishes_to_loop());
    plug({"eth1"});
    start_wan_detect_all(0);
    fire(engine.init_wan_detect_all);
    wish_from_a_thread();
    fire(engine.start_wan_detect);
    uloop_run_timeout(1000);
    EXPECT_EQ(armed(engine.start_wan_detect), NOT_ARMED) << "the stage that the pass began is not cut";
    detach_wishes_from_loop();
}

TEST_F(link_change, a_loss_of_the_wan_port_between_the_verdict_and_the_end_opens_the_next_cycle)
{
    be_running();
    plug({"eth0"});
    end_cycle_with(dev("eth0"), t_decision::only_answer);
    wan_detect_process_link_change(dev("eth0"), false);
    fire(engine.end);
    EXPECT_FALSE(port_model.wan_detect_running);
    EXPECT_TRUE(engine.detecting);
    EXPECT_EQ(armed(engine.start_wan_detect), 10000);
}

// holds: change-seen-twice
TEST_F(link_change, a_change_that_two_threads_see_is_acted_upon_once)
{
    be_waiting();
    pthread_t threads[2];
    pthread_rwlock_rdlock(&engine.gate.locks.device_lock);
    for (pthread_t &thread : threads)
        ASSERT_EQ(start_background_thread(
                      &thread,
                      [](void *port) -> void * {
                          wan_detect_process_link_change(static_cast<t_device *>(port), true);
                          leave_background();
                          return nullptr;
                      },
                      dev("eth1")),
                  0);
    sleep_ms(REACH_LOCK_MS);
    pthread_rwlock_unlock(&engine.gate.locks.device_lock);
    for (pthread_t thread : threads)
        pthread_join(thread, nullptr);
    EXPECT_TRUE(stop_background_threads());
    EXPECT_EQ(log->count("Info", "wan_detect_process_link_change", "Device eth1 link status change to up!"), 1);
    EXPECT_EQ(log->count("Debug", "wan_detect_process_link_change", "Device eth1 status not change!"), 1);
}

// holds: plugged-in-too-late
TEST_F(link_change, a_port_that_settles_while_the_cycle_ends_is_not_left_behind)
{
    be_waiting();
    dev("eth1")->link_active = 1;
    pthread_t thread;
    pthread_spin_lock(&engine.gate.locks.cache_lock);
    ASSERT_EQ(start_background_thread(
                  &thread,
                  [](void *port) -> void * {
                      delay_trigger_thread(static_cast<t_device *>(port), 0);
                      leave_background();
                      return nullptr;
                  },
                  dev("eth1")),
              0);
    sleep_ms(REACH_LOCK_MS);
    be_in(t_cycle_state::resting);
    pthread_spin_unlock(&engine.gate.locks.cache_lock);
    pthread_join(thread, nullptr);
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 0);
    EXPECT_TRUE(log->has("Info", "delay_trigger_thread",
                         "skipping add device eth1 to possible_wan_dev_list_cache due to detect is over!"));
}

// For the thread sanitizer above all: nobody joins these threads, so what they touch last must be known.
TEST_F(link_change, a_detached_thread_touches_nothing_once_it_is_counted_as_gone)
{
    constexpr int ROUNDS = 100;
    for (int round = 0; round < ROUNDS; round++) {
        pthread_t thread;
        ASSERT_EQ(start_background_thread(
                      &thread,
                      [](void *) -> void * {
                          leave_background();
                          return nullptr;
                      },
                      nullptr),
                  0);
        pthread_detach(thread);
        ASSERT_TRUE(stop_background_threads());
        release_background();
        ASSERT_TRUE(init_background());
    }
}

static void *sleep_until_stopped(void *)
{
    sleep_unless_stopped(600'000);
    leave_background();
    return nullptr;
}

static size_t stack_of_thread;

static void *note_stack(void *)
{
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &stack_of_thread);
    pthread_attr_destroy(&attributes);
    leave_background();
    return nullptr;
}

TEST_F(link_change, a_background_thread_has_a_quarter_of_a_megabyte_of_stack)
{
    if (product_has_tsan())
        GTEST_SKIP() << "the sanitizer's runtime gives each thread a larger stack";
    pthread_t thread;
    ASSERT_EQ(start_background_thread(&thread, note_stack, nullptr), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_LE(stack_of_thread, size_t{256} * 1024);
    EXPECT_GT(stack_of_thread, size_t{192} * 1024);
}

// Whoever pulls and plugs cables as fast as he can must not use up the router's memory.
// holds: link-while-off, settling-fails
TEST_F(link_change, threads_beyond_the_limit_are_refused_until_others_have_left)
{
    pthread_t thread;
    for (int i = 0; i < MAX_BACKGROUND_THREADS; i++) {
        ASSERT_EQ(start_background_thread(&thread, sleep_until_stopped, nullptr), 0);
        pthread_detach(thread);
    }
    EXPECT_EQ(start_background_thread(&thread, sleep_until_stopped, nullptr), EAGAIN);
    be_waiting();
    EXPECT_EQ(wan_detect_process_link_change(dev("eth1"), true), 0);
    EXPECT_TRUE(log->has("Error", "wan_detect_process_link_change",
                         "pthread_create pid_delay_trigger_thread failed...ret=11, continue whatever!"));
    EXPECT_TRUE(stop_background_threads());
    release_background();
    ASSERT_TRUE(init_background());
    EXPECT_EQ(start_background_thread(&thread, sleep_until_stopped, nullptr), 0);
    pthread_detach(thread);
    EXPECT_TRUE(stop_background_threads());
}

TEST_F(link_change, a_thread_that_left_makes_room_for_another)
{
    for (int i = 0; i < 2 * MAX_BACKGROUND_THREADS; i++) {
        pthread_t thread;
        ASSERT_EQ(start_background_thread(
                      &thread,
                      [](void *) -> void * {
                          leave_background();
                          return nullptr;
                      },
                      nullptr),
                  0);
        pthread_join(thread, nullptr);
    }
}

TEST_F(link_change, the_end_of_the_process_is_told_to_running_commands)
{
    EXPECT_FALSE(end_is_asked_for());
    begin_to_stop(SIGTERM);
    EXPECT_TRUE(end_is_asked_for());
}

TEST_F(link_change, signals_that_end_the_process_are_blocked_in_background_threads)
{
    pthread_t thread;
    static sigset_t blocked;
    start_background_thread(
        &thread,
        [](void *) -> void * {
            pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
            leave_background();
            return nullptr;
        },
        nullptr);
    pthread_join(thread, nullptr);
    EXPECT_TRUE(sigismember(&blocked, SIGTERM));
    EXPECT_TRUE(sigismember(&blocked, SIGINT));
    sigset_t own;
    pthread_sigmask(SIG_BLOCK, nullptr, &own);
    EXPECT_FALSE(sigismember(&own, SIGTERM));
}

TEST_F(link_change, the_first_signal_is_the_one_that_is_told)
{
    EXPECT_EQ(stop_signal(), 0);
    begin_to_stop(SIGTERM);
    begin_to_stop(SIGINT);
    EXPECT_EQ(stop_signal(), SIGTERM);
    EXPECT_TRUE(sleep_unless_stopped(60000));
}

} // namespace
