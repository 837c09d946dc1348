// SPDX-License-Identifier: MIT
// Signals and timers, none of them the kernel's: a signal waits with its thread, or with the process, until a thread
// that lets it through comes to a door.
#pragma once

#include "tests/simulation/scheduler.h"

namespace sim {

constexpr int DAEMON_PID = 4242;

// To the whole process, as kill() would.
void send_signal(int number);
bool has_handler(int number);

extern uint64_t pending_for_process; // a bit for each number
inline bool has_deliverable_signal(const t_thread &thread)
{
    return ((thread.pending_signals | pending_for_process) & ~thread.blocked_signals) != 0;
}
void deliver_signals(); // to the calling thread

// For signalfd: sets of signals have a bit for each number.
uint64_t bits_of(const sigset_t *set);
int first_signal(uint64_t bits); // 0 for none
void take_pending(int number);

// Timers of setitimer and timer_create.
extern t_time next_timer_time; // of all timers
void fire_timers();            // those that are due
int count_of_timers();         // created and not deleted

} // namespace sim
