// SPDX-License-Identifier: MIT
// The router's own programs, run through the shell. Both calls block the calling thread until the program ends, or
// until its time is over: then it is told to end, and killed if it does not obey, with everything of its process group.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/child_process.h"

constexpr int64_t QUERY_LIMIT_MS = 10'000;  // a script that is only asked something
constexpr int64_t ACTION_LIMIT_MS = 60'000; // a program that does something; a swap may restart the network

// Runs `command` and keeps the first `size` - 1 bytes of its standard output, always terminated. 0 when it could be
// started, -1 (and a line on standard output) otherwise, -1 also when it is too late for another program; its exit
// status is not looked at. Signals do not cut it short. What a program printed until its time was over counts. Takes
// QUERY_LIMIT_MS, TERM_GRACE_MS and KILLED_LIMIT_MS at most.
int capture_command(char *buffer, const char *command, size_t size);

// Runs `command` and returns its wait status as system() does, -1 when no shell could be started. Takes
// ACTION_LIMIT_MS, TERM_GRACE_MS and KILLED_LIMIT_MS at most.
int run_command(const char *command);
