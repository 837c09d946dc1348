// SPDX-License-Identifier: MIT
// The C library behind the doors, for the simulation itself.
#pragma once

#include <pthread.h>
#include <sys/types.h>

extern "C" {
long __real_syscall(long number, ...);
ssize_t __real_write(int fd, const void *data, size_t size);
pid_t __real_fork(void);
pid_t __real_waitpid(pid_t pid, int *status, int options);
[[noreturn]] void __real__exit(int status);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument);
int __real_pthread_join(pthread_t thread, void **result);
int __real_pthread_detach(pthread_t thread);
}
