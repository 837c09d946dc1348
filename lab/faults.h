// SPDX-License-Identifier: MIT
// What the preloaded fault library shares with the lab: a page in memory that the lab writes while the daemon runs.
// lab/faults.py holds the same layout.
#pragma once

#include <cstdint>
#include <dlfcn.h>

constexpr int FAULT_SLOTS = 24;
constexpr int FAULT_NAME_SIZE = 32;
constexpr int STACK_DEPTH = 24;
constexpr int64_t SURVEY_CAPACITY = 1 << 18;

// A call that shall fail for a while.
struct t_fault_slot {
    char name[FAULT_NAME_SIZE];
    int32_t error;   // what it fails with; 0: it works
    int32_t spare;   // so many calls work first
    int32_t limit;   // so many fail then; 0: all
    int32_t calls;   // seen so far
    int32_t refused; // of them
    int32_t unused;
};

struct t_memory_faults {
    int64_t allocations; // counted so far
    int64_t first;       // number of the first one that is refused; 0: none
    int64_t count;       // how many in a row
    int64_t refused;
    int64_t living;              // allocations that were not freed
    int64_t spared;              // would have been refused, but for a defect of json-c
    int64_t surveying;           // whether stacks are noted
    uint64_t stack[STACK_DEPTH]; // return addresses of the first that was refused, 0 behind the last one
};

struct t_fault_page {
    int64_t shortest_wait_ms; // waits are no shorter than this, unless they do not wait at all; 0: as they are
    int64_t descriptors;      // limit that the daemon gets as it begins; 0: what it has
    int64_t more_memory;      // bytes of address space that it gets then, on top of what it has; negative: no limit
    t_fault_slot slots[FAULT_SLOTS];
    t_memory_faults memory;
    uint64_t survey[SURVEY_CAPACITY]; // for every allocation a number, the same for the same stack
};

// Null unless this is the daemon and the lab gave it a page.
t_fault_page *fault_page();

// Whether the call of that name has to fail now; errno is set then.
bool fails(const char *name);

// Whether the environment asks for this fault for the whole life.
bool asked_for(const char *fault);

template <typename Function> Function real(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}
