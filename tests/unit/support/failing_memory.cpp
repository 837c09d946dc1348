// SPDX-License-Identifier: MIT
#include "tests/unit/support/failing_memory.h"

static bool memory_is_short;
static int spared_calls;
static size_t failing_size;

static bool call_fails(size_t size)
{
    const bool concerned = memory_is_short && (failing_size == ANY_SIZE || failing_size == size);
    return concerned && spared_calls-- <= 0;
}

t_memory_shortage::t_memory_shortage(int spared, size_t size)
{
    memory_is_short = true;
    spared_calls = spared;
    failing_size = size;
}

t_memory_shortage::~t_memory_shortage()
{
    memory_is_short = false;
}

// Weak, for a program that wraps only some of them has no others.
extern "C" {
[[gnu::weak]] void *__real_calloc(size_t count, size_t size);
[[gnu::weak]] void *__real_malloc(size_t size);
[[gnu::weak]] void *__real_realloc(void *memory, size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_malloc(size_t size);
void *__wrap_realloc(void *memory, size_t size);

void *__wrap_calloc(size_t count, size_t size)
{
    return call_fails(count * size) ? nullptr : __real_calloc(count, size);
}

void *__wrap_malloc(size_t size)
{
    return call_fails(size) ? nullptr : __real_malloc(size);
}

void *__wrap_realloc(void *memory, size_t size)
{
    return call_fails(size) ? nullptr : __real_realloc(memory, size);
}
}
