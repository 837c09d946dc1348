// SPDX-License-Identifier: MIT
#include "tests/unit/support/fake_clock.h"

#include "platform/clock.h"

t_fake_clock fake_clock;

t_time_stamp get_time_stamp()
{
    return {static_cast<int32_t>(fake_clock.now_us / MICROSECONDS_PER_SECOND),
            static_cast<int32_t>(fake_clock.now_us % MICROSECONDS_PER_SECOND)};
}

int64_t time_stamp_diff_us(t_time_stamp first, t_time_stamp second)
{
    return (static_cast<int64_t>(first.sec) - second.sec) * MICROSECONDS_PER_SECOND + (first.usec - second.usec);
}

void sleep_ms(uint32_t milliseconds)
{
    fake_clock.sleeps.push_back(milliseconds);
    fake_clock.advance_ms(milliseconds);
    if (fake_clock.during_sleep)
        fake_clock.during_sleep(milliseconds);
}
