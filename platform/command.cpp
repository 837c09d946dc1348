// SPDX-License-Identifier: MIT
// Running the router's own programs. They are started with an empty signal mask and the default reaction to a closed
// pipe, whichever thread starts them: a script that inherited a blocked SIGTERM could not be stopped.
#include "platform/command.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/guards.h"
#include "platform/log.h"

namespace {

constexpr const char *SHELL = "/bin/sh";

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
    posix_spawnattr_setflags(&setup.attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
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

// The wait status, or -1 when somebody else collected the child.
int wait_for_child(pid_t child)
{
    int status = -1;
    while (waitpid(child, &status, 0) == -1) {
        if (errno != EINTR)
            return -1;
    }
    return status;
}

void read_output(int fd, char *buffer, size_t size)
{
    size_t length = 0;
    while (length < size - 1) {
        ssize_t got = read(fd, buffer + length, size - 1 - length);
        if (got == -1 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        length += static_cast<size_t>(got);
    }
    buffer[length] = '\0';
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
    pid_t child = -1;
    int fd = start_captured(command, &child);
    if (fd < 0) {
        log_print_always("popen faild. (%d, %s)\n", errno, strerror(errno));
        return -1;
    }
    if (size > 0)
        read_output(fd, buffer, size);
    // Closed before the wait: a program that goes on writing must not wait for us while we wait for it.
    close(fd);
    wait_for_child(child);
    return 0;
}

int run_command(const char *command)
{
    pid_t child = -1;
    if (start_shell(command, -1, &child) != 0)
        return -1;
    return wait_for_child(child);
}
