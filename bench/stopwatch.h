// SPDX-License-Identifier: MIT
// Where the time of one measured call goes: moments, processor time, and the system calls that wait inside the kernel.
#pragma once

#include <chrono>

using t_moment = std::chrono::steady_clock::time_point;
using t_microseconds = std::chrono::duration<double, std::micro>;

inline t_moment now()
{
    return std::chrono::steady_clock::now();
}

// Processor time of the calling thread, which is the daemon's; the peers' thread has its own.
t_microseconds thread_cpu();

// What the calling thread spent in bind() and close() since `restart_call_times`, and when it sent and closed.
struct t_call_times {
    t_microseconds in_bind{0}, in_close{0};
    t_moment first_send{}, last_close{}; // the moments these calls began
};
void restart_call_times();
const t_call_times &call_times();
