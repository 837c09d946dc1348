// SPDX-License-Identifier: MIT
// Running the router's own programs. They are started with an empty signal mask and the default reaction to a closed
// pipe, whichever thread starts them: a script that inherited a blocked SIGTERM could not be stopped. Each gets a
// process group of its own, so that one that hangs is ended together with what it has started.
#include "platform/command.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/guards.h"
#include "platform/log.h"

namespace {

constexpr const char *SHELL = "/bin/sh";
constexpr int64_t KILLED_LIMIT_MS = 1000; // the kernel may hold a program that was killed
constexpr int64_t FIRST_PAUSE_MS = 1;     // between two looks at a child or at the limit, doubled each time
constexpr int64_t LONGEST_PAUSE_MS = 20;

// How long a program may still run.
class t_time_limit {
public:
    explicit t_time_limit(int64_t limit_ms) : limit_ms_(limit_ms) {}

    bool over()
    {
        const int64_t passed_ms = milliseconds_since(start_);
        if (process_is_ending && !shortened_) {
            shortened_ = true;
            limit_ms_ = std::min(limit_ms_, passed_ms + ENDING_LIMIT_MS);
        }
        return passed_ms >= limit_ms_;
    }

private:
    const t_time_stamp start_ = get_time_stamp();
    int64_t limit_ms_;
    bool shortened_ = false;
};

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

// Starts a shell on `command`; `output`, unless negative, becomes its standard output. 0, or the error number.
int start_shell(const char *command, int output, pid_t *child)
{
    t_spawn_setup setup;
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&setup.attributes, &signals);
    sigaddset(&signals, SIGPIPE);
    posix_spawnattr_setsigdefault(&setup.attributes, &signals);
    posix_spawnattr_setpgroup(&setup.attributes, 0);
    posix_spawnattr_setflags(&setup.attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    if (output >= 0) {
        int error = posix_spawn_file_actions_adddup2(&setup.actions, output, STDOUT_FILENO);
        if (error != 0)
            return error;
    }
    char name[] = "sh";
    char option[] = "-c";
    char *arguments[] = {name, option, const_cast<char *>(command), nullptr};
    return posix_spawn(child, SHELL, &setup.actions, &setup.attributes, arguments, environ);
}

enum class t_wait { ended, lost, over };

// Not with a blocking wait, which knows no limit. `lost` when somebody else collected the child.
t_wait wait_for_child(pid_t child, t_time_limit &limit, int *status)
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

void kill_group(pid_t child, int *status)
{
    kill(-child, SIGKILL);
    t_time_limit limit(KILLED_LIMIT_MS);
    if (wait_for_child(child, limit, status) != t_wait::ended)
        *status = -1;
}

// False when the time was over before the program closed its output or the buffer was full.
bool read_output(int fd, char *buffer, size_t size, t_time_limit &limit)
{
    size_t length = 0;
    bool in_time = true;
    while (length < size - 1 && (in_time = !limit.over())) {
        pollfd wanted = {fd, POLLIN, 0};
        if (poll(&wanted, 1, LONGEST_PAUSE_MS) <= 0)
            continue;
        const ssize_t got = read(fd, buffer + length, size - 1 - length);
        if (got == -1 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        length += static_cast<size_t>(got);
    }
    buffer[length] = '\0';
    return in_time;
}

// Starts `command` with its standard output in a pipe. The pipe's read end, or -1 with errno set.
int start_captured(const char *command, pid_t *child)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    t_fd_guard write_end(ends[1]);
    int error = start_shell(command, ends[1], child);
    if (error == 0)
        return ends[0];
    close(ends[0]);
    errno = error;
    return -1;
}

} // namespace

int capture_command(char *buffer, const char *command, size_t size)
{
    t_time_limit limit(QUERY_LIMIT_MS);
    pid_t child = -1;
    int fd = start_captured(command, &child);
    if (fd < 0) {
        log_print_always("popen faild. (%d, %s)\n", errno, strerror(errno));
        return -1;
    }
    bool in_time = size == 0 || read_output(fd, buffer, size, limit);
    // Closed before the wait: a program that goes on writing must not wait for us while we wait for it.
    close(fd);
    int status = -1;
    if (in_time && wait_for_child(child, limit, &status) != t_wait::over)
        return 0;
    LOG(Warning, "%s does not end, killed\n", command);
    kill_group(child, &status);
    return 0;
}

int run_command(const char *command)
{
    t_time_limit limit(ACTION_LIMIT_MS);
    pid_t child = -1;
    if (start_shell(command, -1, &child) != 0)
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
    LOG(Warning, "%s does not end, killed\n", command);
    kill_group(child, &status);
    return status;
}
