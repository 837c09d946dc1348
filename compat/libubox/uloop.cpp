// SPDX-License-Identifier: MIT
// The turns of the event loop, its start and its end.
#include "uloop_internal.h"

bool uloop_cancelled = false;

namespace {

// Runs under way: more than one when a callback runs the loop again.
int run_depth = 0;

// A signal handler may set the flag at any moment.
bool is_cancelled()
{
    return __atomic_load_n(&uloop_cancelled, __ATOMIC_RELAXED);
}

// The shorter of the two waits; -1 is the longest.
int shorter_wait(int a, int b)
{
    if (a < 0)
        return b;
    return b >= 0 && b < a ? b : a;
}

// Timers first, then children, then one descriptor: no callback of a batch starts while a timer is due. False when the
// loop has to leave.
bool run_turn(int timeout)
{
    uloop_run_expired_timers();
    if (uloop_take_child_signal())
        uloop_reap_children();
    if (is_cancelled())
        return false;
    uloop_serve_one_fd(shorter_wait(uloop_get_next_timeout(), timeout));
    return true;
}

} // namespace

int uloop_init(void)
{
    if (uloop_open_poll() < 0)
        return -1;
    if (uloop_open_wake_pipe() < 0) {
        uloop_close_poll();
        return -1;
    }
    uloop_install_handlers();
    return 0;
}

int uloop_run_timeout(int timeout)
{
    __atomic_store_n(&uloop_cancelled, false, __ATOMIC_RELAXED);
    uloop_clear_stop_signal();
    run_depth++;
    while (run_turn(timeout) && timeout < 0)
        ;
    run_depth--;
    return uloop_stop_signal();
}

bool uloop_cancelling(void)
{
    return run_depth > 0 && is_cancelled();
}

void uloop_done(void)
{
    uloop_restore_handlers();
    uloop_close_poll();
    uloop_close_wake_pipe();
    uloop_cancel_all_timers();
    uloop_forget_all_processes();
}
