// SPDX-License-Identifier: MIT
#include "probes/failing_memory.h"

#include <cstddef>

static bool memory_is_short;
static int spared_calls;

static bool call_fails()
{
    return memory_is_short && spared_calls-- <= 0;
}

t_memory_shortage::t_memory_shortage(int spared)
{
    memory_is_short = true;
    spared_calls = spared;
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
    return call_fails() ? nullptr : __real_calloc(count, size);
}

void *__wrap_realloc(void *memory, size_t size)
{
    return call_fails() ? nullptr : __real_realloc(memory, size);
}
}
