// SPDX-License-Identifier: MIT
// How long the loop was kept from its work: the bound of *found* counts from the loop's beginning, and without the time
// in which a command or the bus held the loop up, which has limits of its own.
#pragma once

#include "tests/simulation/scheduler.h"

namespace sim {

t_time loop_began();            // NEVER before it did
t_time time_loop_was_blocked(); // in all, so far
bool loop_may_still_wait();     // for what it did since it came by last

} // namespace sim
