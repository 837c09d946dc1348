// SPDX-License-Identifier: MIT
#include "probes/wire/second_count.h"

uint32_t count_in_second(t_second_count *second)
{
    const t_time_stamp now = get_time_stamp();
    const int64_t passed_us = time_stamp_diff_us(now, second->since);
    if (second->count == 0 || passed_us < 0 || passed_us >= MICROSECONDS_PER_SECOND)
        *second = {.since = now, .count = 0};
    if (second->count < UINT32_MAX)
        second->count++;
    return second->count;
}
