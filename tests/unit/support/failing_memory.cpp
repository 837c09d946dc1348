// SPDX-License-Identifier: MIT
#include "tests/unit/support/failing_memory.h"

#include <mutex>
#include <unordered_set>

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

// What it takes itself is the C++ library's, whose calls are not led here.
struct t_blocks {
    std::mutex lock;
    std::unordered_set<const void *> in_use;
};

static t_blocks &blocks()
{
    static t_blocks *const all = new t_blocks;
    return *all;
}

size_t blocks_in_use()
{
    const std::lock_guard guard(blocks().lock);
    return blocks().in_use.size();
}

// Weak, for a program that wraps only some of them has no others.
extern "C" {
[[gnu::weak]] void *__real_calloc(size_t count, size_t size);
[[gnu::weak]] void *__real_malloc(size_t size);
[[gnu::weak]] void *__real_realloc(void *memory, size_t size);
[[gnu::weak]] void __real_free(void *memory);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_malloc(size_t size);
void *__wrap_realloc(void *memory, size_t size);
void __wrap_free(void *memory);
}

static void forget(const void *memory)
{
    const std::lock_guard guard(blocks().lock);
    blocks().in_use.erase(memory);
}

static void *counted(void *memory)
{
    if (!__real_free || !memory)
        return memory;
    const std::lock_guard guard(blocks().lock);
    blocks().in_use.insert(memory);
    return memory;
}

void *__wrap_calloc(size_t count, size_t size)
{
    return call_fails(count * size) ? nullptr : counted(__real_calloc(count, size));
}

void *__wrap_malloc(size_t size)
{
    return call_fails(size) ? nullptr : counted(__real_malloc(size));
}

void *__wrap_realloc(void *memory, size_t size)
{
    if (call_fails(size))
        return nullptr;
    forget(memory);
    return counted(__real_realloc(memory, size));
}

void __wrap_free(void *memory)
{
    forget(memory);
    __real_free(memory);
}
