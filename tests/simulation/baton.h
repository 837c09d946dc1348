// SPDX-License-Identifier: MIT
// The baton goes from thread to thread. All of them are real, each with its own stack and variables; but where the
// processor can do it, the kernel's first thread plays them all: it goes on with the stack and the variables of whoever
// is next, and the kernel has nothing to do.
#pragma once

namespace sim {

struct t_baton {
    void *stack = nullptr;  // while it does not run: where it stands, with the registers that a call keeps
    unsigned long self = 0; // where its variables are
    int is_parked = 0;      // futex: 1 once its own thread of the kernel may be played by another one
    int is_mine = 0;        // futex: 1 when its own thread of the kernel goes on
};

// For the thread that begins with the baton.
void begin_baton(t_baton &mine);

// On a new thread: until it has the baton for the first time. Its creator calls await_parked() meanwhile.
void park(t_baton &mine);
void await_parked(t_baton &baton);

// Returns when the baton is back.
void hand_over(t_baton &mine, t_baton &next);

// Returns at once, on the caller's own thread of the kernel, which is to end.
void hand_over_for_good(t_baton &mine, t_baton &next);

} // namespace sim
