// SPDX-License-Identifier: MIT
// The router's own programs, run through the shell. Both calls block the calling thread until the program ends, or
// until its time is over: then it is killed, with everything of its process group.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/shared.h"

constexpr int64_t QUERY_LIMIT_MS = 10'000;  // a script that is only asked something
constexpr int64_t ACTION_LIMIT_MS = 60'000; // a program that does something; a swap may restart the network
constexpr int64_t ENDING_LIMIT_MS = 2'000;  // any program, from the moment that the process is about to end

// Set when the process is asked to end: programs that run get no more than ENDING_LIMIT_MS. Safe in a signal handler.
inline t_shared<bool> process_is_ending = {false};

// Runs `command` and keeps the first `size` - 1 bytes of its standard output, always terminated. 0 when it could be
// started, -1 (and a line on standard output) otherwise; its exit status is not looked at. Signals do not cut it short.
// What a program printed until it was killed counts. Takes QUERY_LIMIT_MS at most.
int capture_command(char *buffer, const char *command, size_t size);

// Runs `command` and returns its wait status as system() does, -1 when no shell could be started. Takes ACTION_LIMIT_MS
// at most.
int run_command(const char *command);
