// SPDX-License-Identifier: MIT
// Lives near one of those that are kept: what showed a fault once is drawn again and again, each time a little
// different.
#pragma once

#include <span>

#include "tests/simulation/life.h"

namespace sim {

struct t_kept_life {
    const char *name; // of its file in regressions/, without its end
    const char *text;
};
extern const std::span<const t_kept_life> KEPT_LIVES; // made from that folder where this is built

// Another kept life moves only those seeds that are drawn near it.
const t_kept_life &kept_life_for(uint64_t seed);

void draw_near(const t_kept_life &kept, t_life *life, t_number number);

} // namespace sim
