// SPDX-License-Identifier: MIT
// Memory from a place of the simulation's own. It takes a few nanoseconds, for nothing is ever given back to anybody;
// new memory holds rubbish, old memory other rubbish, and both ends of a block are watched. A sanitizer does all of
// this better, so its builds get their memory from it.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/simulation/door.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/memory.h"
#include "tests/simulation/world.h"

#if defined(__SANITIZE_ADDRESS__)
constexpr bool IS_THE_SANITIZERS = true;
#elif defined(__has_feature)
constexpr bool IS_THE_SANITIZERS = __has_feature(address_sanitizer);
#else
constexpr bool IS_THE_SANITIZERS = false;
#endif

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *memory, size_t size);
void __real_free(void *memory);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *memory, size_t size);
void __wrap_free(void *memory);
char *__wrap_strdup(const char *text);
int __wrap_asprintf(char **text, const char *format, ...);
int __wrap___asprintf_chk(char **text, int flag, const char *format, ...);
}

namespace sim {

namespace {

constexpr size_t GRAIN = 16;
constexpr size_t SMALL = 1024;                   // up to here a list for each multiple of the grain
constexpr size_t LISTS = SMALL / GRAIN + 1 + 32; // then one for each power of two
constexpr size_t ALL_OF_IT = size_t{64} << 20;   // more than a life needs by far
constexpr size_t FILLED = 64;                    // with rubbish, from the start of a block
constexpr uint32_t IN_USE = 0x600dcafe, FREE = 0x0ddba11;
constexpr uint64_t FENCE = 0xfe4cefe4cefe4ce;
constexpr size_t LONGEST_TEXT = 16384;
constexpr char NEW_RUBBISH = '\xa5', OLD_RUBBISH = '\xdd';

struct alignas(GRAIN) t_block {
    uint32_t size;
    uint32_t state;
    t_block *next; // while it is free

    char *memory() { return reinterpret_cast<char *>(this + 1); }
};

alignas(GRAIN) char place[ALL_OF_IT];
size_t place_used = 0;
t_block *free_blocks[LISTS];
t_memory_use in_use;
uint64_t allocations, refused_from = UINT64_MAX, refused_to = 0;
int own_depth = 0;
t_time refused_at = NEVER; // last

[[gnu::noinline, gnu::cold]] bool refuse()
{
    log_line("memory", "is refused");
    refused_at = now();
    world.connection_read = 0; // perhaps in the midst of it
    if (!world.model_is_read)
        world.detection_in_doubt = true; // `enable` that cannot be read is off
    errno = ENOMEM;
    return true;
}

[[gnu::always_inline]] inline bool is_refused()
{
    if (own_depth > 0 || in_world)
        return false;
    allocations++;
    return allocations >= refused_from && allocations < refused_to && refuse();
}

// Where blocks for so many bytes are.
size_t list_for(size_t size)
{
    const size_t grains = (size + sizeof FENCE + GRAIN - 1) / GRAIN;
    if (grains <= SMALL / GRAIN) [[likely]]
        return grains;
    return SMALL / GRAIN + 1 + static_cast<size_t>(64 - __builtin_clzll((grains * GRAIN - 1) / SMALL));
}

size_t room_in(size_t list)
{
    return list <= SMALL / GRAIN ? list * GRAIN : SMALL << (list - SMALL / GRAIN - 1);
}

[[gnu::noinline]] t_block *new_block(size_t room)
{
    if (place_used + sizeof(t_block) + room > ALL_OF_IT)
        fail("the daemon has taken more than %zu MB of memory", ALL_OF_IT >> 20);
    auto *block = reinterpret_cast<t_block *>(place + place_used);
    place_used += sizeof(t_block) + room;
    return block;
}

[[gnu::always_inline]] inline void *take_block(size_t size)
{
    const size_t list = list_for(size);
    t_block *block = free_blocks[list];
    if (block) [[likely]]
        free_blocks[list] = block->next;
    else
        block = new_block(room_in(list));
    block->size = static_cast<uint32_t>(size);
    block->state = IN_USE;
    memcpy(block->memory() + size, &FENCE, sizeof FENCE);
    in_use.blocks++;
    in_use.bytes += static_cast<int64_t>(size);
    return block->memory();
}

bool is_ours(const void *memory)
{
    return memory >= place && memory < place + ALL_OF_IT;
}

[[gnu::noinline, gnu::cold]] void fail_for(const t_block &block)
{
    if (block.state != IN_USE)
        fail("memory is given back that %s", block.state == FREE ? "was given back before" : "is no block");
    fail("a block of %u bytes was written beyond its end", block.size);
}

t_block *block_of(void *memory)
{
    t_block *block = static_cast<t_block *>(memory) - 1;
    if (block->state != IN_USE || memcmp(block->memory() + block->size, &FENCE, sizeof FENCE) != 0) [[unlikely]]
        fail_for(*block);
    return block;
}

void give_back(void *memory)
{
    t_block *block = block_of(memory);
    const size_t size = block->size, list = list_for(size);
    in_use.blocks--;
    in_use.bytes -= static_cast<int64_t>(size);
    // Grain by grain: the library's function has more to look at than there is to be filled.
    for (size_t filled = 0; filled < std::min(size, FILLED); filled += GRAIN)
        memset(block->memory() + filled, OLD_RUBBISH, GRAIN);
    block->state = FREE;
    block->next = free_blocks[list];
    free_blocks[list] = block;
}

} // namespace

t_memory_use memory_in_use()
{
    return in_use;
}

void refuse_memory(uint64_t first, uint64_t count)
{
    refused_from = allocations + 1 + first;
    refused_to = refused_from + count;
}

bool memory_will_be_refused()
{
    return refused_from < refused_to && allocations < refused_to;
}

bool memory_was_refused(t_time since)
{
    return refused_at != NEVER && refused_at >= since;
}

t_own_memory::t_own_memory()
{
    own_depth++;
}

t_own_memory::~t_own_memory()
{
    own_depth--;
}

} // namespace sim

using namespace sim;

// What it holds is up to the caller.
[[gnu::always_inline]] static inline void *take(size_t size)
{
    if (is_refused())
        return nullptr;
    return IS_THE_SANITIZERS ? __real_malloc(size) : take_block(size);
}

static void *take_with_rubbish(size_t size)
{
    void *const memory = take(size);
    return memory && !IS_THE_SANITIZERS ? memset(memory, NEW_RUBBISH, std::min(size, FILLED)) : memory;
}

void *__wrap_malloc(size_t size)
{
    return inside ? take_with_rubbish(size) : __real_malloc(size);
}

void *__wrap_calloc(size_t count, size_t size)
{
    if (!inside)
        return __real_calloc(count, size);
    size_t all = 0;
    if (__builtin_mul_overflow(count, size, &all))
        fail("calloc is asked for %zu times %zu bytes", count, size);
    void *const memory = take(all);
    return memory ? memset(memory, 0, all) : nullptr;
}

void *__wrap_realloc(void *memory, size_t size)
{
    if (!memory)
        return __wrap_malloc(size);
    if (!is_ours(memory))
        return inside && is_refused() ? nullptr : __real_realloc(memory, size);
    const size_t former = block_of(memory)->size;
    void *const moved = take_with_rubbish(size);
    if (!moved)
        return nullptr;
    memcpy(moved, memory, std::min(former, size));
    give_back(memory);
    return moved;
}

void __wrap_free(void *memory)
{
    if (is_ours(memory))
        give_back(memory);
    else
        __real_free(memory);
}

char *__wrap_strdup(const char *text)
{
    const size_t size = strlen(text) + 1;
    auto *copy = static_cast<char *>(inside ? take(size) : __real_malloc(size));
    return copy ? static_cast<char *>(memcpy(copy, text, size)) : nullptr;
}

static int print_into_new(char **text, const char *format, va_list arguments)
{
    char line[LONGEST_TEXT];
    const int length = vsnprintf(line, sizeof line, format, arguments);
    if (length >= static_cast<int>(sizeof line))
        fail("asprintf makes a text of %d bytes, more than the simulation knows", length);
    *text = length < 0 ? nullptr : __wrap_strdup(line);
    return *text ? length : -1;
}

int __wrap_asprintf(char **text, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = print_into_new(text, format, arguments);
    va_end(arguments);
    return length;
}

int __wrap___asprintf_chk(char **text, int, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = print_into_new(text, format, arguments);
    va_end(arguments);
    return length;
}
