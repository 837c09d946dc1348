// SPDX-License-Identifier: MIT
// The ways between the states of a cycle, all of them.
#pragma once

#include <span>

#include "core/engine.h"

struct t_cycle_way {
    t_cycle_state from;
    t_cycle_state to;
};

std::span<const t_cycle_way> cycle_ways();

bool is_cycle_way(t_cycle_state from, t_cycle_state to);
