// SPDX-License-Identifier: MIT
// The virtual clock and the threads on it. The daemon's threads are real, but only the one that has the baton runs. It
// passes the baton at doors only: at each one the seed may say that another thread goes on, and a door that waits hands
// it over until what it waits for has come. When nobody can run, the clock jumps to whatever is next.
#pragma once

#include <csignal>
#include <cstdint>
#include <pthread.h>

#include "tests/simulation/baton.h"

namespace sim {

using t_time = int64_t; // microseconds of the virtual monotonic clock
constexpr t_time NEVER = INT64_MAX;
constexpr t_time MICROSECOND = 1;
constexpr t_time MILLISECOND = 1000;
constexpr t_time SECOND = 1'000'000;
constexpr t_time START_OF_CLOCK = 100 * SECOND; // the router has been up for a while

// What a thread is at; only names for the hash, and for checks that ask what a lock was held across.
enum class t_door : uint8_t {
    clock,
    wait,
    descriptor,
    file,
    packet,
    command,
    bus,
    thread,
    lock,
    signal,
    output,
    memory
};

// What a thread waits for: any of these ends the wait. What comes true by the time alone has that time as the deadline.
struct t_wait {
    bool (*is_over)(const void *of) = nullptr; // null for nothing but the time and signals
    const void *of = nullptr;
    t_time deadline = NEVER;
    bool by_signals = false; // a signal with a handler ends it
    bool may_cancel = false; // a cancelled thread ends here
    const char *what = "";   // for the timeline of a life that is stuck
};
enum class t_woken { ready, time_over, signal };

constexpr int MOST_THREADS = 256;
constexpr int MOST_SPINS = 4;

struct t_thread {
    int number = 0; // 0 is the main thread, the others count up in the order of their starts
    pthread_t handle = {};
    void *(*body)(void *) = nullptr;
    void *argument = nullptr;
    t_baton baton;
    enum { ready, waiting, ended } state = ready;
    t_wait wait;
    bool detached = false;
    bool cancelled = false;
    bool cancel_enabled = true;
    void *result = nullptr;
    uint64_t blocked_signals = 0; // a bit for each number
    uint64_t pending_signals = 0; // sent to this thread
    siginfo_t pending_info[NSIG] = {};
    int spins_held = 0;  // spin locks: no door that waits may be gone through with one
    int locks_held = 0;  // mutexes and read-write locks
    int tables_held = 0; // read-write locks alone
};

// --- the clock

extern t_time clock_now;
inline t_time now()
{
    return clock_now;
}

// What a run of the daemon must not outlive; a life that does is stuck.
extern t_time life_limit;

// --- doors

// First call of every door: it takes a microsecond, lets due events of the world happen, delivers signals, and maybe
// lets another thread go on. Nothing that the door found before may be trusted after it.
void door(t_door kind);

// Waits as told. Another thread, or the world, runs meanwhile.
t_woken wait_for(const t_wait &wait);

// The same for the time alone, which signals do not cut short.
void pass_time(t_time microseconds);

// --- threads

t_thread &self();
t_thread *thread_of(pthread_t handle); // null for a stranger
int count_of_threads();                // that have not ended, the main thread included
t_thread *thread_at(int number);       // null when there never was one

// The caller becomes the main thread of the life.
void begin_threads();

// Starts a thread that has its turn later; the error number of the real pthread_create.
int start_thread(pthread_t *handle, const pthread_attr_t *attributes, void *(*body)(void *), void *argument);

// The world's events are happening: no thread of the daemon runs.
extern bool in_world;

// True on a thread of the daemon, inside a life: the doors lead into the simulation there, else to the C library.
extern constinit thread_local bool inside;

// --- numbers from the seed

// The same for the same arguments in the same life, whatever else was drawn: no stream that a left-out event would
// move.
uint64_t draw(uint64_t what, uint64_t number);
inline uint64_t mix(uint64_t value)
{
    value += 0x9e3779b97f4a7c15;
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
    value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
    return value ^ (value >> 31);
}

// How often a door hands the baton on, of 65536.
extern unsigned switch_rate;
extern uint64_t life_seed;
extern uint64_t doors_passed;

// --- failures

// The life has failed: what is told goes to the report, and the process ends.
[[noreturn]] void fail(const char *format, ...) __attribute__((format(printf, 1, 2)));

} // namespace sim
