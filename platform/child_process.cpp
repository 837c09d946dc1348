// SPDX-License-Identifier: MIT
#include "platform/child_process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <pthread.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/command.h"
#include "platform/guards.h"

// Not every C library has one call for it.
#ifdef __GLIBC__
#if __GLIBC_PREREQ(2, 34)
#define CLOSES_FROM
#endif
#endif

namespace {

constexpr const char *SHELL = "/bin/sh";
constexpr int64_t FIRST_PAUSE_MS = 1; // between two looks at a child, doubled each time
constexpr int64_t LONGEST_PAUSE_MS = 20;
constexpr size_t MOST_ABANDONED = 8;
constexpr pid_t NO_CHILD = 0;
constexpr int FIRST_OWN_FD = STDERR_FILENO + 1;
#ifndef CLOSES_FROM
constexpr int LAST_OWN_FD = 63; // beyond all that the daemon has at a time
#endif

t_shared<uint32_t> ending_seen_ms = {0}; // on the clock below; 0 while nobody has seen it

pthread_mutex_t abandoned_lock = PTHREAD_MUTEX_INITIALIZER;
pid_t abandoned[MOST_ABANDONED]; // killed, but held by the kernel when last looked at

// Wraps around; never 0.
uint32_t clock_ms()
{
    const t_time_stamp now = get_time_stamp();
    const int64_t ms = int64_t{now.sec} * MILLISECONDS_PER_SECOND + now.usec / MICROSECONDS_PER_MILLISECOND;
    return static_cast<uint32_t>(ms) | 1;
}

bool ending_limit_is_over()
{
    const uint32_t now_ms = clock_ms();
    uint32_t seen_ms = 0;
    if (__atomic_compare_exchange_n(&ending_seen_ms.value, &seen_ms, now_ms, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE))
        return false;
    // Another thread's stamp may be younger than our clock's reading.
    return static_cast<int32_t>(now_ms - seen_ms) >= ENDING_LIMIT_MS;
}

// False when there is no room to abandon another one.
bool collect_abandoned()
{
    t_mutex_guard guard(abandoned_lock);
    bool room = false;
    for (pid_t &child : abandoned) {
        if (child != NO_CHILD && waitpid(child, nullptr, WNOHANG) != 0)
            child = NO_CHILD;
        room = room || child == NO_CHILD;
    }
    return room;
}

void abandon(pid_t child)
{
    t_mutex_guard guard(abandoned_lock);
    pid_t *slot = std::find(abandoned, abandoned + MOST_ABANDONED, NO_CHILD);
    if (slot != abandoned + MOST_ABANDONED)
        *slot = child;
}

struct t_spawn_setup {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;

    t_spawn_setup()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~t_spawn_setup()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    t_spawn_setup(const t_spawn_setup &) = delete;
    t_spawn_setup &operator=(const t_spawn_setup &) = delete;
};

// Not all that the libraries open is close-on-exec. A program that inherited a configuration file while another thread
// had it locked would hold that lock, and wait for it itself.
int close_what_another_thread_opened(posix_spawn_file_actions_t *actions)
{
#ifdef CLOSES_FROM
    return posix_spawn_file_actions_addclosefrom_np(actions, FIRST_OWN_FD);
#else
    int error = 0;
    for (int fd = FIRST_OWN_FD; error == 0 && fd <= LAST_OWN_FD; fd++)
        error = posix_spawn_file_actions_addclose(actions, fd);
    return error == EBADF ? 0 : error; // the process may not have that many
#endif
}

// A limit of its own, which the end of the process does not shorten. True once the child has ended or is lost, and is
// not collected.
bool ends_within(pid_t child, int64_t milliseconds)
{
    const t_time_stamp start = get_time_stamp();
    for (int64_t pause_ms = FIRST_PAUSE_MS;; pause_ms = std::min(2 * pause_ms, LONGEST_PAUSE_MS)) {
        siginfo_t ended = {};
        if (waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT | WNOHANG) != 0 || ended.si_pid == child)
            return true;
        if (milliseconds_since(start) >= milliseconds)
            return false;
        sleep_ms(static_cast<uint32_t>(pause_ms));
    }
}

} // namespace

t_time_limit::t_time_limit(int64_t limit_ms) : start_(get_time_stamp()), limit_ms_(limit_ms)
{
    if (!process_is_ending)
        ending_seen_ms = 0;
}

bool t_time_limit::over() const
{
    return milliseconds_since(start_) >= limit_ms_ || (process_is_ending && ending_limit_is_over());
}

int start_shell(const char *command, int output, pid_t *child)
{
    if (!collect_abandoned())
        return EAGAIN;
    t_spawn_setup setup;
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&setup.attributes, &signals);
    sigaddset(&signals, SIGPIPE);
    posix_spawnattr_setsigdefault(&setup.attributes, &signals);
    posix_spawnattr_setpgroup(&setup.attributes, 0);
    posix_spawnattr_setflags(&setup.attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    int error = output < 0 ? 0 : posix_spawn_file_actions_adddup2(&setup.actions, output, STDOUT_FILENO);
    if (error == 0)
        error = close_what_another_thread_opened(&setup.actions);
    if (error != 0)
        return error;
    char name[] = "sh";
    char option[] = "-c";
    char *arguments[] = {name, option, const_cast<char *>(command), nullptr};
    return posix_spawn(child, SHELL, &setup.actions, &setup.attributes, arguments, environ);
}

// Not with a blocking wait, which knows no limit.
t_wait wait_for_child(pid_t child, const t_time_limit &limit, int *status)
{
    for (int64_t pause_ms = FIRST_PAUSE_MS;; pause_ms = std::min(2 * pause_ms, LONGEST_PAUSE_MS)) {
        const pid_t got = waitpid(child, status, WNOHANG);
        if (got == child)
            return t_wait::ended;
        if (got == -1 && errno != EINTR)
            return t_wait::lost;
        if (limit.over())
            return t_wait::over;
        sleep_ms(static_cast<uint32_t>(pause_ms));
    }
}

// The child is collected last: until then nobody else can get the number of its group.
void end_group(pid_t child, int *status)
{
    *status = -1;
    siginfo_t ended = {};
    if (waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT | WNOHANG) != 0)
        return;
    kill(-child, SIGTERM);
    ends_within(child, TERM_GRACE_MS);
    kill(-child, SIGKILL);
    if (!ends_within(child, KILLED_LIMIT_MS))
        abandon(child);
    else if (waitpid(child, status, WNOHANG) != child)
        *status = -1;
}
