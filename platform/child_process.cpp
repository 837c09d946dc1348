// SPDX-License-Identifier: MIT
#include "platform/child_process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <pthread.h>
#include <sys/wait.h>

#include "platform/guards.h"
#include "platform/spawn.h"

namespace {

constexpr int64_t FIRST_PAUSE_MS = 1; // between two looks at a child, doubled each time
constexpr int64_t LONGEST_PAUSE_MS = 20;
constexpr size_t MOST_ABANDONED = 8;
constexpr pid_t NO_CHILD = 0;

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
    return collect_abandoned() ? spawn_shell(command, output, child) : EAGAIN;
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
