// SPDX-License-Identifier: MIT
// Threads and their locks. A lock is known by where it stands; what stands there is never touched.
#include <cerrno>
#include <unordered_map>

#include "tests/simulation/door.h"
#include "tests/simulation/real.h"
#include "tests/simulation/router.h"

using namespace sim;

namespace {

struct t_lock {
    const t_thread *owner = nullptr;
    int readers = 0;
};

std::unordered_map<const volatile void *, t_lock> locks; // never walked: its order is that of addresses

t_lock &lock_at(const volatile void *place)
{
    return locks[place];
}

bool is_free(const void *lock)
{
    const auto *one = static_cast<const t_lock *>(lock);
    return !one->owner && one->readers == 0;
}

bool is_free_for_readers(const void *lock)
{
    return !static_cast<const t_lock *>(lock)->owner;
}

void take(t_lock &lock, const char *what)
{
    if (lock.owner == &self())
        fail("thread %d takes %s again that it holds", self().number, what);
    while (!is_free(&lock))
        wait_for(
            {.is_over = is_free, .of = &lock, .by_signals = true, .what = what}); // a handler runs, and it waits on
    lock.owner = &self();
}

void give_back(t_lock &lock, const char *what)
{
    if (lock.owner != &self())
        fail("thread %d gives back %s that it does not hold", self().number, what);
    lock.owner = nullptr;
}

int destroy(const volatile void *place, const char *what)
{
    if (!is_free(&lock_at(place)))
        fail("%s is destroyed while it is held", what);
    locks.erase(place);
    return 0;
}

} // namespace

// --- locks

DOOR(int, pthread_mutex_init, (pthread_mutex_t * mutex, const pthread_mutexattr_t *attributes), (mutex, attributes),
     t_door::lock)
{
    lock_at(mutex) = {};
    return 0;
}

DOOR(int, pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex), t_door::lock)
{
    take(lock_at(mutex), "a mutex");
    self().locks_held++;
    return 0;
}

DOOR(int, pthread_mutex_unlock, (pthread_mutex_t * mutex), (mutex), t_door::lock)
{
    give_back(lock_at(mutex), "a mutex");
    self().locks_held--;
    return 0;
}

DOOR(int, pthread_mutex_destroy, (pthread_mutex_t * mutex), (mutex), t_door::lock)
{
    return destroy(mutex, "a mutex");
}

DOOR(int, pthread_rwlock_init, (pthread_rwlock_t * lock, const pthread_rwlockattr_t *attributes), (lock, attributes),
     t_door::lock)
{
    lock_at(lock) = {};
    return 0;
}

DOOR(int, pthread_rwlock_rdlock, (pthread_rwlock_t * lock), (lock), t_door::lock)
{
    t_lock &wanted = lock_at(lock);
    if (wanted.owner == &self())
        fail("thread %d reads under a lock that it holds for writing", self().number);
    while (!is_free_for_readers(&wanted))
        wait_for({.is_over = is_free_for_readers, .of = &wanted, .by_signals = true, .what = "a read lock"});
    wanted.readers++;
    self().locks_held++;
    self().tables_held++;
    return 0;
}

DOOR(int, pthread_rwlock_wrlock, (pthread_rwlock_t * lock), (lock), t_door::lock)
{
    take(lock_at(lock), "a write lock");
    self().locks_held++;
    self().tables_held++;
    return 0;
}

DOOR(int, pthread_rwlock_unlock, (pthread_rwlock_t * lock), (lock), t_door::lock)
{
    t_lock &held = lock_at(lock);
    self().locks_held--;
    self().tables_held--;
    if (held.readers > 0)
        held.readers--;
    else
        give_back(held, "a write lock");
    return 0;
}

DOOR(int, pthread_rwlock_destroy, (pthread_rwlock_t * lock), (lock), t_door::lock)
{
    return destroy(lock, "a read-write lock");
}

DOOR(int, pthread_spin_init, (pthread_spinlock_t * lock, int shared), (lock, shared), t_door::lock)
{
    lock_at(lock) = {};
    return 0;
}

DOOR(int, pthread_spin_lock, (pthread_spinlock_t * lock), (lock), t_door::lock)
{
    take(lock_at(lock), "a spin lock");
    self().spins_held++;
    return 0;
}

DOOR(int, pthread_spin_unlock, (pthread_spinlock_t * lock), (lock), t_door::lock)
{
    give_back(lock_at(lock), "a spin lock");
    self().spins_held--;
    return 0;
}

DOOR(int, pthread_spin_destroy, (pthread_spinlock_t * lock), (lock), t_door::lock)
{
    return destroy(lock, "a spin lock");
}

// --- threads

DOOR(int, pthread_create, (pthread_t * thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument),
     (thread, attributes, body, argument), t_door::thread)
{
    return threads_are_refused ? EAGAIN : start_thread(thread, attributes, body, argument);
}

DOOR(int, pthread_detach, (pthread_t thread), (thread), t_door::thread)
{
    if (t_thread *detached = thread_of(thread))
        detached->detached = true;
    return __real_pthread_detach(thread);
}

static bool has_ended(const void *thread)
{
    return static_cast<const t_thread *>(thread)->state == t_thread::ended;
}

DOOR(int, pthread_join, (pthread_t thread, void **result), (thread, result), t_door::thread)
{
    const t_thread *joined = thread_of(thread);
    while (joined && !has_ended(joined))
        wait_for({.is_over = has_ended, .of = joined, .by_signals = true, .what = "the end of a thread"});
    return __real_pthread_join(thread, result);
}

DOOR(int, pthread_cancel, (pthread_t thread), (thread), t_door::thread)
{
    if (t_thread *cancelled = thread_of(thread))
        cancelled->cancelled = true;
    return 0;
}

DOOR(int, pthread_setcancelstate, (int state, int *former), (state, former), t_door::thread)
{
    if (former)
        *former = self().cancel_enabled ? PTHREAD_CANCEL_ENABLE : PTHREAD_CANCEL_DISABLE;
    self().cancel_enabled = state == PTHREAD_CANCEL_ENABLE;
    return 0;
}

DOOR(int, pause, (void), (), t_door::wait)
{
    while (wait_for({.by_signals = true, .may_cancel = true, .what = "a signal"}) != t_woken::signal) {
    }
    errno = EINTR;
    return -1;
}
