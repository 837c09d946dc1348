// SPDX-License-Identifier: MIT
// How a life ended, in memory that its process shares with the one that plays lives.
#pragma once

#include <cstdint>

namespace sim {

enum class t_verdict : uint8_t {
    unfinished, // the process was gone before it said anything: a crash, or a hang that was cut
    passed,
    failed,
};

struct t_outcome {
    t_verdict verdict;
    int exit_status; // of the daemon
    uint64_t hash;
    uint64_t doors;
    uint64_t entries;
    int64_t virtual_us;
    uint32_t swaps, cycles, events; // what the world counted
    char text[512];                 // of a failure
};

extern t_outcome *outcome;

// Writes the outcome and ends the process at once.
[[noreturn]] void end_life(t_verdict verdict, const char *text);

} // namespace sim
