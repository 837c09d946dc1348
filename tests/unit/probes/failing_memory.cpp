// SPDX-License-Identifier: MIT
#include "probes/failing_memory.h"

#include <cstddef>

static bool memory_is_short;

t_memory_shortage::t_memory_shortage()
{
    memory_is_short = true;
}

t_memory_shortage::~t_memory_shortage()
{
    memory_is_short = false;
}

extern "C" {
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *memory, size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *memory, size_t size);

void *__wrap_calloc(size_t count, size_t size)
{
    return memory_is_short ? nullptr : __real_calloc(count, size);
}

void *__wrap_realloc(void *memory, size_t size)
{
    return memory_is_short ? nullptr : __real_realloc(memory, size);
}
}
