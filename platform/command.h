// SPDX-License-Identifier: MIT
// The router's own programs, run as the shell would run them. Both calls block the calling thread until the program
// ends, or until its time is over: then it is told to end, and killed if it does not obey, with everything of its
// process group. Any thread.
#pragma once

#include <cstdint>
#include <span>

constexpr int64_t QUERY_LIMIT_MS = 10'000;  // a script that is only asked something
constexpr int64_t ACTION_LIMIT_MS = 60'000; // a program that does something; a swap may restart the network
constexpr int64_t ENDING_LIMIT_MS = 2'500;  // all programs together, once the process is about to end
constexpr int64_t TERM_GRACE_MS = 500;      // from SIGTERM to SIGKILL
constexpr int64_t KILLED_LIMIT_MS = 300;    // the kernel may hold a program that was killed

// Runs `command` and keeps as much of its standard output as there is room for, always terminated. OK when it could be
// started, -1 (and a line on standard output) otherwise, -1 also when it is too late for another program; its exit
// status is not looked at. Signals do not cut it short. What a program printed until its time was over counts. Takes
// QUERY_LIMIT_MS, TERM_GRACE_MS and KILLED_LIMIT_MS at most.
int capture_command(std::span<char> output, const char *command);

// Runs `command` and returns its wait status as system() does, -1 when it could not be started. Takes
// ACTION_LIMIT_MS, TERM_GRACE_MS and KILLED_LIMIT_MS at most.
int run_command(const char *command);
