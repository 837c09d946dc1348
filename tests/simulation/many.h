// SPDX-License-Identifier: MIT
// Playing lives on several processors, one after another on each.
#pragma once

#include <cstdint>

#include "tests/simulation/life.h"
#include "tests/simulation/outcome.h"

namespace sim {

struct t_many {
    uint64_t first_seed;
    uint64_t lives; // as many, with seeds that follow each other
    double seconds; // or until this time is over; 0 for no such end
    unsigned jobs;  // processes that play
    bool ends_at_failure;
    std::string near; // only those of these seeds that are drawn near this kept life; empty for all
    t_outcome (*play)(const t_life &life);
};

// Each failure is told with its seed as it comes, and all counts at the end. True when nothing failed.
bool play_many(const t_many &wanted);

} // namespace sim
