// SPDX-License-Identifier: MIT
// Monotonic time stamps and sleeps that signals do not cut short. Safe on every thread.
#pragma once

#include <cstdint>

constexpr int32_t MICROSECONDS_PER_SECOND = 1'000'000;

struct t_time_stamp {
    int32_t sec;
    int32_t usec;
};

// The monotonic clock; the wall clock when that cannot be read.
t_time_stamp get_time_stamp();

// first - second, in microseconds.
int64_t time_stamp_diff_us(t_time_stamp first, t_time_stamp second);

// Sleeps the whole time, whatever signals arrive meanwhile.
void sleep_ms(uint32_t milliseconds);
