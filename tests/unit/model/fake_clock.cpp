// SPDX-License-Identifier: MIT
#include "model/fake_clock.h"

namespace {

t_time_stamp fake_now;

} // namespace

void set_fake_clock(int32_t sec, int32_t usec)
{
    fake_now = {sec, usec};
}

void advance_fake_clock(int32_t seconds)
{
    fake_now.sec += seconds;
}

t_time_stamp get_time_stamp()
{
    return fake_now;
}

int64_t time_stamp_diff_us(t_time_stamp first, t_time_stamp second)
{
    return (static_cast<int64_t>(first.sec) - second.sec) * MICROSECONDS_PER_SECOND + (first.usec - second.usec);
}

void sleep_ms(uint32_t milliseconds)
{
    fake_now.sec += static_cast<int32_t>(milliseconds / 1000);
}
