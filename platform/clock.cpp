// SPDX-License-Identifier: MIT
// Time stamps and whole sleeps on the monotonic clock.
#include "platform/clock.h"

#include <cerrno>
#include <ctime>

constexpr long NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr long NANOSECONDS_PER_MILLISECOND = 1'000'000;
constexpr long NANOSECONDS_PER_MICROSECOND = 1'000;

t_time_stamp get_time_stamp()
{
    timespec now = {};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0)
        clock_gettime(CLOCK_REALTIME, &now);
    return {static_cast<int32_t>(now.tv_sec), static_cast<int32_t>(now.tv_nsec / NANOSECONDS_PER_MICROSECOND)};
}

int64_t time_stamp_diff_us(t_time_stamp first, t_time_stamp second)
{
    int64_t seconds = static_cast<int64_t>(first.sec) - second.sec;
    return seconds * MICROSECONDS_PER_SECOND + (static_cast<int64_t>(first.usec) - second.usec);
}

void sleep_ms(uint32_t milliseconds)
{
    timespec until = {};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += milliseconds / MILLISECONDS_PER_SECOND;
    until.tv_nsec += static_cast<long>(milliseconds % MILLISECONDS_PER_SECOND) * NANOSECONDS_PER_MILLISECOND;
    if (until.tv_nsec >= NANOSECONDS_PER_SECOND) {
        until.tv_sec++;
        until.tv_nsec -= NANOSECONDS_PER_SECOND;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}
