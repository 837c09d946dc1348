// SPDX-License-Identifier: MIT
// The clocks, sleeps, and random numbers.
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "tests/simulation/door.h"
#include "tests/simulation/world.h"

using namespace sim;

constexpr long NANOSECONDS_PER_MICROSECOND = 1000;

static timespec as_timespec(t_time time)
{
    return {time / SECOND, static_cast<long>(time % SECOND) * NANOSECONDS_PER_MICROSECOND};
}

static t_time as_time(const timespec &time)
{
    // Rounded up: a sleep never ends early.
    return time.tv_sec * SECOND + (time.tv_nsec + NANOSECONDS_PER_MICROSECOND - 1) / NANOSECONDS_PER_MICROSECOND;
}

DOOR(int, clock_gettime, (clockid_t clock, timespec *time), (clock, time), t_door::clock)
{
    *time = as_timespec(clock == CLOCK_REALTIME ? now() + world.wall_clock_ahead : now());
    return 0;
}

DOOR(time_t, time, (time_t * stored), (stored), t_door::clock)
{
    const time_t seconds = (now() + world.wall_clock_ahead) / SECOND;
    if (stored)
        *stored = seconds;
    return seconds;
}

DOOR(int, sysinfo, (struct sysinfo * info), (info), t_door::clock)
{
    *info = {};
    info->uptime = now() / SECOND;
    return 0;
}

DOOR(int, clock_nanosleep, (clockid_t clock, int flags, const timespec *wanted, timespec *left),
     (clock, flags, wanted, left), t_door::wait)
{
    if (clock != CLOCK_MONOTONIC)
        fail("a sleep on clock %d, which the simulation does not know", clock);
    const t_time until = as_time(*wanted) + (flags & TIMER_ABSTIME ? 0 : now());
    while (now() < until)
        if (wait_for({.deadline = until, .by_signals = true, .may_cancel = true, .what = "a sleep"}) == t_woken::signal)
            return EINTR;
    return 0;
}

DOOR(unsigned, sleep, (unsigned seconds), (seconds), t_door::wait)
{
    pass_time(static_cast<t_time>(seconds) * SECOND + MILLISECOND);
    return 0;
}

static uint64_t randoms_drawn;

DOOR(int, rand, (void), (), t_door::clock)
{
    return static_cast<int>(draw(2, ++randoms_drawn) & RAND_MAX);
}

QUIET_DOOR(void, srand, (unsigned seed), (seed)) {}
