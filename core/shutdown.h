// SPDX-License-Identifier: MIT
// How the process is told to end, and the one way in which it does. Main thread, but for the signal handler itself.
#pragma once

#include <pthread.h>
#include <sys/types.h>

constexpr int SHUTDOWN_LIMIT_SECONDS = 4; // a main thread that hangs in a command is ended after that

// The two workers, for cancelling and joining.
struct t_worker {
    pthread_t thread;
    bool started;
};
extern t_worker combo_worker;
extern t_worker link_worker;

// Lets signals that end the process wait until there is a handler for them, and SIGHUP until it is read. Before the
// fork, so that the daemon knows no moment at which it would die of one.
void hold_ending_signals();

// In the first process, after the fork: SIGTERM and SIGINT go on to the daemon, those that were held among them.
// Whoever ends the first process in its last moment means the daemon.
void pass_on_ending_signals(pid_t daemon);

// SIGTERM and SIGINT mark the wish to end; signal_kill follows on the main thread. Those that were held, or blocked by
// whoever started the process, arrive now. The exit status is 0, but `give_up_status` where the process began its end
// by a signal to itself. SIGHUP stays blocked.
void install_signal_handlers(int give_up_status);

// Releases everything, in reverse of start-up.
void done();

// What a signal that ends the process leads to: done, the message, the exit status.
[[noreturn]] void signal_kill(int signal_number);
