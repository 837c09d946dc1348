// SPDX-License-Identifier: MIT
// Allocations of the daemon and of every library in it: counted, noted by their stacks, and refused as the page says.
#include "faults.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <unwind.h>

namespace {

constexpr uint64_t HASH_START = 14695981039346656037ULL;
constexpr uint64_t HASH_FACTOR = 1099511628211ULL;
constexpr int OWN_FRAMES = 4;                // from stack_of_caller() to malloc(), none of them inlined
constexpr int JSON_C_THAT_CHECKS = 0x001100; // 0.17

// Set while a thread is in here: what unwinding or printing allocates is nobody's business.
[[gnu::tls_model("initial-exec")]] thread_local bool inside;

struct t_stack {
    uint64_t frames[STACK_DEPTH + OWN_FRAMES] = {};
    int count = 0;
};

_Unwind_Reason_Code add_frame(_Unwind_Context *context, void *argument)
{
    auto *stack = static_cast<t_stack *>(argument);
    if (stack->count == STACK_DEPTH + OWN_FRAMES)
        return _URC_END_OF_STACK;
    stack->frames[stack->count++] = _Unwind_GetIP(context);
    return _URC_NO_REASON;
}

[[gnu::noinline]] t_stack stack_of_caller()
{
    t_stack stack;
    _Unwind_Backtrace(add_frame, &stack);
    return stack;
}

uint64_t number_of(const t_stack &stack)
{
    uint64_t hash = HASH_START;
    for (int i = OWN_FRAMES; i < stack.count; i++)
        hash = (hash ^ stack.frames[i]) * HASH_FACTOR;
    return hash;
}

bool is_in(uint64_t address, const char *function)
{
    Dl_info found = {};
    return dladdr(reinterpret_cast<void *>(address), &found) != 0 && found.dli_sname &&
           strcmp(found.dli_sname, function) == 0;
}

// Before 0.17, json-c copies a member's name without looking at the result.
bool json_c_would_crash(const t_stack &stack)
{
    static const auto version = real<int (*)()>("json_c_version_num");
    return version && version() < JSON_C_THAT_CHECKS && is_in(stack.frames[OWN_FRAMES], "json_tokener_parse_ex");
}

// The one place where an allocation is counted; true when it has to fail.
[[gnu::noinline]] bool refused_now(t_memory_faults &faults, uint64_t *survey, bool copies_text)
{
    const int64_t number = __atomic_add_fetch(&faults.allocations, 1, __ATOMIC_RELAXED);
    if (faults.surveying && number < SURVEY_CAPACITY)
        survey[number] = number_of(stack_of_caller());
    if (faults.first == 0 || number < faults.first || number >= faults.first + faults.count)
        return false;
    const t_stack stack = stack_of_caller();
    if (copies_text && json_c_would_crash(stack)) {
        __atomic_add_fetch(&faults.spared, 1, __ATOMIC_RELAXED);
        return false;
    }
    if (__atomic_fetch_add(&faults.refused, 1, __ATOMIC_RELAXED) == 0) {
        for (int i = 0; i < STACK_DEPTH; i++)
            faults.stack[i] = stack.frames[i + OWN_FRAMES];
    }
    return true;
}

[[gnu::noinline]] bool refused(bool copies_text = false)
{
    t_fault_page *page = fault_page();
    if (!page || inside)
        return false;
    inside = true;
    const bool result = refused_now(page->memory, page->survey, copies_text);
    inside = false;
    if (result)
        errno = ENOMEM;
    return result;
}

using t_free = void (*)(void *);
using t_malloc = void *(*)(size_t);
using t_calloc = void *(*)(size_t, size_t);
using t_realloc = void *(*)(void *, size_t);
using t_aligned = void *(*)(size_t, size_t);
using t_posix_aligned = int (*)(void **, size_t, size_t);

struct t_real {
    t_free free;
    t_malloc malloc;
    t_calloc calloc;
    t_realloc realloc;
    t_aligned memalign;
    t_aligned aligned_alloc;
    t_posix_aligned posix_memalign;
};

// The next ones behind these: the C library's, or a sanitizer's. Looking for them may free something already; that is
// let go.
const t_real &next()
{
    static t_real functions;
    static bool looked;
    if (looked)
        return functions;
    looked = true;
    functions.malloc = real<t_malloc>("malloc");
    functions.calloc = real<t_calloc>("calloc");
    functions.realloc = real<t_realloc>("realloc");
    functions.memalign = real<t_aligned>("memalign");
    functions.aligned_alloc = real<t_aligned>("aligned_alloc");
    functions.posix_memalign = real<t_posix_aligned>("posix_memalign");
    functions.free = real<t_free>("free");
    return functions;
}

// Keeps count of what lives.
void *born(void *memory)
{
    if (t_fault_page *page = fault_page(); page && memory)
        __atomic_add_fetch(&page->memory.living, 1, __ATOMIC_RELAXED);
    return memory;
}

void *copy_of(const char *text, size_t length)
{
    auto *copy = static_cast<char *>(born(next().malloc(length + 1)));
    if (!copy)
        return nullptr;
    memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

void *malloc(size_t size) noexcept
{
    return refused() ? nullptr : born(next().malloc(size));
}

void *calloc(size_t count, size_t size) noexcept
{
    return refused() ? nullptr : born(next().calloc(count, size));
}

void *realloc(void *memory, size_t size) noexcept
{
    if (refused())
        return nullptr;
    void *moved = next().realloc(memory, size);
    return memory ? moved : born(moved);
}

void *memalign(size_t alignment, size_t size) noexcept
{
    return refused() ? nullptr : born(next().memalign(alignment, size));
}

void *aligned_alloc(size_t alignment, size_t size) noexcept
{
    return refused() ? nullptr : born(next().aligned_alloc(alignment, size));
}

int posix_memalign(void **memory, size_t alignment, size_t size) noexcept
{
    if (refused())
        return ENOMEM;
    const int error = next().posix_memalign(memory, alignment, size);
    if (error == 0)
        born(*memory);
    return error;
}

// By hand: the one of a sanitizer would not come by malloc() above.
char *strdup(const char *text) noexcept
{
    return refused(true) ? nullptr : static_cast<char *>(copy_of(text, strlen(text)));
}

char *strndup(const char *text, size_t size) noexcept
{
    return refused(true) ? nullptr : static_cast<char *>(copy_of(text, strnlen(text, size)));
}

void free(void *memory) noexcept
{
    if (t_fault_page *page = fault_page(); page && memory)
        __atomic_sub_fetch(&page->memory.living, 1, __ATOMIC_RELAXED);
    if (const t_free next_free = next().free)
        next_free(memory);
}

} // extern "C"
#pragma GCC visibility pop
