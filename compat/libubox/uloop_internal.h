// SPDX-License-Identifier: MIT
// What the parts of the event loop ask of each other. Everything here belongs to the loop's thread, except where noted.
#pragma once

#include "exported.h"

// Descriptors (uloop_fd.cpp).

int uloop_open_poll();
void uloop_close_poll();
// Watches a descriptor of the loop itself: as uloop_fd_add with ULOOP_READ, but the application is not told.
int uloop_watch_own(struct uloop_fd *own);
// Calls back for one ready descriptor, waiting at most this many ms (-1 = no bound) if none is known to be ready.
void uloop_serve_one_fd(int wait_ms);

// Timers (uloop_timeout.cpp).

void uloop_run_expired_timers();
void uloop_cancel_all_timers();

// Children (uloop_process.cpp).

void uloop_reap_children();
void uloop_forget_all_processes();

// Signals (uloop_signal.cpp).

int uloop_open_wake_pipe();
void uloop_close_wake_pipe();
void uloop_install_handlers();
void uloop_restore_handlers();
// Whether a SIGCHLD has come since the last call.
bool uloop_take_child_signal();
// The signal that ended the loop, 0 for none.
int uloop_stop_signal();
void uloop_clear_stop_signal();
