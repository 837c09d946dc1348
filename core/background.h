// SPDX-License-Identifier: MIT
// The background threads' side of life: how they start, sleep and are stopped.
//
// Stopping is asked for through a descriptor that every sleep watches, so that each thread reaches a point where it
// touches nothing shared before the shared things go away.
#pragma once

#include <csignal>
#include <cstdint>
#include <pthread.h>

constexpr int BACKGROUND_STOP_LIMIT_MS = 3500; // for a thread that sits in a command whose time is over
constexpr int MAX_BACKGROUND_THREADS = 160; // all ports flapping every second keep 9 s of threads busy, and two workers

using t_thread_body = void *(*)(void *);

// Opens the descriptors. Main thread, before anything that can stop. False when the kernel refuses.
bool init_background();

// Lets the loop end when the end is asked for; after uloop_init. False when the kernel refuses.
bool attach_background_to_loop();

// The loop does not hear of the end any more; before uloop_done.
void detach_background_from_loop();

// Asks for the end of the process, with a signal number or 0. The first one wins: true for it. Safe in a signal
// handler; any thread.
bool begin_to_stop(int signal_number);

// The signal that asked for the end; 0 while nobody did.
int stop_signal();

// Sleeps, at once over when the end is asked for; then true. Any thread.
bool sleep_unless_stopped(uint32_t milliseconds);

// The signals that end the process: those that ask for it, and the alarm for a shutdown that hangs.
sigset_t ending_signals();

// Starts a thread in which the signals that end the process are blocked. Shutdown waits for it until it leaves. The
// error number of pthread_create, EAGAIN also when MAX_BACKGROUND_THREADS are at work; 0 for success.
int start_background_thread(pthread_t *thread, t_thread_body body, void *argument);

// Last call of a detached thread's body: it touches nothing shared any more.
void leave_background();

// Last call of a worker that is cancelled and joined: says that it touches nothing shared any more and waits to be
// cancelled.
[[noreturn]] void wait_for_the_end();

// Waits until no background thread is at work. False when one still is after BACKGROUND_STOP_LIMIT_MS. Main thread.
bool stop_background_threads();

// Closes the descriptors, when every thread is gone.
void release_background();
