// SPDX-License-Identifier: MIT
// Scope guards for what the C library hands out.
#pragma once

#include <pthread.h>
#include <unistd.h>

// Owns a descriptor; a negative one owns nothing.
struct t_fd_guard {
    int fd;
    explicit t_fd_guard(int opened) : fd(opened) {}
    ~t_fd_guard()
    {
        if (fd >= 0)
            close(fd);
    }
    t_fd_guard(const t_fd_guard &) = delete;
    t_fd_guard &operator=(const t_fd_guard &) = delete;
};

template <typename Lock, int (*acquire)(Lock *), int (*release)(Lock *)> struct t_lock_guard {
    Lock &lock;
    explicit t_lock_guard(Lock &wanted) : lock(wanted) { acquire(&lock); }
    ~t_lock_guard() { release(&lock); }
    t_lock_guard(const t_lock_guard &) = delete;
    t_lock_guard &operator=(const t_lock_guard &) = delete;
};

using t_read_guard = t_lock_guard<pthread_rwlock_t, pthread_rwlock_rdlock, pthread_rwlock_unlock>;
using t_write_guard = t_lock_guard<pthread_rwlock_t, pthread_rwlock_wrlock, pthread_rwlock_unlock>;
using t_mutex_guard = t_lock_guard<pthread_mutex_t, pthread_mutex_lock, pthread_mutex_unlock>;

// A spin lock's type is volatile, so it has a guard of its own.
struct t_spin_guard {
    pthread_spinlock_t &lock;
    explicit t_spin_guard(pthread_spinlock_t &wanted) : lock(wanted) { pthread_spin_lock(&lock); }
    ~t_spin_guard() { pthread_spin_unlock(&lock); }
    t_spin_guard(const t_spin_guard &) = delete;
    t_spin_guard &operator=(const t_spin_guard &) = delete;
};
