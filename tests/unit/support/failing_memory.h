// SPDX-License-Identifier: MIT
// Lets allocations of the code under test fail, and counts its blocks. Needs failing_memory.cpp among the sources, and
// for each of calloc, malloc and realloc that is to fail the linker option -Wl,--wrap=NAME; for counting all three, and
// free.
#pragma once

#include <cstddef>

constexpr size_t ANY_SIZE = 0;

// While it lives, allocations of `size` bytes return null, once `spared` of them have worked.
struct t_memory_shortage {
    explicit t_memory_shortage(int spared = 0, size_t size = ANY_SIZE);
    ~t_memory_shortage();
    t_memory_shortage(const t_memory_shortage &) = delete;
    t_memory_shortage &operator=(const t_memory_shortage &) = delete;
};

// Blocks that the code under test has and did not free yet.
size_t blocks_in_use();
