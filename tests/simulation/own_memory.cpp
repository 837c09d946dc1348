// SPDX-License-Identifier: MIT
// What the simulation itself takes with `new`, at every door a few times: lists of blocks by size, which nobody locks,
// for only one thread runs. A sanitizer's build has its own.
#include <cstdlib>
#include <new>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define __SANITIZE_ADDRESS__ 1
#endif
#endif

#ifndef __SANITIZE_ADDRESS__

extern "C" {
void *__real_malloc(size_t size);
void __real_free(void *memory);
}

namespace {

constexpr size_t GRAIN = 16;
constexpr size_t MOST_GRAINS = 32; // a larger block is the C library's
constexpr size_t SUPPLY = 65536;

struct alignas(GRAIN) t_block {
    size_t grains;
    t_block *next; // while it is free
};

t_block *free_blocks[MOST_GRAINS + 1];
char *supply, *end_of_supply;

void *take_from_library(size_t size)
{
    void *const memory = __real_malloc(size);
    if (!memory)
        abort();
    return memory;
}

t_block *new_block(size_t grains)
{
    const size_t size = sizeof(t_block) + grains * GRAIN;
    if (grains > MOST_GRAINS)
        return new (take_from_library(size)) t_block{grains, nullptr};
    if (static_cast<size_t>(end_of_supply - supply) < size) {
        supply = static_cast<char *>(take_from_library(SUPPLY));
        end_of_supply = supply + SUPPLY;
    }
    char *const place = supply;
    supply += size;
    return new (place) t_block{grains, nullptr};
}

} // namespace

void *operator new(size_t size)
{
    const size_t grains = (size + GRAIN - 1) / GRAIN;
    if (grains > MOST_GRAINS || !free_blocks[grains])
        return new_block(grains) + 1;
    t_block *const block = free_blocks[grains];
    free_blocks[grains] = block->next;
    return block + 1;
}

void operator delete(void *memory) noexcept
{
    if (!memory)
        return;
    t_block *const block = static_cast<t_block *>(memory) - 1;
    if (block->grains > MOST_GRAINS) {
        __real_free(block);
        return;
    }
    block->next = free_blocks[block->grains];
    free_blocks[block->grains] = block;
}

void operator delete(void *memory, size_t) noexcept
{
    operator delete(memory);
}

#endif
