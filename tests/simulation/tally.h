// SPDX-License-Identifier: MIT
// What many lives came to, and how it is told.
#pragma once

#include <string>

#include "tests/simulation/outcome.h"

namespace sim {

// In memory that several processes share: each has one of its own.
struct t_tally {
    uint64_t lives, failed;
    t_counts counts;
};

void count_event(const std::string &kind); // of the life of this process
void add_outcome(t_tally *tally, const t_outcome &ended);
void add_tally(t_tally *sum, const t_tally &more);

// Prints it, with the time it took. The number of ways of a cycle that no life took, each of which is told.
int tell_tally(const t_tally &tally, double seconds, double processor_seconds);

} // namespace sim
