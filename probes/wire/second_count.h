// SPDX-License-Identifier: MIT
// How often something happened within one second, for what strangers can make happen at any rate. Loop thread only.
#pragma once

#include "platform/clock.h"

struct t_second_count {
    t_time_stamp since;
    uint32_t count;
};

// Counts once more: 1 for the first time of a second, which begins there.
uint32_t count_in_second(t_second_count *second);
