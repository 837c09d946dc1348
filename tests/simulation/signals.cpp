// SPDX-License-Identifier: MIT
// Signals, their handlers, and the timers that send them.
#include "tests/simulation/signals.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/time.h>

#include "tests/simulation/commands.h"
#include "tests/simulation/door.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/outcome.h"

namespace sim {

static struct sigaction actions[NSIG];
uint64_t pending_for_process;
static siginfo_t process_info[NSIG];

static constexpr uint64_t bit(int number)
{
    return uint64_t{1} << (number - 1);
}

int first_signal(uint64_t bits)
{
    return bits ? __builtin_ctzll(bits) + 1 : 0;
}

void send_signal(int number)
{
    log_line("signal", "%d comes", number);
    pending_for_process |= bit(number);
    process_info[number] = {};
    process_info[number].si_signo = number;
    process_info[number].si_code = SI_USER;
}

bool has_handler(int number)
{
    return actions[number].sa_handler != SIG_DFL && actions[number].sa_handler != SIG_IGN;
}

static uint64_t deliverable(const t_thread &thread)
{
    return (thread.pending_signals | pending_for_process) & ~thread.blocked_signals;
}

void take_pending(int number)
{
    pending_for_process &= ~bit(number);
}

uint64_t bits_of(const sigset_t *set)
{
    uint64_t bits = 0;
    for (int number = 1; number < NSIG; number++)
        if (sigismember(set, number) == 1)
            bits |= bit(number);
    return bits;
}

static void deliver(int number, siginfo_t info)
{
    if (actions[number].sa_handler == SIG_IGN)
        return;
    if (!has_handler(number))
        fail("signal %d ends the process: it has no handler", number);
    t_thread &me = self();
    const uint64_t before = me.blocked_signals;
    me.blocked_signals |= bit(number);
    const int saved_errno = errno;
    if (actions[number].sa_flags & SA_SIGINFO)
        actions[number].sa_sigaction(number, &info, nullptr);
    else
        actions[number].sa_handler(number);
    errno = saved_errno;
    me.blocked_signals = before;
}

void deliver_signals()
{
    t_thread &me = self();
    while (const uint64_t due = deliverable(me)) {
        const int number = first_signal(due);
        const bool own = me.pending_signals & bit(number);
        const siginfo_t info = own ? me.pending_info[number] : process_info[number];
        (own ? me.pending_signals : pending_for_process) &= ~bit(number);
        deliver(number, info);
    }
}

// --- timers

namespace {

struct t_timer {
    bool exists = false;
    t_time next = NEVER;
    t_time interval = 0;
    int number = 0;             // of its signal
    t_thread *thread = nullptr; // null: the process
    sigval value = {};
};

} // namespace

constexpr int MOST_TIMERS = 16;
static t_timer timers[MOST_TIMERS]; // the first one is setitimer's

int count_of_timers()
{
    return static_cast<int>(
        std::count_if(timers + 1, timers + MOST_TIMERS, [](const t_timer &one) { return one.exists; }));
}

t_time next_timer_time = NEVER;

static void find_next_time()
{
    next_timer_time = NEVER;
    for (const t_timer &timer : timers)
        next_timer_time = std::min(next_timer_time, timer.next);
}

static void expire(t_timer &timer)
{
    timer.next = timer.interval > 0 ? now() + timer.interval : NEVER;
    siginfo_t info = {};
    info.si_signo = timer.number;
    info.si_code = SI_TIMER;
    info.si_value = timer.value;
    if (!timer.thread) {
        send_signal(timer.number);
        return;
    }
    timer.thread->pending_signals |= bit(timer.number);
    timer.thread->pending_info[timer.number] = info;
}

void fire_timers()
{
    if (next_timer_time > now())
        return;
    for (t_timer &timer : timers)
        if (timer.next <= now())
            expire(timer);
    find_next_time();
}

static t_time as_time(const timespec &time)
{
    return time.tv_sec * SECOND + time.tv_nsec / 1000;
}

static void put_bits(uint64_t bits, sigset_t *set)
{
    sigemptyset(set);
    for (; bits; bits &= bits - 1)
        sigaddset(set, first_signal(bits));
}

} // namespace sim

using namespace sim;

DOOR(int, sigaction, (int number, const struct sigaction *wanted, struct sigaction *former), (number, wanted, former),
     t_door::signal)
{
    if (number < 1 || number >= NSIG || (wanted && (number == SIGKILL || number == SIGSTOP))) {
        errno = EINVAL;
        return -1;
    }
    const struct sigaction before = actions[number];
    if (wanted)
        actions[number] = *wanted;
    if (former)
        *former = before;
    return 0;
}

DOOR(sighandler_t, signal, (int number, sighandler_t handler), (number, handler), t_door::signal)
{
    const sighandler_t before = actions[number].sa_handler;
    actions[number] = {};
    actions[number].sa_handler = handler;
    return before;
}

DOOR(int, pthread_sigmask, (int how, const sigset_t *set, sigset_t *former), (how, set, former), t_door::signal)
{
    t_thread &me = self();
    const uint64_t named = set ? bits_of(set) : 0;
    if (former)
        put_bits(me.blocked_signals, former);
    if (set && how == SIG_SETMASK)
        me.blocked_signals = named;
    else if (set)
        me.blocked_signals = how == SIG_BLOCK ? me.blocked_signals | named : me.blocked_signals & ~named;
    deliver_signals();
    return 0;
}

DOOR(int, raise, (int number), (number), t_door::signal)
{
    t_thread &me = self();
    siginfo_t info = {};
    info.si_signo = number;
    info.si_code = SI_TKILL;
    info.si_pid = DAEMON_PID;
    me.pending_signals |= bit(number);
    me.pending_info[number] = info;
    deliver_signals();
    return 0;
}

DOOR(int, kill, (pid_t pid, int number), (pid, number), t_door::signal)
{
    return signal_commands(pid, number);
}

DOOR(int, setitimer, (__itimer_which_t which, const itimerval *wanted, itimerval *former), (which, wanted, former),
     t_door::signal)
{
    if (which != ITIMER_REAL || former)
        fail("setitimer is used in a way that the simulation does not know");
    timers[0].number = SIGALRM;
    const t_time first = wanted->it_value.tv_sec * SECOND + wanted->it_value.tv_usec;
    timers[0].next = first > 0 ? now() + first : NEVER;
    find_next_time();
    return 0;
}

DOOR(int, timer_create, (clockid_t clock, sigevent *event, timer_t *made), (clock, event, made), t_door::signal)
{
    for (int i = 1; i < MOST_TIMERS; i++) {
        if (timers[i].exists)
            continue;
        timers[i] = {};
        timers[i].exists = true;
        timers[i].number = event->sigev_signo;
        timers[i].thread = thread_at(event->_sigev_un._tid - DAEMON_PID);
        timers[i].value = event->sigev_value;
        *made = reinterpret_cast<timer_t>(static_cast<intptr_t>(i));
        return 0;
    }
    errno = EAGAIN;
    return -1;
}

DOOR(int, timer_settime, (timer_t timer, int flags, const itimerspec *wanted, itimerspec *former),
     (timer, flags, wanted, former), t_door::signal)
{
    t_timer &set = timers[reinterpret_cast<intptr_t>(timer)];
    const t_time first = as_time(wanted->it_value);
    set.interval = as_time(wanted->it_interval);
    set.next = first > 0 ? now() + first : NEVER;
    find_next_time();
    return 0;
}

DOOR(int, timer_delete, (timer_t timer), (timer), t_door::signal)
{
    timers[reinterpret_cast<intptr_t>(timer)] = {};
    find_next_time();
    return 0;
}
