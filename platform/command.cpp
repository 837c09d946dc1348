// SPDX-License-Identifier: MIT
// Running the router's own programs. They are started with an empty signal mask and the default reaction to a closed
// pipe, whichever thread starts them: a script that inherited a blocked SIGTERM could not be stopped.
#include "platform/command.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "platform/child_process.h"
#include "platform/guards.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/tallies.h"

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
