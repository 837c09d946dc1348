// SPDX-License-Identifier: MIT
// How a life ended, in memory that its process shares with the one that plays lives.
#pragma once

#include <cstdint>

#include "tests/simulation/ways.h"

namespace sim {

constexpr int MOST_EVENT_KINDS = 64;

// What a life went through; of many lives the sum.
struct t_counts {
    uint64_t doors, events, cycles, swaps;
    int64_t virtual_us;
    uint64_t events_of_kind[MOST_EVENT_KINDS]; // in the order of event_kinds()
    uint64_t ways[STATES][STATES];             // of a cycle, from and to
};

enum class t_verdict : uint8_t {
    unfinished, // the process was gone before it said anything: a crash, or a hang that was cut
    passed,
    failed,
};

struct t_outcome {
    t_verdict verdict;
    int exit_status; // of the daemon
    uint64_t hash;
    uint64_t entries;
    t_counts counts;
    char text[512]; // of a failure
};

extern t_outcome *outcome;

// Writes the outcome and ends the process at once.
[[noreturn]] void end_life(t_verdict verdict, const char *text);

} // namespace sim
