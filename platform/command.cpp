// SPDX-License-Identifier: MIT
// Running the router's own programs. They are started with an empty signal mask and the default reaction to a closed
// pipe, whichever thread starts them: a script that inherited a blocked SIGTERM could not be stopped. Each is in a
// process group of its own, and ended together with its group when its time is over.
#include "platform/command.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/ending.h"
#include "platform/guards.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/spawn.h"
#include "platform/tallies.h"

constexpr uint32_t FIRST_PAUSE_MS = 1; // between two looks at a child, doubled each time
constexpr uint32_t LONGEST_PAUSE_MS = 20;
constexpr size_t MOST_ABANDONED = 8;
constexpr pid_t NO_CHILD = 0;

namespace {

enum class t_at_end {
    shortened, // once the end of the process is seen, nothing lasts longer than ENDING_LIMIT_MS from then
    kept,
};

// How long a program may still run.
class t_time_limit {
public:
    explicit t_time_limit(int64_t limit_ms, t_at_end at_end = t_at_end::shortened)
        : start_(get_time_stamp()), limit_ms_(limit_ms), at_end_(at_end)
    {
    }
    int64_t left_ms() const; // 0 when it is over
    bool over() const { return left_ms() == 0; }

private:
    t_time_stamp start_;
    int64_t limit_ms_;
    t_at_end at_end_;
};

enum class t_wait {
    ended,
    lost, // somebody else collected it
    over, // its time is over, it still runs
};

} // namespace

int64_t t_time_limit::left_ms() const
{
    int64_t left_ms = limit_ms_ - milliseconds_since(start_);
    if (at_end_ == t_at_end::shortened && end_is_asked_for())
        left_ms = std::min(left_ms, ENDING_LIMIT_MS - end_is_seen_for_ms());
    return std::max<int64_t>(left_ms, 0);
}

// Waits until the descriptor can be read or its other end is gone; false when the limit is over first.
static bool readable_within(int fd, const t_time_limit &limit)
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

// `output`, unless negative, becomes the standard output. 0, or an error number: EAGAIN when programs that cannot even
// be killed have piled up.
static int start_command(const char *command, int output, pid_t *child)
{
    return collect_abandoned() ? spawn_command(command, output, child) : EAGAIN;
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

// --- the end

// Collects it. Not with a blocking wait, which knows no limit.
static t_wait wait_for_child(pid_t child, const t_time_limit &limit, int *status)
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

// Asks by SIGTERM, kills after a grace, collects. A status of -1 when the child is lost, or when the kernel holds it,
// then it is collected when another program is started. It is collected last: until then nobody else can get the number
// of its group.
static void end_group(pid_t child, int *status)
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

// --- what is read, and the two calls

// False when the time was over before the program closed its output or the room was full.
static bool read_output(int fd, std::span<char> output, const t_time_limit &limit)
{
    size_t length = 0;
    bool in_time = true;
    while (length < output.size() - 1 && (in_time = readable_within(fd, limit))) {
        const ssize_t got = read(fd, &output[length], output.size() - 1 - length);
        if (got == -1 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        length += static_cast<size_t>(got);
    }
    output[length] = '\0';
    return in_time;
}

// Starts `command` with its standard output in a pipe. The pipe's read end, or -1 with errno set.
static int start_captured(const char *command, pid_t *child)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    t_fd_guard write_end(ends[1]);
    int error = start_command(command, ends[1], child);
    if (error == 0)
        return ends[0];
    close(ends[0]);
    errno = error;
    return -1;
}

int capture_command(std::span<char> output, const char *command)
{
    const t_time_limit limit(QUERY_LIMIT_MS);
    if (limit.over())
        return -1;
    pid_t child = -1;
    int fd = start_captured(command, &child);
    if (fd < 0) {
        log_print_always("popen faild. (%d, %s)\n", errno, strerror(errno));
        return -1;
    }
    const bool in_time = output.empty() || read_output(fd, output, limit);
    // Closed before the wait: a program that goes on writing must not wait for us while we wait for it.
    close(fd);
    int status = -1;
    if (in_time && wait_for_child(child, limit, &status) != t_wait::over)
        return OK;
    end_group(child, &status);
    tallies.commands_out_of_time.add(1);
    LOG(Warning, "%s does not end, killed\n", command);
    return OK;
}

int run_command(const char *command)
{
    const t_time_limit limit(ACTION_LIMIT_MS);
    pid_t child = -1;
    if (limit.over() || start_command(command, -1, &child) != 0)
        return -1;
    int status = -1;
    switch (wait_for_child(child, limit, &status)) {
    case t_wait::ended:
        return status;
    case t_wait::lost:
        return -1;
    case t_wait::over:
        break;
    }
    end_group(child, &status);
    tallies.commands_out_of_time.add(1);
    LOG(Warning, "%s does not end, killed\n", command);
    return status;
}
