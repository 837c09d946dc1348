// SPDX-License-Identifier: MIT
#include "tests/simulation/baton.h"

#include <cstddef>
#include <linux/futex.h>
#include <sys/auxv.h>
#include <sys/syscall.h>

#include "tests/simulation/real.h"

namespace sim {

static void futex(int *word, int operation, int value)
{
    __real_syscall(SYS_futex, word, operation | FUTEX_PRIVATE_FLAG, value, nullptr, nullptr, 0);
}

static void raise(int *word)
{
    __atomic_store_n(word, 1, __ATOMIC_RELEASE);
    futex(word, FUTEX_WAKE, 1);
}

static void take(int *word)
{
    while (__atomic_exchange_n(word, 0, __ATOMIC_ACQUIRE) == 0)
        futex(word, FUTEX_WAIT, 0);
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define __SANITIZE_ADDRESS__ 1
#endif
#endif

#if defined(__x86_64__) && \
    !defined(__SANITIZE_ADDRESS__) // the sanitizer knows each thread's stack by the kernel's thread

constexpr unsigned long MAY_MOVE_BASE = 1UL << 1; // in AT_HWCAP2: a process may say where its variables are
static const bool by_hand = getauxval(AT_HWCAP2) & MAY_MOVE_BASE;

extern "C" {
void simulation_go_on_as(void **my_stack, void *stack, unsigned long self);
void simulation_park(t_baton *mine);
}

// What a call keeps goes onto the one stack, and comes from the other. A parked thread sits in a call of the kernel
// that needs no stack, and goes on where its stack stands by then.
asm(R"(
    .macro keep_registers
    push %rbp
    push %rbx
    push %r12
    push %r13
    push %r14
    push %r15
    .endm

    .pushsection .text
    .globl simulation_go_on_as, simulation_park
    .hidden simulation_go_on_as, simulation_park
simulation_go_on_as:
    keep_registers
    mov %rsp, (%rdi)
    mov %rsi, %rsp
    wrfsbase %rdx
1:  pop %r15
    pop %r14
    pop %r13
    pop %r12
    pop %rbx
    pop %rbp
    ret

simulation_park:
    keep_registers
    mov %rdi, %rbx
    mov %rsp, (%rbx)
    lea 16(%rbx), %rdi      # is_parked: raise() it
    movl $1, (%rdi)
    mov $202, %eax
    mov $129, %esi
    mov $1, %edx
    syscall
2:  lea 20(%rbx), %rdi      # is_mine: wait while it is 0
    mov $202, %eax
    mov $128, %esi
    xor %edx, %edx
    xor %r10d, %r10d
    syscall
    cmpl $0, 20(%rbx)
    je 2b
    mov (%rbx), %rsp
    jmp 1b
    .popsection
    .purgem keep_registers
)");
static_assert(offsetof(t_baton, stack) == 0 && offsetof(t_baton, is_parked) == 16 && offsetof(t_baton, is_mine) == 20);
static_assert(SYS_futex == 202 && (FUTEX_WAIT | FUTEX_PRIVATE_FLAG) == 128 && (FUTEX_WAKE | FUTEX_PRIVATE_FLAG) == 129);

static unsigned long own_variables()
{
    unsigned long self = 0;
    asm("rdfsbase %0" : "=r"(self));
    return self;
}

#else

constexpr bool by_hand = false;

static void simulation_go_on_as(void **, void *, unsigned long) {}
static void simulation_park(t_baton *) {}
static unsigned long own_variables()
{
    return 0;
}

#endif

static t_baton *leaving = nullptr; // has left its stack to its own thread of the kernel, which is to wake up

static void let_go()
{
    if (leaving)
        raise(&leaving->is_mine);
    leaving = nullptr;
}

void begin_baton(t_baton &mine)
{
    if (by_hand)
        mine.self = own_variables();
}

void park(t_baton &mine)
{
    if (!by_hand) {
        take(&mine.is_mine);
        return;
    }
    mine.self = own_variables();
    simulation_park(&mine);
    let_go();
}

void await_parked(t_baton &baton)
{
    if (by_hand)
        take(&baton.is_parked);
}

void hand_over(t_baton &mine, t_baton &next)
{
    if (by_hand) {
        simulation_go_on_as(&mine.stack, next.stack, next.self);
        let_go();
    } else {
        raise(&next.is_mine);
        take(&mine.is_mine);
    }
}

void hand_over_for_good(t_baton &mine, t_baton &next)
{
    if (by_hand) {
        leaving = &mine;
        simulation_go_on_as(&mine.stack, next.stack, next.self);
    } else {
        raise(&next.is_mine);
    }
}

} // namespace sim
