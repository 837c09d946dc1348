// SPDX-License-Identifier: MIT
// Allocations that fail on demand.
#pragma once

#include <cstddef>

// While it lives, the allocation number `number` (from 1) of exactly `size` bytes, and all later ones, fail.
class t_failing_allocation {
public:
    explicit t_failing_allocation(size_t size, int number = 1);
    ~t_failing_allocation();
    t_failing_allocation(const t_failing_allocation &) = delete;
    t_failing_allocation &operator=(const t_failing_allocation &) = delete;
};
