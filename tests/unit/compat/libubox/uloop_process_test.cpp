// SPDX-License-Identifier: MIT
// Children: those the loop watches, and those it collects from under other code.
#include "uloop_fixture.h"

#include <cstdio>
#include <memory>
#include <sys/wait.h>

namespace {

using uloop_children = loop_test;
using uloop_foreign_children = bare_loop_test;

constexpr int EXIT_CODE = 3;
constexpr int NO_STATUS = -1;

struct process_watch : uloop_process {
    process_watch() : uloop_process{}
    {
        cb = [](uloop_process *p, int wait_status) {
            auto *self = static_cast<process_watch *>(p);
            self->status = wait_status;
            self->was_pending = p->pending;
            uloop_end();
        };
    }
    ~process_watch() { uloop_process_delete(this); }
    process_watch(const process_watch &) = delete;
    process_watch &operator=(const process_watch &) = delete;

    int status = NO_STATUS;
    bool was_pending = true;
};

pid_t start_child(int delay_ms = 0)
{
    pid_t pid = fork();
    if (pid == 0) {
        usleep(static_cast<useconds_t>(delay_ms) * 1000);
        _exit(EXIT_CODE);
    }
    return pid;
}

// Waits until the child is a zombie, without collecting it.
void await_exit(pid_t pid)
{
    siginfo_t info;
    while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR)
        ;
}

} // namespace

TEST_F(uloop_children, a_watched_child_reports_its_raw_wait_status)
{
    process_watch w;
    w.pid = start_child(3);
    EXPECT_EQ(uloop_process_add(&w), 0);
    EXPECT_EQ(uloop_process_add(&w), -1);
    run_for(5000);
    ASSERT_NE(w.status, NO_STATUS);
    EXPECT_TRUE(WIFEXITED(w.status));
    EXPECT_EQ(WEXITSTATUS(w.status), EXIT_CODE);
    EXPECT_FALSE(w.was_pending);
    EXPECT_EQ(uloop_process_delete(&w), -1);
}

TEST_F(uloop_children, one_that_exited_before_the_add_still_reports)
{
    process_watch w;
    w.pid = start_child();
    await_exit(w.pid);
    uloop_process_add(&w);
    run_for(5000);
    EXPECT_NE(w.status, NO_STATUS);
}

TEST_F(uloop_children, one_the_loop_has_collected_never_reports)
{
    process_watch w;
    w.pid = start_child();
    await_exit(w.pid);
    run_for(2);
    EXPECT_EQ(waitpid(w.pid, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    uloop_process_add(&w);
    run_for(2);
    EXPECT_EQ(w.status, NO_STATUS);
    EXPECT_TRUE(w.pending);
}

TEST_F(uloop_children, several_that_exit_together_all_report)
{
    static int reports;
    reports = 0;
    constexpr int COUNT = 5;
    uloop_process watches[COUNT] = {};
    for (uloop_process &w : watches) {
        w.cb = [](uloop_process *, int) {
            if (++reports == COUNT)
                uloop_end();
        };
        w.pid = start_child();
        uloop_process_add(&w);
    }
    for (uloop_process &w : watches)
        await_exit(w.pid);
    run_for(5000);
    EXPECT_EQ(reports, COUNT);
}

TEST_F(uloop_children, a_deleted_watch_does_not_report)
{
    process_watch w;
    w.pid = start_child();
    uloop_process_add(&w);
    EXPECT_EQ(uloop_process_delete(&w), 0);
    await_exit(w.pid);
    run_for(2);
    EXPECT_EQ(w.status, NO_STATUS);
}

TEST_F(uloop_children, commands_run_within_one_callback_keep_their_status)
{
    int system_status = 0;
    int popen_status = 0;
    timer t([&] {
        system_status = system("exit 3");
        FILE *stream = popen("exit 3", "r");
        popen_status = pclose(stream);
        uloop_end();
    });
    uloop_timeout_set(&t, 0);
    uloop_run();
    EXPECT_EQ(WEXITSTATUS(system_status), EXIT_CODE);
    EXPECT_EQ(WEXITSTATUS(popen_status), EXIT_CODE);
}

TEST_F(uloop_children, a_command_that_ends_between_two_callbacks_loses_its_status)
{
    FILE *stream = nullptr;
    int status = 0;
    int reason = 0;
    timer second([&] {
        status = pclose(stream);
        reason = errno;
        uloop_end();
    });
    timer first([&] {
        stream = popen("exit 3", "r");
        // It has ended, and nobody has collected it yet.
        siginfo_t ended = {};
        EXPECT_EQ(waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
        uloop_timeout_set(&second, 50);
    });
    uloop_timeout_set(&first, 0);
    uloop_run();
    EXPECT_EQ(status, -1);
    EXPECT_EQ(reason, ECHILD);
}

TEST_F(uloop_foreign_children, keep_their_status_if_handling_is_off_before_the_start)
{
    uloop_handle_sigchld = false;
    ASSERT_EQ(uloop_init(), 0);
    pid_t pid = start_child();
    await_exit(pid);
    run_for(2);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, WNOHANG), pid);
    EXPECT_EQ(WEXITSTATUS(status), EXIT_CODE);
}

TEST_F(uloop_foreign_children, are_still_collected_if_handling_is_switched_off_later)
{
    ASSERT_EQ(uloop_init(), 0);
    uloop_handle_sigchld = false;
    pid_t pid = start_child();
    await_exit(pid);
    run_for(2);
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), -1);
    uloop_handle_sigchld = true;
}

TEST_F(uloop_foreign_children, keep_their_status_under_a_handler_of_the_application)
{
    signal(SIGCHLD, [](int) {});
    ASSERT_EQ(uloop_init(), 0);
    pid_t pid = start_child();
    await_exit(pid);
    run_for(2);
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), pid);
}
