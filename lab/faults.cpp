// SPDX-License-Identifier: MIT
// Preloaded into the daemon: lets the one system call that LAB_FAULT names fail, or a signal arrive at the worst
// moment. "fork", "eventfd", "raise", "pthread_create:2" (the second thread), "term-at-fork" (in the child, at once).
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

// The scripts that the daemon starts inherit the environment, but no faults.
static bool wanted(const char *fault)
{
    const char *named = getenv("LAB_FAULT");
    return named && strcmp(named, fault) == 0 && strcmp(program_invocation_short_name, "wan_detect") == 0;
}

template <typename Function> static Function real(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

#pragma GCC visibility push(default)
extern "C" {

pid_t fork() noexcept
{
    if (wanted("fork")) {
        errno = EAGAIN;
        return -1;
    }
    pid_t child = real<pid_t (*)()>("fork")();
    if (child == 0 && wanted("term-at-fork"))
        kill(getpid(), SIGTERM);
    return child;
}

int eventfd(unsigned int count, int flags) noexcept
{
    if (wanted("eventfd")) {
        errno = EMFILE;
        return -1;
    }
    return real<int (*)(unsigned int, int)>("eventfd")(count, flags);
}

int raise(int signal_number) noexcept
{
    if (wanted("raise")) {
        errno = EINVAL;
        return -1;
    }
    return real<int (*)(int)>("raise")(signal_number);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument) noexcept
{
    static int calls;
    char fault[32];
    snprintf(fault, sizeof fault, "pthread_create:%d", ++calls);
    if (wanted(fault))
        return EAGAIN;
    return real<int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)>("pthread_create")(
        thread, attributes, body, argument);
}

} // extern "C"
#pragma GCC visibility pop
