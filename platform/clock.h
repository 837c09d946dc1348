// SPDX-License-Identifier: MIT
// Monotonic time stamps and sleeps that signals do not cut short. Safe on every thread.
#pragma once

#include <cstdint>

constexpr int MILLISECONDS_PER_SECOND = 1'000;
constexpr int32_t MICROSECONDS_PER_SECOND = 1'000'000;
constexpr int64_t MICROSECONDS_PER_MILLISECOND = 1'000;

struct t_time_stamp {
    int32_t sec;
    int32_t usec;
};

// The monotonic clock; the wall clock when that cannot be read.
t_time_stamp get_time_stamp();

// first - second, in microseconds.
int64_t time_stamp_diff_us(t_time_stamp first, t_time_stamp second);

// Whole milliseconds since then.
inline int64_t milliseconds_since(t_time_stamp start)
{
    return time_stamp_diff_us(get_time_stamp(), start) / MICROSECONDS_PER_MILLISECOND;
}

// The same clock as a count of milliseconds that wraps around; differences of two readings are right for 24 days.
inline uint32_t monotonic_ms()
{
    const t_time_stamp now = get_time_stamp();
    return static_cast<uint32_t>(int64_t{now.sec} * MILLISECONDS_PER_SECOND + now.usec / MICROSECONDS_PER_MILLISECOND);
}

// The same clock in whole seconds.
inline uint32_t monotonic_s()
{
    return static_cast<uint32_t>(get_time_stamp().sec);
}

// Sleeps the whole time, whatever signals arrive meanwhile.
void sleep_ms(uint32_t milliseconds);
