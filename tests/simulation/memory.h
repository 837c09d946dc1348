// SPDX-License-Identifier: MIT
// The daemon's memory: counted, refused when the world says so, and looked at when it is given back.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tests/simulation/scheduler.h"

namespace sim {

// What the daemon has got and not given back.
struct t_memory_use {
    int64_t blocks;
    int64_t bytes;
};
t_memory_use memory_in_use();

// Refuses `count` allocations of the daemon in a row, after `first` more that are granted.
void refuse_memory(uint64_t first, uint64_t count);

// Whether some of them are still to come.
bool memory_will_be_refused();

// Whether one was, at that time or later.
bool memory_was_refused(t_time since = 0);

// While one exists, allocations are the simulation's own: they are never refused.
struct t_own_memory {
    t_own_memory();
    ~t_own_memory();
};

} // namespace sim
