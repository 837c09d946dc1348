// SPDX-License-Identifier: MIT
// SIGHUP, which a terminal or a service manager sends as well: it is read where it waits, and only told of. Loop
// thread.
#pragma once

// From the first moment on, in all threads.
void hold_hangups();

// Opens what it is read from, and lets the loop read it; after uloop_init, with SIGHUP blocked. False when the kernel
// refuses.
bool watch_for_hangups();

// Readable when a SIGHUP waits; for times when no loop runs.
int hangup_fd();

// Takes those that wait, and says so.
void tell_of_hangup();

// Before uloop_done.
void release_hangups();
