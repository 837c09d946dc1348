// SPDX-License-Identifier: MIT
// Programs that the daemon starts: each in a process group of its own, waited for with a time limit, and ended together
// with its group when the time is over. Any thread.
#pragma once

#include <cstdint>
#include <sys/types.h>

#include "platform/clock.h"

constexpr int64_t ENDING_LIMIT_MS = 2'500; // all programs together, once the process is about to end
constexpr int64_t TERM_GRACE_MS = 500;     // from SIGTERM to SIGKILL
constexpr int64_t KILLED_LIMIT_MS = 300;   // the kernel may hold a program that was killed

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

// Waits until the descriptor can be read or its other end is gone; false when the limit is over first.
bool readable_within(int fd, const t_time_limit &limit);

// Starts `command` (platform/spawn.h); `output`, unless negative, becomes its standard output. 0, or an error number:
// EAGAIN when programs that cannot even be killed have piled up.
int start_command(const char *command, int output, pid_t *child);

enum class t_wait {
    ended,
    lost, // somebody else collected it
    over, // its time is over, it still runs
};

// Waits for a child's end and collects it.
t_wait wait_for_child(pid_t child, const t_time_limit &limit, int *status);

// Ends a child and its group: asks by SIGTERM, kills after a grace, collects it. A status of -1 when it is lost, or
// when the kernel holds it, then it is collected when another program is started.
void end_group(pid_t child, int *status);
