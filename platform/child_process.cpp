// SPDX-License-Identifier: MIT
#include "platform/child_process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <poll.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ending.h"
#include "platform/guards.h"
#include "platform/spawn.h"

constexpr uint32_t FIRST_PAUSE_MS = 1; // between two looks at a child, doubled each time
constexpr uint32_t LONGEST_PAUSE_MS = 20;
constexpr size_t MOST_ABANDONED = 8;
constexpr pid_t NO_CHILD = 0;

static pthread_mutex_t abandoned_lock = PTHREAD_MUTEX_INITIALIZER;
static pid_t abandoned[MOST_ABANDONED]; // killed, but held by the kernel when last looked at

// False when there is no room to abandon another one.
static bool collect_abandoned()
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

static void abandon(pid_t child)
{
    t_mutex_guard guard(abandoned_lock);
    pid_t *slot = std::find(abandoned, abandoned + MOST_ABANDONED, NO_CHILD);
    if (slot != abandoned + MOST_ABANDONED)
        *slot = child;
}

// A descriptor that can be read once the child has ended; negative where the kernel has none to give.
static int open_end_of(pid_t child)
{
#ifdef SYS_pidfd_open
    return static_cast<int>(syscall(SYS_pidfd_open, child, 0));
#else
    static_cast<void>(child);
    return -1;
#endif
}

namespace {

// The rest between two looks at a child.
class t_rest {
public:
    // The first one lasts until the child has ended. Where it does not, because there is no descriptor for it or
    // because a debugger is told first, pauses follow.
    void take(pid_t child, const t_time_limit &limit)
    {
        if (pause_ms_ == 0) {
            pause_ms_ = FIRST_PAUSE_MS;
            const t_fd_guard end(open_end_of(child));
            if (end.fd >= 0)
                readable_within(end.fd, limit);
            return;
        }
        sleep_ms(pause_ms_);
        pause_ms_ = std::min(2 * pause_ms_, LONGEST_PAUSE_MS);
    }

private:
    uint32_t pause_ms_ = 0;
};

} // namespace

// True once the child has ended or is lost, and is not collected.
static bool ends_within(pid_t child, int64_t milliseconds)
{
    const t_time_limit limit(milliseconds, t_at_end::kept);
    for (t_rest rest;; rest.take(child, limit)) {
        siginfo_t ended = {};
        if (waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT | WNOHANG) != 0 || ended.si_pid == child)
            return true;
        if (limit.over())
            return false;
    }
}

int64_t t_time_limit::left_ms() const
{
    int64_t left_ms = limit_ms_ - milliseconds_since(start_);
    if (at_end_ == t_at_end::shortened && end_is_asked_for())
        left_ms = std::min(left_ms, ENDING_LIMIT_MS - end_is_seen_for_ms());
    return std::max<int64_t>(left_ms, 0);
}

bool readable_within(int fd, const t_time_limit &limit)
{
    while (const int64_t left_ms = limit.left_ms()) {
        pollfd wanted[] = {{fd, POLLIN, 0}, {end_is_asked_for() ? -1 : ending_fd(), POLLIN, 0}};
        const int ready = poll(wanted, std::size(wanted), static_cast<int>(left_ms));
        if (ready > 0 && wanted[0].revents != 0)
            return true;
        if (ready < 0 && errno != EINTR)
            sleep_ms(LONGEST_PAUSE_MS); // it would fail again at once
    }
    return false;
}

int start_command(const char *command, int output, pid_t *child)
{
    return collect_abandoned() ? spawn_command(command, output, child) : EAGAIN;
}

// Not with a blocking wait, which knows no limit.
t_wait wait_for_child(pid_t child, const t_time_limit &limit, int *status)
{
    for (t_rest rest;; rest.take(child, limit)) {
        const pid_t got = waitpid(child, status, WNOHANG);
        if (got == child)
            return t_wait::ended;
        if (got == -1 && errno != EINTR)
            return t_wait::lost;
        if (limit.over())
            return t_wait::over;
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
