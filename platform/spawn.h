// SPDX-License-Identifier: MIT
// Starting a command without copying the daemon's memory. Any thread.
#pragma once

#include <sys/types.h>

// Starts /bin/sh on `command`, in a process group of its own, with an empty signal mask, the default reaction to a
// closed pipe, an empty standard input, and no descriptor but the standard ones; `output`, unless negative, becomes its
// standard output. The shell is left out where it would only start a program by its path. 0, or an error number when
// there is no such shell, or no room for another process.
int spawn_command(const char *command, int output, pid_t *child);
