// SPDX-License-Identifier: MIT
// Running programs and capturing what they print.
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/command.h"
#include "platform/guards.h"
#include "platform/result_codes.h"
#include "platform/spawn.h"
#include "tests/unit/platform/refused_call.h"
#include "tests/unit/support/sandbox.h"

namespace {

// 64 bit mask of a line such as "SigBlk:\t0000000000000000" in a program's status.
bool has_signal(const std::string &status, const std::string &field, int signal)
{
    size_t at = status.find(field + ":");
    if (at == std::string::npos)
        ADD_FAILURE() << "no " << field << " in " << status;
    unsigned long long mask = std::stoull(status.substr(at + field.size() + 1), nullptr, 16);
    return mask & (1ULL << (signal - 1));
}

// Interrupts this process every few milliseconds, with a handler that does not restart system calls.
class t_signal_rain {
public:
    t_signal_rain()
    {
        struct sigaction interrupt = {};
        interrupt.sa_handler = [](int) {};
        sigaction(SIGALRM, &interrupt, &before_);
        itimerval often = {{0, 2000}, {0, 2000}};
        setitimer(ITIMER_REAL, &often, nullptr);
    }
    ~t_signal_rain()
    {
        itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &before_, nullptr);
    }

private:
    struct sigaction before_ = {};
};

// Puts something in the shell's place that prints the signal masks it was started with: real shells may change theirs.
class t_shell_of_masks {
public:
    t_shell_of_masks()
    {
        write_program("/tmp/shell_of_masks", "#!/usr/bin/env -S sed -n /^Sig/p -- /proc/self/status\n");
        mounted_ = mount("/tmp/shell_of_masks", "/bin/sh", nullptr, MS_BIND, nullptr) == 0;
        EXPECT_TRUE(mounted_);
    }
    ~t_shell_of_masks()
    {
        if (mounted_)
            umount2("/bin/sh", MNT_DETACH);
    }

private:
    bool mounted_;
};

// While it lives, there is no room for another descriptor.
class t_full_table {
public:
    t_full_table()
    {
        getrlimit(RLIMIT_NOFILE, &limit_);
        const rlimit small = {100, limit_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &small);
        for (int fd = dup(STDERR_FILENO); fd >= 0; fd = dup(STDERR_FILENO))
            fillers_.push_back(fd);
    }
    ~t_full_table()
    {
        for (int fd : fillers_)
            close(fd);
        setrlimit(RLIMIT_NOFILE, &limit_);
    }

private:
    rlimit limit_ = {};
    std::vector<int> fillers_;
};

constexpr int NO_FILTER = 99;

// What somebody sees of a command from outside: its status, and what it said.
struct t_outcome {
    int status;
    std::string said;
    bool operator==(const t_outcome &) const = default;
};

t_outcome outcome(const std::string &command)
{
    t_log_capture log;
    t_joined_errors joined;
    const int status = run_command(command.c_str());
    return {status, log.text()};
}

// The same command; the space at its end is nothing to the shell, but only the shell knows that.
std::string through_the_shell(const std::string &command)
{
    return command + " ";
}

// While it lives, no program can go through the shell.
class t_no_shell {
public:
    t_no_shell() { EXPECT_EQ(mount("/dev/null", "/bin/sh", nullptr, MS_BIND, nullptr), 0); }
    ~t_no_shell() { umount2("/bin/sh", MNT_DETACH); }
};

} // namespace

// holds: command-codes
TEST(capture_command, keeps_what_the_program_prints)
{
    char output[64];
    EXPECT_EQ(capture_command(output, "printf 'one\\ntwo\\n'"), OK);
    EXPECT_STREQ(output, "one\ntwo\n");
}

TEST(capture_command, passes_its_text_through_the_shell)
{
    char output[64];
    EXPECT_EQ(capture_command(output, "x=5; echo $((x + 2)) | tr 7 8"), OK);
    EXPECT_STREQ(output, "8\n");
}

TEST(capture_command, keeps_the_first_part_of_a_long_output_and_terminates_it)
{
    char output[17];
    memset(output, 'x', sizeof output);
    EXPECT_EQ(capture_command(std::span(output).first(16), "printf 0123456789abcdefghij"), OK);
    EXPECT_STREQ(output, "0123456789abcde");
    EXPECT_EQ(output[16], 'x');
}

TEST(capture_command, collects_an_output_that_comes_in_pieces)
{
    char output[64];
    EXPECT_EQ(capture_command(output, "printf a; sleep 0.05; printf b; sleep 0.05; printf c"), OK);
    EXPECT_STREQ(output, "abc");
}

TEST(capture_command, of_a_silent_program_is_empty)
{
    char output[8] = "before";
    EXPECT_EQ(capture_command(output, "true"), OK);
    EXPECT_STREQ(output, "");
}

// holds: command-codes
TEST(capture_command, does_not_look_at_the_exit_status)
{
    char output[8];
    EXPECT_EQ(capture_command(output, "echo ok; exit 3"), OK);
    EXPECT_STREQ(output, "ok\n");
}

TEST(capture_command, of_a_missing_program_is_an_empty_output)
{
    char output[8] = "before";
    EXPECT_EQ(capture_command(output, "/no/such/program 2>/dev/null"), OK);
    EXPECT_STREQ(output, "");
}

TEST(capture_command, with_room_for_the_terminator_only_keeps_nothing)
{
    char output[2] = {'x', 'x'};
    EXPECT_EQ(capture_command(std::span(output).first(1), "echo text"), OK);
    EXPECT_EQ(output[0], '\0');
    EXPECT_EQ(output[1], 'x');
}

TEST(capture_command, does_not_hang_on_a_program_that_never_stops_writing)
{
    char output[512];
    EXPECT_EQ(capture_command(output, "exec yes"), OK);
    EXPECT_EQ(strlen(output), sizeof output - 1);
}

TEST(capture_command, is_not_cut_short_by_signals)
{
    char output[64];
    t_signal_rain rain;
    EXPECT_EQ(capture_command(output, "sleep 0.05; printf a; sleep 0.05; printf b"), OK);
    EXPECT_STREQ(output, "ab");
}

TEST(capture_command, leaves_no_descriptor_and_no_child_behind)
{
    char output[64];
    int before = dup(0);
    close(before);
    for (int i = 0; i < 10; i++)
        capture_command(output, "echo x");
    int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

// holds: programs-descriptors
TEST(capture_command, hands_no_descriptor_on_but_the_standard_ones)
{
    constexpr int OTHER_THREADS_FILE = 41;
    ASSERT_EQ(dup2(STDIN_FILENO, OTHER_THREADS_FILE), OTHER_THREADS_FILE);
    char output[64];
    EXPECT_EQ(capture_command(output, "for fd in 0 1 2 41; do [ -e /proc/self/fd/$fd ] && printf '%d ' $fd; done"), OK);
    EXPECT_STREQ(output, "0 1 2 ");
    EXPECT_EQ(run_command("[ ! -e /proc/self/fd/41 ]"), 0);
    close(OTHER_THREADS_FILE);
}

// holds: programs-input
TEST(capture_command, gives_programs_nothing_to_read_and_no_terminal_that_could_stop_them)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const t_fd_guard write_end(ends[1]);
    ASSERT_EQ(write(write_end.fd, "typed", 5), 5);
    const t_fd_guard saved(dup(STDIN_FILENO));
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    char output[64];
    EXPECT_EQ(capture_command(output, "readlink /proc/self/fd/0; cat"), OK);
    EXPECT_EQ(run_command("[ -z \"$(cat)\" ]"), 0);
    dup2(saved.fd, STDIN_FILENO);
    EXPECT_STREQ(output, "/dev/null\n");
}

// holds: programs-input
TEST(capture_command, starts_programs_where_there_is_no_null_device)
{
    ASSERT_EQ(mount("tmpfs", "/dev", "tmpfs", 0, nullptr), 0);
    char output[64];
    EXPECT_EQ(capture_command(output, "echo started"), OK);
    umount2("/dev", MNT_DETACH);
    EXPECT_STREQ(output, "started\n");
}

// holds: programs-descriptors, programs-end
TEST(run_command, needs_no_descriptor)
{
    const t_full_table full;
    const int status = run_command("exit 3");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

// holds: programs-signals
TEST(run_command, leaves_the_signals_of_its_caller_as_they_are)
{
    sigset_t before, after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    struct sigaction handler = {}, now = {};
    handler.sa_handler = [](int) {};
    sigaction(SIGTERM, &handler, &now);
    const struct sigaction former = now;
    EXPECT_EQ(run_command("exit 0"), 0);
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    sigaction(SIGTERM, &former, &now);
    EXPECT_EQ(now.sa_handler, handler.sa_handler);
    for (int signal = 1; signal < NSIG; signal++)
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
}

// holds: programs-signals
TEST(run_command, leaves_ignored_signals_ignored)
{
    t_shell_of_masks shell;
    sighandler_t before = signal(SIGHUP, SIG_IGN);
    char output[256];
    capture_command(output, "");
    signal(SIGHUP, before);
    EXPECT_TRUE(has_signal(output, "SigIgn", SIGHUP)) << output;
}

// A kernel or a sandbox that does not know the call: looked at in a process of its own, for there is no way back.
// holds: programs-descriptors
TEST(run_command, closes_foreign_descriptors_without_the_kernels_own_call_for_it)
{
    const pid_t process = fork();
    if (process == 0) {
        if (!refuse_call(SYS_close_range) || close_range(1000, 1000, 0) != -1)
            _exit(NO_FILTER);
        for (int fd : {40, 41, 62, 63, 64, 500, 900})
            dup2(STDERR_FILENO, fd);
        const int status = run_command("exec ls /proc/self/fd >/tmp/descriptors");
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : NO_FILTER);
    }
    int status = -1;
    waitpid(process, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(read_file("/tmp/descriptors"), "0\n1\n2\n3\n"); // the last one is the folder that is read
}

// holds: programs-descriptors
TEST(run_command, closes_foreign_descriptors_when_the_table_is_full)
{
    const pid_t process = fork();
    if (process == 0) {
        if (!refuse_call(SYS_close_range))
            _exit(NO_FILTER);
        const t_full_table full;
        const int status = run_command("exec ls /proc/self/fd >/tmp/descriptors");
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : NO_FILTER);
    }
    int status = -1;
    waitpid(process, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(read_file("/tmp/descriptors"), "0\n1\n2\n3\n");
}

// holds: command-codes
TEST(capture_command, that_cannot_be_started_says_so_whatever_the_log_level)
{
    t_log_capture log(0);
    rlimit limit = {}, none = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    none.rlim_max = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &none);
    char output[8] = "before";
    int result = capture_command(output, "echo x");
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(log.text(), "popen faild. (24, Too many open files)\n");
    EXPECT_STREQ(output, "before");
}

TEST(capture_command, without_a_shell_says_so_and_leaves_nothing_behind)
{
    t_log_capture log(0);
    int before = dup(0);
    close(before);
    ASSERT_EQ(mount("/dev/null", "/bin/sh", nullptr, MS_BIND, nullptr), 0);
    char output[8] = "before";
    int captured = capture_command(output, "echo x");
    int run = run_command("exit 0");
    umount2("/bin/sh", MNT_DETACH);
    int after = dup(0);
    close(after);
    EXPECT_EQ(captured, -1);
    EXPECT_EQ(run, -1);
    EXPECT_EQ(log.text(), "popen faild. (13, Permission denied)\n");
    EXPECT_STREQ(output, "before");
    EXPECT_EQ(after, before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(capture_command, starts_programs_that_can_be_stopped_from_threads_that_cannot)
{
    t_shell_of_masks shell;
    std::string status;
    std::thread([&status] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        char output[256];
        capture_command(output, "");
        status = output;
    }).join();
    EXPECT_FALSE(has_signal(status, "SigBlk", SIGTERM)) << status;
}

TEST(capture_command, starts_programs_that_die_of_a_broken_pipe_as_usual)
{
    t_shell_of_masks shell;
    sighandler_t before = signal(SIGPIPE, SIG_IGN);
    char output[256];
    capture_command(output, "");
    signal(SIGPIPE, before);
    EXPECT_FALSE(has_signal(output, "SigIgn", SIGPIPE)) << output;
}

TEST(run_command, tells_the_exit_status)
{
    int status = run_command("exit 3");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_EQ(run_command("true"), 0);
}

TEST(run_command, tells_the_signal_that_ended_the_program)
{
    int status = run_command("kill -KILL $$");
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

TEST(run_command, of_a_missing_program_exits_with_127)
{
    int status = run_command("/no/such/program 2>/dev/null");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 127);
}

TEST(run_command, waits_although_signals_arrive)
{
    t_signal_rain rain;
    int status = run_command("sleep 0.1; exit 4");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 4);
}

// holds: programs-end
TEST(run_command, fails_when_somebody_else_collects_the_children)
{
    sighandler_t before = signal(SIGCHLD, SIG_IGN);
    int status = run_command("exit 0");
    int later = run_command("sleep 0.1");
    signal(SIGCHLD, before);
    EXPECT_EQ(status, -1);
    EXPECT_EQ(later, -1);
}

// holds: programs-no-shell
TEST(run_command, starts_a_program_by_its_path_without_a_shell)
{
    const t_no_shell none;
    EXPECT_EQ(run_command("/bin/true"), 0);
    EXPECT_EQ(run_command("/usr/bin/test -d /dev"), 0);
    const int status = run_command("/usr/bin/test -d /no_such-folder_0/a.b");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    char output[64];
    EXPECT_EQ(capture_command(output, "/bin/echo one two"), OK);
    EXPECT_STREQ(output, "one two\n");
}

// holds: programs-no-shell
TEST(run_command, leaves_to_the_shell_what_a_shell_might_read_otherwise)
{
    const std::string long_word(200, 'x');
    for (const std::string command : {"true",
                                      "bin/true",
                                      "",
                                      " /bin/true",
                                      "/bin/true ",
                                      "/bin/true  x",
                                      "/bin/true\tx",
                                      "/bin/true\n",
                                      "/bin/true;",
                                      "/bin/true&",
                                      "/bin/true|",
                                      "/bin/true >x",
                                      "/bin/true <x",
                                      "/bin/true $x",
                                      "/bin/true `x`",
                                      "/bin/true (",
                                      "/bin/true )",
                                      "/bin/true *",
                                      "/bin/true ?",
                                      "/bin/true [x]",
                                      "/bin/true {x}",
                                      "/bin/true !x",
                                      "/bin/true ~",
                                      "/bin/true #",
                                      "/bin/true 'x'",
                                      "/bin/true \"x\"",
                                      "/bin/true \\x",
                                      "/bin/tru?",
                                      "/bin/x=true",
                                      "/bin/true %x",
                                      "/bin/true ^x",
                                      "/bin/true \x7f",
                                      "/bin/true \xc3\xa4",
                                      "/bin/true 1 2 3 4 5 6 7 8",
                                      "/bin/true @LONG"}) {
        std::string whole = command;
        if (const size_t at = whole.find("@LONG"); at != std::string::npos)
            whole.replace(at, 5, long_word);
        const t_no_shell none;
        EXPECT_EQ(run_command(whole.c_str()), -1) << whole;
    }
}

// holds: programs-no-shell
TEST(run_command, ends_as_with_the_shell_when_a_program_cannot_be_started)
{
    write_file("/tmp/not_executable", "#!/bin/sh\n");
    write_program("/tmp/without_its_interpreter", "#!/no/such/interpreter\n");
    write_program("/tmp/killed", "#!/bin/sh\nkill -KILL $$\n");
    for (const std::string command : {"/no/such/program", "/no/such/program with words", "/tmp/not_executable", "/tmp",
                                      "/tmp/without_its_interpreter"})
        EXPECT_EQ(outcome(command), outcome(through_the_shell(command))) << command;
    EXPECT_EQ(outcome("/tmp/killed"), outcome("exec /tmp/killed"));
    EXPECT_EQ(WEXITSTATUS(run_command("/no/such/program")), 127);
    EXPECT_EQ(WEXITSTATUS(run_command("/tmp/not_executable")), 126);
}

// holds: programs-no-shell
TEST(capture_command, of_a_script_without_an_interpreter_is_what_the_shell_makes_of_it)
{
    write_program("/tmp/no_interpreter", "echo $0 $1 $#; exit 5\n");
    char output[64];
    EXPECT_EQ(capture_command(output, "/tmp/no_interpreter word"), OK);
    EXPECT_STREQ(output, "/tmp/no_interpreter word 1\n");
    EXPECT_EQ(WEXITSTATUS(run_command("/tmp/no_interpreter")), 5);
}

// holds: programs-no-shell
TEST(capture_command, gives_a_program_the_same_surroundings_with_a_shell_and_without)
{
    // Of /proc/PID/stat the fifth field is the process group.
    write_program("/tmp/surroundings", "#!/bin/sh\n"
                                       "echo $0 $1 $HANDED_ON $(umask) $(readlink /proc/$$/fd/0) $(ls /proc/self/fd)\n"
                                       "set -- $(cat /proc/$$/stat); [ $$ = $5 ] && echo a group of its own\n"
                                       "grep '^Sig[^Q]' /proc/self/status; pwd\n");
    setenv("HANDED_ON", "handed on", 1);
    const mode_t before = umask(027);
    const sighandler_t hangup = signal(SIGHUP, SIG_IGN), pipe = signal(SIGPIPE, SIG_IGN);
    char direct[512], by_shell[512];
    EXPECT_EQ(capture_command(direct, "/tmp/surroundings word"), OK);
    EXPECT_EQ(capture_command(by_shell, "exec /tmp/surroundings word"), OK);
    signal(SIGHUP, hangup);
    signal(SIGPIPE, pipe);
    umask(before);
    unsetenv("HANDED_ON");
    EXPECT_STREQ(direct, by_shell);
    EXPECT_NE(std::string(direct).find("/tmp/surroundings word handed on 0027 /dev/null 0 1 2 3"), std::string::npos)
        << direct;
    EXPECT_NE(std::string(direct).find("a group of its own"), std::string::npos) << direct;
}

TEST(run_command, shares_the_standard_output)
{
    t_log_capture log;
    run_command("echo said by the program");
    EXPECT_EQ(log.text(), "said by the program\n");
}

// holds: output-already-standard
TEST(spawn, output_that_is_the_standard_one_already_reaches_the_shell)
{
    int pipe_ends[2];
    ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
    const t_fd_guard reading(pipe_ends[0]), saved(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
    ASSERT_EQ(dup3(pipe_ends[1], STDOUT_FILENO, O_CLOEXEC), STDOUT_FILENO);
    close(pipe_ends[1]);
    pid_t child = -1;
    const int error = spawn_command("echo here", STDOUT_FILENO, &child);
    const int flags = fcntl(STDOUT_FILENO, F_GETFD);
    dup2(saved.fd, STDOUT_FILENO);
    ASSERT_EQ(error, 0);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(flags, FD_CLOEXEC) << "in the daemon it stays as it is";
    char text[16] = "";
    EXPECT_EQ(read(reading.fd, text, sizeof text - 1), 5);
    EXPECT_STREQ(text, "here\n");
}
