// SPDX-License-Identifier: MIT
// The states of a cycle, by number; core/cycle_ways.h has the ways between them.
#pragma once

#include <cstddef>

namespace sim {

constexpr size_t STATES = 8;
const char *name_of_state(size_t state);

} // namespace sim
