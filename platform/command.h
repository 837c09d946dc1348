// SPDX-License-Identifier: MIT
// The router's own programs, run through the shell. Both calls block the calling thread until the program ends.
#pragma once

#include <cstddef>

// Runs `command` and keeps the first `size` - 1 bytes of its standard output, always terminated. 0 when it could be
// started, -1 (and a line on standard output) otherwise; its exit status is not looked at. Signals do not cut it short.
int capture_command(char *buffer, const char *command, size_t size);

// Runs `command` and returns its wait status as system() does, -1 when no shell could be started.
int run_command(const char *command);
