// SPDX-License-Identifier: MIT
// Start, turns and end of the loop.
#include "uloop_fixture.h"

#include <dirent.h>
#include <set>

namespace {

using uloop_running = loop_test;
using uloop_starting = bare_loop_test;

std::set<int> open_fds()
{
    std::set<int> fds;
    DIR *dir = opendir("/proc/self/fd");
    while (dirent *entry = readdir(dir))
        fds.insert(atoi(entry->d_name));
    fds.erase(dirfd(dir));
    closedir(dir);
    return fds;
}

} // namespace

TEST_F(uloop_starting, a_second_init_opens_nothing)
{
    std::set<int> before = open_fds();
    EXPECT_EQ(uloop_init(), 0);
    std::set<int> first = open_fds();
    EXPECT_EQ(first.size(), before.size() + 3);
    EXPECT_EQ(uloop_init(), 0);
    EXPECT_EQ(open_fds(), first);
    uloop_done();
    EXPECT_EQ(open_fds(), before);
}

TEST_F(uloop_starting, own_descriptors_close_on_exec_and_the_pipe_does_not_block)
{
    std::set<int> before = open_fds();
    ASSERT_EQ(uloop_init(), 0);
    int non_blocking = 0;
    for (int fd : open_fds()) {
        if (before.count(fd))
            continue;
        EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
        non_blocking += (fcntl(fd, F_GETFL) & O_NONBLOCK) ? 1 : 0;
    }
    EXPECT_EQ(non_blocking, 2);
}

TEST_F(uloop_starting, without_init_timers_run_but_descriptors_are_refused)
{
    pipe_pair ends;
    watch reader(ends.reader());
    EXPECT_EQ(uloop_fd_add(&reader, ULOOP_READ), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(reader.registered);
    EXPECT_TRUE(fcntl(ends.reader(), F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(run_for(2), 0);
}

TEST_F(uloop_running, an_end_before_the_run_is_forgotten)
{
    bool ran = false;
    timer t([&] { ran = true; });
    uloop_timeout_set(&t, 2);
    uloop_end();
    EXPECT_TRUE(uloop_cancelled);
    EXPECT_EQ(run_for(5), 0);
    EXPECT_TRUE(ran);
}

TEST_F(uloop_running, the_flag_stays_set_after_the_run)
{
    run_for(0);
    EXPECT_TRUE(uloop_cancelled);
    EXPECT_FALSE(uloop_cancelling());
}

TEST_F(uloop_running, cancelling_is_true_only_inside_a_cancelled_run)
{
    bool before_end = true;
    bool after_end = false;
    timer t([&] {
        before_end = uloop_cancelling();
        uloop_end();
        after_end = uloop_cancelling();
    });
    uloop_timeout_set(&t, 0);
    uloop_run();
    EXPECT_FALSE(before_end);
    EXPECT_TRUE(after_end);
    EXPECT_FALSE(uloop_cancelling());
}

TEST_F(uloop_running, a_bounded_run_makes_one_turn)
{
    auto start = clock_now();
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_LT(ms_since(start), 1000);
    start = clock_now();
    EXPECT_EQ(uloop_run_timeout(10), 0);
    EXPECT_GE(ms_since(start), 9);
    int calls = 0;
    timer t([&] { calls++; });
    uloop_timeout_set(&t, 2);
    start = clock_now();
    uloop_run_timeout(60000);
    EXPECT_LT(ms_since(start), 30000);
    // The turn waited for the timer; running it is the next turn's first act.
    EXPECT_EQ(calls, 0);
    usleep(1000);
    uloop_run_timeout(0);
    EXPECT_EQ(calls, 1);
}

TEST_F(uloop_running, a_bounded_run_serves_one_descriptor)
{
    pipe_pair a, b;
    int calls = 0;
    watch first(a.reader(), [&](unsigned int) { calls++; });
    watch second(b.reader(), [&](unsigned int) { calls++; });
    uloop_fd_add(&first, ULOOP_READ);
    uloop_fd_add(&second, ULOOP_READ);
    a.fill();
    b.fill();
    uloop_run_timeout(0);
    EXPECT_EQ(calls, 1);
    uloop_run_timeout(0);
    EXPECT_EQ(calls, 2);
}

TEST_F(uloop_running, expired_timers_still_run_after_the_end)
{
    bool second_ran = false;
    timer first([] { uloop_end(); });
    timer second([&] { second_ran = true; });
    uloop_timeout_set(&first, 0);
    uloop_timeout_set(&second, 0);
    uloop_run();
    EXPECT_TRUE(second_ran);
}

TEST_F(uloop_running, ready_descriptors_left_by_the_end_are_served_by_the_next_run)
{
    pipe_pair a, b;
    int calls = 0;
    auto end_on_call = [&](unsigned int) {
        calls++;
        uloop_end();
    };
    watch first(a.reader(), end_on_call);
    watch second(b.reader(), end_on_call);
    uloop_fd_add(&first, ULOOP_READ | ULOOP_EDGE_TRIGGER);
    uloop_fd_add(&second, ULOOP_READ | ULOOP_EDGE_TRIGGER);
    a.fill();
    b.fill();
    uloop_run();
    EXPECT_EQ(calls, 1);
    // Edge-triggered, so the kernel does not tell again.
    uloop_run();
    EXPECT_EQ(calls, 2);
}

TEST_F(uloop_running, a_timer_armed_in_a_callback_runs_before_the_next_descriptor)
{
    pipe_pair a, b;
    std::string order;
    timer t([&] { order += 't'; });
    auto call = [&](unsigned int) {
        order += 'f';
        if (order.size() == 1)
            uloop_timeout_set(&t, 0);
        else
            uloop_end();
    };
    watch first(a.reader(), call);
    watch second(b.reader(), call);
    uloop_fd_add(&first, ULOOP_READ | ULOOP_EDGE_TRIGGER);
    uloop_fd_add(&second, ULOOP_READ | ULOOP_EDGE_TRIGGER);
    a.fill();
    b.fill();
    uloop_run();
    EXPECT_EQ(order, "ftf");
}

TEST_F(uloop_running, ending_a_nested_run_ends_the_outer_one)
{
    bool came_back = false;
    timer inner_end([] { uloop_end(); });
    timer outer([&] {
        uloop_timeout_set(&inner_end, 1);
        EXPECT_EQ(uloop_run(), 0);
        came_back = true;
    });
    timer late([] { FAIL() << "the outer loop went on"; });
    uloop_timeout_set(&outer, 0);
    uloop_timeout_set(&late, 2000);
    uloop_run();
    EXPECT_TRUE(came_back);
}

TEST_F(uloop_running, done_disarms_timers_and_process_watches_and_may_come_twice)
{
    timer t([] { FAIL(); });
    uloop_process child = {};
    child.pid = 1;
    uloop_timeout_set(&t, 0);
    uloop_process_add(&child);
    uloop_done();
    EXPECT_FALSE(t.pending);
    EXPECT_FALSE(child.pending);
    uloop_done();
    EXPECT_EQ(uloop_timeout_remaining64(&t), -1);
}

TEST_F(uloop_running, a_watch_older_than_the_loop_must_be_deleted_before_it_is_added)
{
    pipe_pair ends;
    watch reader(ends.reader());
    ASSERT_EQ(uloop_fd_add(&reader, ULOOP_READ), 0);
    uloop_done();
    EXPECT_TRUE(reader.registered);
    ASSERT_EQ(uloop_init(), 0);
    EXPECT_EQ(uloop_fd_add(&reader, ULOOP_READ), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(uloop_fd_delete(&reader), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(reader.registered);
    EXPECT_EQ(uloop_fd_add(&reader, ULOOP_READ), 0);
}

TEST_F(uloop_running, events_known_before_done_are_forgotten)
{
    pipe_pair a, b;
    int calls = 0;
    auto call = [&](unsigned int) {
        calls++;
        uloop_end();
    };
    watch first(a.reader(), call);
    watch second(b.reader(), call);
    uloop_fd_add(&first, ULOOP_READ);
    uloop_fd_add(&second, ULOOP_READ);
    a.fill();
    b.fill();
    uloop_run();
    uloop_done();
    ASSERT_EQ(uloop_init(), 0);
    uloop_run_timeout(0);
    EXPECT_EQ(calls, 1);
}
