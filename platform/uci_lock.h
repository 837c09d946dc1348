// SPDX-License-Identifier: MIT
// Configuration files that somebody else keeps locked. Whoever may read a file may lock it, and the configuration
// library waits for a lock without a limit.
#pragma once

#include <cstdint>

// Longest time that a thread waits for locks, in one wait or in several that follow each other. As long as it does not
// wait it gets that time back.
constexpr int64_t UCI_LOCK_LIMIT_MS = 1000;

// The same while the daemon starts: what it reads then counts for its whole life, and a router that boots may be
// writing slowly.
constexpr int64_t UCI_LOCK_START_LIMIT_MS = 30'000;

// One of the two, for all threads; UCI_LOCK_LIMIT_MS until it is set. Any thread.
void set_uci_lock_limit(int64_t milliseconds);
int64_t uci_lock_limit();

// What is left of it at least for a file that was not waited for in vain meanwhile: somebody may just be writing it.
constexpr int64_t UCI_LOCK_FLOOR_MS = 20;

// How many waits of this thread came to nothing so far; those locks were not taken.
unsigned uci_locks_given_up();

// Looks at what the library does of this thread's while it lives: it may go on without a file that it could not lock.
class t_uci_lock_watch {
public:
    t_uci_lock_watch() : before_(uci_locks_given_up()) {}
    bool gave_up() const { return uci_locks_given_up() != before_; }

private:
    unsigned before_;
};
