// SPDX-License-Identifier: MIT
// Cutting a failing life down: the fewest events, ports and settings with which the same check still fails.
#pragma once

#include <string>

#include "tests/simulation/life.h"
#include "tests/simulation/outcome.h"

namespace sim {

struct t_shrunk {
    t_life life;
    t_outcome ended;     // how it fails
    uint64_t played = 0; // lives that it took
    bool is_done = true; // else the time was over first
};

// The check that a failure's text begins with: "clean" of "clean: 2 threads are left".
std::string check_of(const t_outcome &ended);

// `ended` is how the life fails; takes about so many real seconds at most.
t_shrunk shrink(const t_life &life, const t_outcome &ended, double seconds);

// The life as a file for regressions/, with what it fails by in its first line.
std::string file_of_shrunk(const t_shrunk &shrunk);

// Plays every .life file of the folder twice: true when there are some, all pass, and both runs have the same hash.
bool play_regressions(const std::string &folder);

} // namespace sim
