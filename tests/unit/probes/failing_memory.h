// SPDX-License-Identifier: MIT
// Lets the next calloc or realloc of the code under test fail. Needs failing_memory.cpp and the linker options
// -Wl,--wrap=calloc -Wl,--wrap=realloc.
#pragma once

// While it lives, calloc and realloc return null, once `spared` of their calls have worked.
struct t_memory_shortage {
    explicit t_memory_shortage(int spared = 0);
    ~t_memory_shortage();
    t_memory_shortage(const t_memory_shortage &) = delete;
    t_memory_shortage &operator=(const t_memory_shortage &) = delete;
};
