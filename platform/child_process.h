// SPDX-License-Identifier: MIT
// Shells that the daemon starts: each in a process group of its own, waited for with a time limit, and ended together
// with its group when the time is over. Any thread.
#pragma once

#include <cstdint>
#include <sys/types.h>

#include "platform/clock.h"
#include "platform/shared.h"

constexpr int64_t ENDING_LIMIT_MS = 2'500; // all programs together, once the process is about to end
constexpr int64_t TERM_GRACE_MS = 500;     // from SIGTERM to SIGKILL
constexpr int64_t KILLED_LIMIT_MS = 300;   // the kernel may hold a program that was killed

// Set when the process is asked to end. Safe in a signal handler.
inline t_shared<bool> process_is_ending = {false};

// How long a program may still run. Once the process is ending (`process_is_ending`), no limit
// lasts longer than ENDING_LIMIT_MS from the moment that the first of all limits noticed it.
class t_time_limit {
public:
    explicit t_time_limit(int64_t limit_ms);
    bool over() const;

private:
    t_time_stamp start_;
    int64_t limit_ms_;
};

// Starts a shell on `command` (platform/spawn.h); `output`, unless negative, becomes its standard output. 0, or an
// error number: EAGAIN when programs that cannot even be killed have piled up.
int start_shell(const char *command, int output, pid_t *child);

enum class t_wait {
    ended,
    lost, // somebody else collected it
    over, // its time is over, it still runs
};

// Waits for a child's end and collects it.
t_wait wait_for_child(pid_t child, const t_time_limit &limit, int *status);

// Ends a child and its group: asks by SIGTERM, kills after a grace, collects it. A status of -1 when it is lost, or
// when the kernel holds it, then it is collected when another shell is started.
void end_group(pid_t child, int *status);
