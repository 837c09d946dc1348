// SPDX-License-Identifier: MIT
#include "tests/simulation/scheduler.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "tests/simulation/checks.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/outcome.h"
#include "tests/simulation/real.h"
#include "tests/simulation/signals.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr t_time COST_OF_A_DOOR = MICROSECOND;     // so that whoever polls the clock comes to an end
constexpr int MOST_DOORS_WITHOUT_REST = 1'000'000; // a second in which somebody always wanted to run

constinit thread_local bool inside = false;
t_time life_limit = NEVER;
unsigned switch_rate = 0;
uint64_t life_seed = 0;
uint64_t doors_passed = 0;

t_time clock_now = START_OF_CLOCK;
bool in_world = false;

static int doors_since_jump = 0;
static t_thread threads[MOST_THREADS];
static int threads_started = 0;
static constinit thread_local t_thread *own = nullptr;

static uint64_t base_of(uint64_t what)
{
    return mix(life_seed ^ mix(what));
}

uint64_t draw(uint64_t what, uint64_t number)
{
    return mix(base_of(what) + number);
}

// draw(0, doors_passed), at every door.
static bool seed_says_switch()
{
    static const uint64_t base = base_of(0);
    return (mix(base + doors_passed) & 0xffff) < switch_rate;
}

t_thread &self()
{
    return *own;
}

t_thread *thread_of(pthread_t handle)
{
    for (int i = threads_started - 1; i >= 0; i--)
        if (pthread_equal(threads[i].handle, handle))
            return &threads[i];
    return nullptr;
}

int count_of_threads()
{
    return static_cast<int>(
        std::count_if(threads, threads + threads_started, [](const t_thread &one) { return one.state != one.ended; }));
}

t_thread *thread_at(int number)
{
    return number < threads_started ? &threads[number] : nullptr;
}

// --- who goes on

static bool is_over(const t_thread &thread)
{
    const t_wait &wait = thread.wait;
    return (wait.is_over && wait.is_over(wait.of)) || wait.deadline <= clock_now ||
           (wait.by_signals && has_deliverable_signal(thread)) ||
           (wait.may_cancel && thread.cancelled && thread.cancel_enabled);
}

static bool can_run(const t_thread &thread)
{
    return thread.state == t_thread::ready || (thread.state == t_thread::waiting && is_over(thread));
}

// The same when nothing has happened but that time went by since nobody could run.
static bool can_run_by_time(const t_thread &thread)
{
    return thread.state == t_thread::waiting && thread.wait.deadline <= clock_now;
}

static t_thread *pick_runnable(bool (*can_run)(const t_thread &thread))
{
    t_thread *able[MOST_THREADS];
    size_t count = 0;
    for (int i = 0; i < threads_started; i++)
        if (can_run(threads[i]))
            able[count++] = &threads[i];
    if (count == 0)
        return nullptr;
    return able[count == 1 ? 0 : draw(1, doors_passed) % count];
}

static void let_world_happen()
{
    if (in_world)
        return;
    in_world = true;
    while (world_next_time() <= clock_now)
        world_happen();
    in_world = false;
}

[[noreturn]] static void fail_stuck(const char *how)
{
    for (int i = 0; i < threads_started; i++)
        if (threads[i].state == t_thread::waiting)
            log_line("stuck", "thread %d waits for %s", i, threads[i].wait.what);
    fail("never stuck: %s", how);
}

static void jump()
{
    t_time next = world_next_time();
    for (int i = 0; i < threads_started; i++)
        if (threads[i].state == t_thread::waiting)
            next = std::min(next, threads[i].wait.deadline);
    next = std::min(next, next_timer_time);
    if (next == NEVER)
        fail_stuck("no timer, no event and no descriptor is left that could bring the next step");
    if (next > life_limit)
        fail_stuck("the life goes on beyond its limit");
    clock_now = std::max(clock_now, next);
    doors_since_jump = 0;
}

static t_thread *choose()
{
    auto *who_can_run = can_run;
    for (;;) {
        if (t_thread *next = pick_runnable(who_can_run))
            return next;
        look_at_rest();
        jump();
        const bool happens = next_timer_time <= clock_now || world_next_time() <= clock_now;
        who_can_run = happens ? can_run : can_run_by_time;
        fire_timers();
        let_world_happen();
    }
}

// The caller's state says whether and when it may run again.
static void go_on()
{
    t_thread &me = *own;
    t_thread *next = choose();
    log_number(static_cast<uint64_t>(next->number));
    if (next == &me)
        return;
    hand_over(me.baton, next->baton);
}

struct t_cancelled {};

// What the thread holds in this door is given back while it has the baton.
static void test_cancel(t_thread &me)
{
    if (me.cancelled && me.cancel_enabled)
        throw t_cancelled{};
}

static void *result_of(t_thread &thread)
{
    try {
        return thread.body(thread.argument);
    } catch (t_cancelled) {
        return PTHREAD_CANCELED;
    }
}

void door(t_door kind)
{
    doors_passed++;
    if (++doors_since_jump > MOST_DOORS_WITHOUT_REST)
        fail("never stuck: thread %d runs in circles", own->number);
    clock_now += COST_OF_A_DOOR;
    log_number(static_cast<uint64_t>(clock_now) << 8 | static_cast<uint64_t>(kind));
    if (next_timer_time <= clock_now)
        fire_timers();
    if (world_next_time() <= clock_now)
        let_world_happen();
    if (threads_started > 1 && seed_says_switch())
        go_on();
    if (has_deliverable_signal(*own))
        deliver_signals();
}

t_woken wait_for(const t_wait &wait)
{
    t_thread &me = *own;
    if (me.spins_held > 0 && wait.deadline > clock_now)
        fail("a spin lock is held across a wait for %s", wait.what);
    me.wait = wait;
    me.state = t_thread::waiting;
    go_on();
    me.state = t_thread::ready;
    if (wait.may_cancel)
        test_cancel(me);
    const bool was_ready = wait.is_over && wait.is_over(wait.of);
    const bool signalled = wait.by_signals && has_deliverable_signal(me);
    deliver_signals();
    if (was_ready)
        return t_woken::ready;
    return signalled ? t_woken::signal : t_woken::time_over;
}

void pass_time(t_time microseconds)
{
    const t_wait wait = {.deadline = clock_now + microseconds, .what = "the time to pass"};
    while (clock_now < wait.deadline)
        wait_for(wait);
}

// --- the life of threads

void begin_threads()
{
    own = &threads[0];
    begin_baton(own->baton);
    threads[0].handle = pthread_self();
    threads_started = 1;
    inside = true;
}

[[noreturn]] static void end_thread(void *result)
{
    t_thread &me = *own;
    log_line("thread", "%d ends", me.number);
    if (me.spins_held || me.locks_held)
        fail("thread %d ends with a lock", me.number);
    me.result = result;
    me.state = t_thread::ended;
    inside = false;
    hand_over_for_good(me.baton, choose()->baton);
    pthread_exit(result);
}

static void *run_thread(void *record)
{
    own = static_cast<t_thread *>(record);
    park(own->baton);
    inside = true;
    end_thread(result_of(*own));
}

int start_thread(pthread_t *handle, const pthread_attr_t *attributes, void *(*body)(void *), void *argument)
{
    if (threads_started == MOST_THREADS)
        fail("the simulation has no room for another thread");
    t_thread &thread = threads[threads_started];
    thread.number = threads_started;
    thread.body = body;
    thread.argument = argument;
    thread.blocked_signals = own->blocked_signals;
    const int error = __real_pthread_create(&thread.handle, attributes, run_thread, &thread);
    if (error != 0)
        return error;
    await_parked(thread.baton);
    *handle = thread.handle;
    threads_started++;
    log_line("thread", "%d starts", thread.number);
    return 0;
}

void fail(const char *format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    end_life(t_verdict::failed, text);
}

} // namespace sim
