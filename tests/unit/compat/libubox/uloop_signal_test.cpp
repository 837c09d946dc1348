// SPDX-License-Identifier: MIT
// Signals of the loop: which handlers it installs, how they end it, and watches of the application.
#include "uloop_fixture.h"

#include <memory>
#include <thread>

namespace {

using uloop_signals = loop_test;
using uloop_dispositions = bare_loop_test;

void own_handler(int) {}

struct signal_watch : uloop_signal {
    explicit signal_watch(
        int number, std::function<void()> function = [] {})
        : uloop_signal{}, run(std::move(function))
    {
        signo = number;
        cb = [](uloop_signal *s) { static_cast<signal_watch *>(s)->run(); };
    }
    ~signal_watch() { uloop_signal_delete(this); }
    signal_watch(const signal_watch &) = delete;
    signal_watch &operator=(const signal_watch &) = delete;

    std::function<void()> run;
};

} // namespace

TEST_F(uloop_dispositions, defaults_are_taken_over_and_given_back_except_sigpipe)
{
    ASSERT_EQ(uloop_init(), 0);
    for (int signo : {SIGINT, SIGTERM, SIGCHLD}) {
        struct sigaction action;
        sigaction(signo, nullptr, &action);
        EXPECT_NE(action.sa_handler, SIG_DFL);
        EXPECT_NE(action.sa_handler, SIG_IGN);
        EXPECT_EQ(action.sa_flags & (SA_RESTART | SA_SIGINFO | SA_NODEFER), 0);
    }
    EXPECT_EQ(disposition(SIGPIPE), SIG_IGN);
    uloop_done();
    for (int signo : {SIGINT, SIGTERM, SIGCHLD})
        EXPECT_EQ(disposition(signo), SIG_DFL);
    EXPECT_EQ(disposition(SIGPIPE), SIG_IGN);
}

TEST_F(uloop_dispositions, what_is_not_at_its_default_is_left_alone)
{
    signal(SIGINT, SIG_IGN);
    signal(SIGTERM, own_handler);
    signal(SIGCHLD, own_handler);
    signal(SIGPIPE, own_handler);
    ASSERT_EQ(uloop_init(), 0);
    uloop_done();
    EXPECT_EQ(disposition(SIGINT), SIG_IGN);
    EXPECT_EQ(disposition(SIGTERM), own_handler);
    EXPECT_EQ(disposition(SIGCHLD), own_handler);
    EXPECT_EQ(disposition(SIGPIPE), own_handler);
}

TEST_F(uloop_dispositions, handlers_the_application_set_later_survive_done)
{
    ASSERT_EQ(uloop_init(), 0);
    signal(SIGTERM, own_handler);
    uloop_done();
    EXPECT_EQ(disposition(SIGTERM), own_handler);
    EXPECT_EQ(disposition(SIGINT), SIG_DFL);
}

TEST_F(uloop_dispositions, sigchld_is_left_alone_if_switched_off_before_the_start)
{
    uloop_handle_sigchld = false;
    ASSERT_EQ(uloop_init(), 0);
    EXPECT_EQ(disposition(SIGCHLD), SIG_DFL);
}

TEST_F(uloop_dispositions, sigchld_switched_off_later_keeps_its_handler_even_after_done)
{
    ASSERT_EQ(uloop_init(), 0);
    auto handler = disposition(SIGCHLD);
    uloop_handle_sigchld = false;
    uloop_done();
    EXPECT_EQ(disposition(SIGCHLD), handler);
}

TEST_F(uloop_dispositions, a_further_init_takes_a_default_over_again)
{
    ASSERT_EQ(uloop_init(), 0);
    signal(SIGCHLD, SIG_DFL);
    ASSERT_EQ(uloop_init(), 0);
    EXPECT_NE(disposition(SIGCHLD), SIG_DFL);
}

TEST_F(uloop_signals, a_stop_signal_ends_the_run_with_its_number)
{
    for (int signo : {SIGTERM, SIGINT}) {
        timer t([signo] { raise(signo); });
        uloop_timeout_set(&t, 1);
        EXPECT_EQ(run_for(5000), signo);
        EXPECT_TRUE(uloop_cancelled);
        EXPECT_EQ(run_for(1), 0);
    }
}

TEST_F(uloop_signals, a_stop_signal_before_the_run_is_forgotten)
{
    raise(SIGTERM);
    bool ran = false;
    timer t([&] { ran = true; });
    uloop_timeout_set(&t, 2);
    EXPECT_EQ(run_for(4), 0);
    EXPECT_TRUE(ran);
}

TEST_F(uloop_signals, a_stop_signal_wakes_the_loop_from_any_thread)
{
    auto start = clock_now();
    std::thread other;
    timer running([&] {
        other = std::thread([] {
            usleep(5000);
            raise(SIGTERM);
        });
    });
    uloop_timeout_set(&running, 0); // the loop's handler stands by then, however slow the machine
    EXPECT_EQ(run_for(20000), SIGTERM);
    other.join();
    EXPECT_LT(ms_since(start), 10000);
}

TEST_F(uloop_signals, a_handler_keeps_errno_even_when_the_wake_pipe_is_full)
{
    constexpr int PIPE_BYTES = 65536;
    for (int i = 0; i <= PIPE_BYTES; i++) {
        errno = ENOTEMPTY;
        raise(SIGTERM);
    }
    EXPECT_EQ(errno, ENOTEMPTY);
    timer t([] { raise(SIGTERM); });
    uloop_timeout_set(&t, 0);
    EXPECT_EQ(run_for(5000), SIGTERM);
}

TEST_F(uloop_signals, an_application_handler_does_not_end_the_run)
{
    signal(SIGTERM, own_handler);
    timer t([] { raise(SIGTERM); });
    uloop_timeout_set(&t, 0);
    EXPECT_EQ(run_for(3), 0);
}

TEST_F(uloop_signals, a_watched_signal_is_only_a_callback)
{
    int calls = 0;
    bool cancelled = true;
    signal_watch w(SIGTERM, [&] {
        calls++;
        cancelled = uloop_cancelled;
    });
    auto built_in = disposition(SIGTERM);
    EXPECT_EQ(uloop_signal_add(&w), 0);
    EXPECT_EQ(uloop_signal_add(&w), -1);
    timer t([] { raise(SIGTERM); });
    uloop_timeout_set(&t, 0);
    EXPECT_EQ(run_for(5), 0);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(cancelled);
    EXPECT_EQ(uloop_signal_delete(&w), 0);
    EXPECT_EQ(uloop_signal_delete(&w), -1);
    EXPECT_EQ(disposition(SIGTERM), built_in);
}

TEST_F(uloop_signals, a_watch_survives_done_and_a_new_start)
{
    int calls = 0;
    signal_watch w(SIGUSR1, [&] { calls++; });
    uloop_signal_add(&w);
    uloop_done();
    EXPECT_TRUE(w.pending);
    ASSERT_EQ(uloop_init(), 0);
    raise(SIGUSR1);
    run_for(3);
    EXPECT_EQ(calls, 1);
}

TEST_F(uloop_signals, two_watches_of_one_signal_are_both_called_and_the_last_gives_it_back)
{
    signal(SIGUSR1, own_handler);
    int calls = 0;
    auto first = std::make_unique<signal_watch>(SIGUSR1, [&] { calls++; });
    signal_watch second(SIGUSR1, [&] { calls++; });
    uloop_signal_add(first.get());
    uloop_signal_add(&second);
    raise(SIGUSR1);
    run_for(2);
    EXPECT_EQ(calls, 2);
    first.reset();
    raise(SIGUSR1);
    run_for(2);
    EXPECT_EQ(calls, 3);
    uloop_signal_delete(&second);
    EXPECT_EQ(disposition(SIGUSR1), own_handler);
}

TEST_F(uloop_signals, a_watch_may_delete_another_one_of_its_signal)
{
    int calls = 0;
    signal_watch first(SIGUSR1), second(SIGUSR1);
    first.run = [&] {
        calls++;
        uloop_signal_delete(&second);
    };
    second.run = [&] {
        calls++;
        uloop_signal_delete(&first);
    };
    uloop_signal_add(&first);
    uloop_signal_add(&second);
    raise(SIGUSR1);
    run_for(2);
    EXPECT_EQ(calls, 1);
}

TEST_F(uloop_signals, a_signal_that_cannot_be_caught_is_refused)
{
    signal_watch kill_watch(SIGKILL), none(0), beyond(NSIG);
    EXPECT_EQ(uloop_signal_add(&kill_watch), -1);
    EXPECT_EQ(uloop_signal_add(&none), -1);
    EXPECT_EQ(uloop_signal_add(&beyond), -1);
    EXPECT_FALSE(kill_watch.pending);
}
