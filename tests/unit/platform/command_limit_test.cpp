// SPDX-License-Identifier: MIT
// Programs that do not end: their time runs fifty times faster here.
#include <csignal>
#include <ctime>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/command.h"
#include "platform/ending.h"
#include "platform/result_codes.h"
#include "platform/tallies.h"
#include "tests/unit/platform/refused_call.h"
#include "tests/unit/support/sandbox.h"

namespace {

constexpr int64_t SPEED = 50;
constexpr int64_t MICROSECONDS = 1'000'000;
constexpr int FEW_LOOKS = 3; // at first, at the end, and one that a signal or a slow machine adds
constexpr int MANY_LOOKS = 20;

int looks;                  // for children that may have ended
bool kernel_holds_children; // nobody is seen to end, and every look for it takes ten minutes
int64_t held_us;

int64_t now_us()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (now.tv_sec * MICROSECONDS + now.tv_nsec / 1000) * SPEED + held_us;
}

} // namespace

extern "C" int waitid(idtype_t type, id_t child, siginfo_t *ended, int options)
{
    if (!kernel_holds_children)
        return static_cast<int>(syscall(SYS_waitid, type, child, ended, options, nullptr));
    held_us += 600 * MICROSECONDS;
    return 0;
}

extern "C" pid_t waitpid(pid_t child, int *status, int options)
{
    looks++;
    if (!kernel_holds_children)
        return static_cast<pid_t>(syscall(SYS_wait4, child, status, options, nullptr));
    held_us += 600 * MICROSECONDS;
    return 0;
}

t_time_stamp get_time_stamp()
{
    // The seconds must fit the stamp however long the machine has been up.
    static const int64_t start = now_us();
    const int64_t us = now_us() - start;
    return {static_cast<int32_t>(us / MICROSECONDS), static_cast<int32_t>(us % MICROSECONDS)};
}

int64_t time_stamp_diff_us(t_time_stamp first, t_time_stamp second)
{
    return (static_cast<int64_t>(first.sec) - second.sec) * MICROSECONDS + (first.usec - second.usec);
}

extern "C" int poll(pollfd *wanted, nfds_t count, int milliseconds)
{
    const int64_t us = milliseconds * int64_t{1000} / SPEED;
    const timespec limit = {static_cast<time_t>(us / MICROSECONDS), static_cast<long>(us % MICROSECONDS * 1000)};
    return ppoll(wanted, count, milliseconds < 0 ? nullptr : &limit, nullptr);
}

void sleep_ms(uint32_t milliseconds)
{
    usleep(static_cast<useconds_t>(milliseconds * 1000 / SPEED));
}

namespace {

class command_limit : public ::testing::Test {
protected:
    void SetUp() override
    {
        // What a killed program leaves behind comes to this process instead of going away unseen.
        ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
        ASSERT_TRUE(init_ending());
        start_ = get_time_stamp();
    }
    void TearDown() override
    {
        release_ending();
        run_command("true"); // what was given up on is collected
        // A killed grandchild may still be on its way here.
        for (int tries = 0; tries < 100 && waitpid(-1, nullptr, WNOHANG) >= 0; tries++)
            usleep(10'000);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
    }
    // How often a child is looked for while it takes its time.
    static int looks_for_a_slow_program()
    {
        looks = 0;
        EXPECT_EQ(run_command("sleep 0.3; exit 3") >> 8, 3);
        return looks;
    }
    int64_t passed_ms() const { return milliseconds_since(start_); }

    t_log_capture log_{6};
    char output_[64] = "before";

private:
    t_time_stamp start_ = {};
};

// holds: tallies
TEST_F(command_limit, a_query_that_hangs_is_killed_after_its_limit_and_said)
{
    const uint32_t before = tallies.commands_out_of_time;
    EXPECT_EQ(capture_command(output_, "sleep 1000; echo never"), OK);
    EXPECT_GE(passed_ms(), QUERY_LIMIT_MS);
    EXPECT_LT(passed_ms(), ACTION_LIMIT_MS);
    EXPECT_STREQ(output_, "");
    EXPECT_TRUE(log_.has("Warning", "capture_command", "sleep 1000; echo never does not end, killed"));
    EXPECT_EQ(tallies.commands_out_of_time, before + 1);
}

TEST_F(command_limit, what_a_query_printed_before_it_hung_counts)
{
    EXPECT_EQ(capture_command(output_, "printf '{}'; sleep 1000"), OK);
    EXPECT_STREQ(output_, "{}");
}

TEST_F(command_limit, a_query_that_closes_its_output_and_hangs_is_killed_as_well)
{
    EXPECT_EQ(capture_command(output_, "echo done; exec >&-; sleep 1000"), OK);
    EXPECT_GE(passed_ms(), QUERY_LIMIT_MS);
    EXPECT_STREQ(output_, "done\n");
    EXPECT_TRUE(log_.has_body("echo done; exec >&-; sleep 1000 does not end, killed"));
}

TEST_F(command_limit, a_query_that_writes_for_ever_without_filling_the_buffer_is_killed)
{
    EXPECT_EQ(capture_command(output_, "while :; do sleep 0.05; echo; done"), OK);
    EXPECT_GE(passed_ms(), QUERY_LIMIT_MS);
    EXPECT_EQ(output_[0], '\n');
}

TEST_F(command_limit, a_process_that_keeps_the_output_open_is_killed_with_its_starter)
{
    EXPECT_EQ(capture_command(output_, "sleep 1000 & echo started"), OK);
    EXPECT_GE(passed_ms(), QUERY_LIMIT_MS);
    EXPECT_STREQ(output_, "started\n");
}

TEST_F(command_limit, a_query_that_refuses_to_be_asked_to_end_is_killed)
{
    EXPECT_EQ(capture_command(output_, "trap '' TERM INT HUP; sleep 1000; sleep 1000"), OK);
    EXPECT_LT(passed_ms(), ACTION_LIMIT_MS);
}

// holds: tallies
TEST_F(command_limit, an_action_that_hangs_is_killed_after_its_limit_and_said)
{
    const uint32_t before = tallies.commands_out_of_time;
    const int status = run_command("sleep 1000; exit 0");
    EXPECT_GE(passed_ms(), ACTION_LIMIT_MS);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
    EXPECT_TRUE(log_.has("Warning", "run_command", "sleep 1000; exit 0 does not end, killed"));
    EXPECT_EQ(tallies.commands_out_of_time, before + 1);
}

TEST_F(command_limit, an_action_has_more_time_than_a_query)
{
    EXPECT_EQ(run_command("sleep 0.4"), 0);
    EXPECT_GT(passed_ms(), QUERY_LIMIT_MS);
    EXPECT_EQ(log_.text(), "");
}

// holds: programs-end
TEST_F(command_limit, the_end_of_a_program_is_waited_for_and_not_looked_for)
{
    EXPECT_LE(looks_for_a_slow_program(), FEW_LOOKS);
}

// A kernel that has no descriptor for a program: looked at in a process of its own, for there is no way back.
// holds: programs-end
TEST_F(command_limit, without_a_descriptor_of_the_kernel_the_end_of_a_program_is_looked_for)
{
    const pid_t process = fork();
    if (process == 0) {
        const bool refused =
            refuse_call(SYS_pidfd_open) && syscall(SYS_pidfd_open, getpid(), 0) == -1 && errno == ENOSYS;
        const bool looked = looks_for_a_slow_program() > MANY_LOOKS;
        const t_time_stamp start = get_time_stamp();
        const bool ended_at_limit =
            WTERMSIG(run_command("sleep 1000")) == SIGTERM && milliseconds_since(start) >= ACTION_LIMIT_MS;
        ask_for_end();
        const t_time_stamp end = get_time_stamp();
        run_command("trap '' TERM; sleep 1000 & wait; wait");
        const bool ended_in_time = milliseconds_since(end) < ACTION_LIMIT_MS / 2;
        _exit(refused << 0 | looked << 1 | ended_at_limit << 2 | ended_in_time << 3);
    }
    int status = -1;
    waitpid(process, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0b1111) << "refused, looked for, ended at its limit, ended with the process";
}

TEST_F(command_limit, an_action_that_stops_itself_is_killed)
{
    const int status = run_command("kill -STOP $$");
    // At this speed the kernel may take longer than one waits for it.
    EXPECT_TRUE(status == -1 || (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)) << status;
}

TEST_F(command_limit, what_does_not_even_die_in_time_is_collected_with_the_next_program)
{
    kernel_holds_children = true;
    EXPECT_EQ(run_command("exec sleep 1000"), -1);
    kernel_holds_children = false;
    usleep(100'000);
    EXPECT_EQ(run_command("exit 3") >> 8, 3);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(command_limit, programs_that_pile_up_dead_or_alive_let_no_other_start)
{
    kernel_holds_children = true;
    for (int i = 0; i < 8; i++)
        EXPECT_EQ(run_command("sleep 1000"), -1);
    EXPECT_EQ(run_command("echo one too many >/tmp/piled_up"), -1);
    EXPECT_EQ(capture_command(output_, "echo x"), -1);
    EXPECT_TRUE(log_.text().find("popen faild. (11, ") != std::string::npos);
    EXPECT_FALSE(file_exists("/tmp/piled_up"));
    kernel_holds_children = false;
    EXPECT_EQ(run_command("exit 3") >> 8, 3);
}

TEST_F(command_limit, an_action_whose_time_is_over_may_tidy_up)
{
    // Ten real milliseconds are half a second of its grace.
    const int status = run_command("trap 'echo tidy >/tmp/tidied; exit 7' TERM; sleep 1000 & wait");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
    EXPECT_EQ(read_file("/tmp/tidied"), "tidy\n");
}

TEST_F(command_limit, what_ignores_the_request_is_killed_although_its_starter_obeyed)
{
    run_command("(trap '' TERM; echo $$ >/tmp/stubborn; while :; do sleep 0.01; done) & sleep 1000");
    EXPECT_TRUE(file_exists("/tmp/stubborn"));
}

TEST_F(command_limit, what_an_action_leaves_in_the_background_stays)
{
    EXPECT_EQ(run_command("sleep 1000 & echo $! > /tmp/left_behind"), 0);
    const pid_t left = std::stoi(read_file("/tmp/left_behind"));
    EXPECT_EQ(kill(left, 0), 0);
    EXPECT_EQ(kill(left, SIGKILL), 0);
}

TEST_F(command_limit, the_end_of_the_process_shortens_a_running_action)
{
    std::thread end([] {
        usleep(50'000);
        ask_for_end();
    });
    run_command("sleep 1000");
    end.join();
    EXPECT_GE(passed_ms(), ENDING_LIMIT_MS);
    EXPECT_LT(passed_ms(), ACTION_LIMIT_MS / 2);
}

TEST_F(command_limit, the_end_of_the_process_shortens_a_running_query)
{
    ask_for_end();
    capture_command(output_, "sleep 1000");
    EXPECT_GE(passed_ms(), ENDING_LIMIT_MS);
    EXPECT_LT(passed_ms(), QUERY_LIMIT_MS);
}

TEST_F(command_limit, commands_share_the_time_that_is_left_when_the_process_ends)
{
    ask_for_end();
    run_command("sleep 1000");
    const int64_t first_ms = passed_ms();
    EXPECT_EQ(run_command("echo late >/tmp/late"), -1);
    EXPECT_EQ(capture_command(output_, "echo late"), -1);
    EXPECT_STREQ(output_, "before");
    EXPECT_FALSE(file_exists("/tmp/late"));
    EXPECT_LT(passed_ms() - first_ms, ENDING_LIMIT_MS / 2);
}

TEST_F(command_limit, the_time_that_is_left_begins_anew_when_the_end_was_called_off)
{
    ask_for_end();
    run_command("sleep 1000");
    release_ending();
    EXPECT_EQ(run_command("exit 3") >> 8, 3);
    ask_for_end();
    EXPECT_EQ(run_command("exit 4") >> 8, 4);
}

TEST_F(command_limit, a_program_that_ends_in_time_ends_in_time_while_the_process_ends)
{
    ask_for_end();
    EXPECT_EQ(run_command("exit 0"), 0);
    EXPECT_EQ(capture_command(output_, "echo x"), OK);
    EXPECT_STREQ(output_, "x\n");
    EXPECT_EQ(log_.text(), "");
}

} // namespace
