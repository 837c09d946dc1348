// SPDX-License-Identifier: MIT
// How long the background threads sleep, and where: looked at, not waited for.
#include <cerrno>
#include <ctime>

#include "adapters/wan_switch.h"
#include "core/background.h"
#include "core/combo_switch.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/link_change.h"
#include "core/link_scan.h"
#include "tests/unit/core/engine_fixture.h"
#include "tests/unit/core/recorded_pauses.h"

static pthread_t not_detached;
static bool detaching_fails;
static bool creating_fails;

extern "C" {
int __real_pthread_detach(pthread_t thread);
int __wrap_pthread_detach(pthread_t thread);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, t_thread_body body, void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, t_thread_body body, void *argument);

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, t_thread_body body, void *argument)
{
    return creating_fails ? EAGAIN : __real_pthread_create(thread, attributes, body, argument);
}

int __wrap_pthread_detach(pthread_t thread)
{
    if (!detaching_fails)
        return __real_pthread_detach(thread);
    not_detached = thread;
    return EINVAL;
}
}

namespace {

using t_pauses = std::vector<uint32_t>;

class thread_pauses : public t_engine_test {
protected:
    // The first pauses of a worker.
    static t_pauses first_pauses(t_thread_body body, int count)
    {
        recorded_pauses.reset(count - 1);
        pthread_t thread;
        EXPECT_EQ(start_background_thread(&thread, body, nullptr), 0);
        EXPECT_TRUE(recorded_pauses.others_reach(static_cast<size_t>(count)));
        EXPECT_TRUE(stop_background_threads());
        EXPECT_EQ(pthread_cancel(thread), 0);
        EXPECT_EQ(pthread_join(thread, nullptr), 0);
        return recorded_pauses.of_other_threads();
    }
    // True when somebody holds the lock.
    static bool held(pthread_mutex_t &lock)
    {
        if (pthread_mutex_trylock(&lock) != 0)
            return true;
        pthread_mutex_unlock(&lock);
        return false;
    }
    // Records anew; every short pause from now on must lie under both locks.
    static void expect_short_pauses_under_both_locks()
    {
        recorded_pauses.reset();
        recorded_pauses.on_short = [](uint32_t) {
            EXPECT_TRUE(held(engine_gate->locks.link_block_lock));
            EXPECT_TRUE(held(engine_gate->locks.combo_block_lock));
        };
    }
};

// holds: threads-rest
TEST_F(thread_pauses, the_link_scan_rests_1_s_between_its_passes)
{
    EXPECT_EQ(first_pauses(link_scan_thread, 3), (t_pauses{1000, 1000, 1000}));
}

// holds: threads-rest-after-switch
TEST_F(thread_pauses, the_link_scan_rests_20_s_once_after_a_switch)
{
    engine_gate->link_trigger_blocked = 1;
    EXPECT_EQ(first_pauses(link_scan_thread, 3), (t_pauses{20000, 1000, 1000}));
}

// holds: threads-rest
TEST_F(thread_pauses, the_combo_switch_rests_1_s_between_its_passes)
{
    EXPECT_EQ(first_pauses(wan_combo_switch_thread, 3), (t_pauses{1000, 1000, 1000}));
}

// holds: threads-rest-after-switch
TEST_F(thread_pauses, the_combo_switch_rests_20_s_once_after_a_switch)
{
    engine_gate->combo_switch_blocked = 1;
    EXPECT_EQ(first_pauses(wan_combo_switch_thread, 3), (t_pauses{20000, 1000, 1000}));
}

// holds: plugged-in-joins
TEST_F(thread_pauses, a_port_that_came_up_is_parked_after_9_s)
{
    recorded_pauses.reset(1);
    be_waiting();
    wan_detect_process_link_change(dev("eth1"), true);
    ASSERT_TRUE(recorded_pauses.others_reach(1));
    EXPECT_TRUE(stop_background_threads());
    EXPECT_EQ(recorded_pauses.of_other_threads(), t_pauses{9000});
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 1);
}

// holds: settling-fails
TEST_F(thread_pauses, whoever_started_a_settling_delay_sleeps_5_ms)
{
    recorded_pauses.reset(1);
    be_waiting();
    wan_detect_process_link_change(dev("eth1"), true);
    EXPECT_EQ(recorded_pauses.short_ones(), t_pauses{5});
}

// holds: settling-fails
TEST_F(thread_pauses, a_settling_delay_for_which_there_is_no_thread_is_told_and_left_out)
{
    be_waiting();
    creating_fails = true;
    wan_detect_process_link_change(dev("eth1"), true);
    creating_fails = false;
    EXPECT_TRUE(log->has("Error", "wan_detect_process_link_change",
                         "pthread_create pid_delay_trigger_thread failed...ret=11, continue whatever!"));
    EXPECT_TRUE(stop_background_threads()) << "it is not waited for";
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 0);
}

// holds: settling-fails
TEST_F(thread_pauses, a_settling_delay_that_cannot_be_detached_is_told_and_works_all_the_same)
{
    recorded_pauses.reset(1);
    be_waiting();
    detaching_fails = true;
    EXPECT_EQ(wan_detect_process_link_change(dev("eth1"), true), 0);
    detaching_fails = false;
    pthread_join(not_detached, nullptr);
    EXPECT_TRUE(log->has("Error", "wan_detect_process_link_change",
                         "pthread_detach pid_delay_trigger_thread failed...ret=22, continue whatever!"));
    EXPECT_EQ(engine.possible_wan_dev_list_cache.count, 1);
}

// A thread that sits in a command is left behind: the process ends without it.
// holds: hanging-at-shutdown
TEST_F(thread_pauses, shutdown_waits_3_s_for_a_thread_and_no_longer)
{
    static std::atomic<bool> may_leave;
    may_leave = false;
    pthread_t thread;
    ASSERT_EQ(start_background_thread(
                  &thread,
                  [](void *) -> void * {
                      while (!may_leave)
                          usleep(10'000);
                      leave_background();
                      return nullptr;
                  },
                  nullptr),
              0);
    const auto start = std::chrono::steady_clock::now();
    const clock_t worked = clock();
    EXPECT_FALSE(stop_background_threads());
    EXPECT_LT(clock() - worked, CLOCKS_PER_SEC / 4) << "of the processor";
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(2990));
    EXPECT_LT(waited, std::chrono::seconds(4));
    may_leave = true;
    pthread_join(thread, nullptr);
}

// holds: switch-locks
TEST_F(thread_pauses, a_switch_sleeps_1_ms_before_it_lets_the_threads_go_on)
{
    expect_short_pauses_under_both_locks();
    switch_wan_to_dev(dev("eth2"), 0);
    EXPECT_EQ(recorded_pauses.short_ones(), t_pauses{1});
    EXPECT_EQ(fake_router.count("network_lanwan_swap set port2"), 1);
}

// holds: switch-locks
TEST_F(thread_pauses, a_toggle_sleeps_1_ms_before_it_lets_the_threads_go_on)
{
    expect_short_pauses_under_both_locks();
    dev("eth2")->is_combo = 1;
    write_switch_config(5, 2);
    toggle_combo_state(dev("eth2"));
    EXPECT_EQ(recorded_pauses.short_ones(), t_pauses{1});
}

} // namespace
