// SPDX-License-Identifier: MIT
// The ways of a cycle that a life takes. core/cycle.cpp calls note_cycle_way() where it would call is_cycle_way().
#include "core/cycle_ways.h"

#include <cstdio>
#include <cstring>

#include "tests/simulation/checks.h"
#include "tests/simulation/outcome.h"
#include "tests/simulation/scheduler.h"
#include "tests/simulation/ways.h"
#include "tests/simulation/world.h"

namespace sim {

const char *name_of_state(size_t state)
{
    static const char *const NAMES[STATES] = {"resting", "waiting",    "looking",    "probing",
                                              "judging", "asking ARP", "asking DNS", "ending"};
    return NAMES[state];
}

} // namespace sim

using namespace sim;

static_assert(static_cast<size_t>(t_cycle_state::ending) == STATES - 1);

decltype(is_cycle_way) note_cycle_way;

bool note_cycle_way(t_cycle_state from, t_cycle_state to)
{
    const auto first = static_cast<size_t>(from), second = static_cast<size_t>(to);
    char text[64];
    snprintf(text, sizeof text, "%s -> %s", name_of_state(first), name_of_state(second));
    if (!is_cycle_way(from, to))
        fail("a cycle has no way %s", text);
    outcome->counts.ways[first][second]++;
    const char *const name = name_of_state(second), *const space = strrchr(name, ' ');
    begin_step(space ? space + 1 : name);
    const bool is_pass = from != t_cycle_state::judging && from != t_cycle_state::ending; // behind these it comes later
    if (to == t_cycle_state::looking && is_pass && world.health.configuration && world.health.machine)
        world.connection_read = now();
    world.cycles += from == t_cycle_state::waiting;
    saw({.deed = t_deed::way_taken, .number = static_cast<int64_t>(first * STATES + second), .text = text});
    return true;
}
