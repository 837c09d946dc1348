// SPDX-License-Identifier: MIT
// Playing lives: each in a process of its own, forked from this one, so that every variable of the daemon is fresh.
#pragma once

#include "tests/simulation/life.h"
#include "tests/simulation/outcome.h"

namespace sim {

// `tells` prints the life's timeline. A process that crashed or was cut counts as failed, and says how in the text.
t_outcome play(const t_life &life, bool tells);

void tell_outcome(const t_life &life, const t_outcome &ended);

} // namespace sim
