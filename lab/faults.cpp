// SPDX-License-Identifier: MIT
// Preloaded into the daemon: lets the one call that LAB_FAULT names fail, or a signal arrive at the worst moment
// ("fork", "eventfd", "raise", "pthread_create:2" for the second thread, "term-at-fork" in the child, at once), and
// others while the page behind LAB_FAULT_PAGE says so.
#include "faults.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

static t_fault_page *page;

// The scripts that the daemon starts inherit the environment, but no faults.
static bool is_the_daemon()
{
    return strcmp(program_invocation_short_name, "wan_detect") == 0;
}

[[gnu::constructor]] static void open_page()
{
    const char *path = getenv("LAB_FAULT_PAGE");
    if (!path || !is_the_daemon())
        return;
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0)
        abort();
    void *shared = mmap(nullptr, sizeof(t_fault_page), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (shared == MAP_FAILED)
        abort();
    unsetenv("LD_PRELOAD"); // the scripts live in real time, and start faster
    page = static_cast<t_fault_page *>(shared);
}

t_fault_page *fault_page()
{
    return page;
}

bool fails(const char *name)
{
    if (!page)
        return false;
    for (t_fault_slot &slot : page->slots) {
        const int error = __atomic_load_n(&slot.error, __ATOMIC_ACQUIRE);
        if (error == 0 || strcmp(slot.name, name) != 0)
            continue;
        const int call = __atomic_add_fetch(&slot.calls, 1, __ATOMIC_RELAXED) - slot.spare;
        if (call < 1 || (slot.limit && call > slot.limit))
            return false;
        __atomic_add_fetch(&slot.refused, 1, __ATOMIC_RELAXED);
        errno = error;
        return true;
    }
    return false;
}

bool asked_for(const char *fault)
{
    const char *named = getenv("LAB_FAULT");
    return named && strcmp(named, fault) == 0 && is_the_daemon();
}

static void set_limit(__rlimit_resource resource, int64_t wanted)
{
    rlimit limit = {};
    if (getrlimit(resource, &limit) != 0)
        abort();
    limit.rlim_cur = static_cast<rlim_t>(wanted);
    if (setrlimit(resource, &limit) != 0)
        abort();
}

static int64_t address_space()
{
    char text[FAULT_NAME_SIZE] = "";
    const int fd = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    if (fd < 0 || read(fd, text, sizeof text - 1) <= 0)
        abort();
    close(fd);
    return strtol(text, nullptr, 10) * sysconf(_SC_PAGESIZE);
}

static void set_limits()
{
    if (!page)
        return;
    if (page->more_memory >= 0)
        set_limit(RLIMIT_AS, address_space() + page->more_memory);
    if (page->descriptors > 0)
        set_limit(RLIMIT_NOFILE, page->descriptors);
}

#pragma GCC visibility push(default)
extern "C" {

pid_t fork() noexcept
{
    if (asked_for("fork")) {
        errno = EAGAIN;
        return -1;
    }
    if (fails("fork"))
        return -1;
    pid_t child = real<pid_t (*)()>("fork")();
    if (child == 0 && asked_for("term-at-fork"))
        kill(getpid(), SIGTERM);
    if (child == 0)
        set_limits();
    if (child > 0)
        page = nullptr; // what the first process still does is not the daemon's
    return child;
}

int raise(int signal_number) noexcept
{
    if (asked_for("raise")) {
        errno = EINVAL;
        return -1;
    }
    return real<int (*)(int)>("raise")(signal_number);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument) noexcept
{
    static int calls;
    char fault[FAULT_NAME_SIZE];
    snprintf(fault, sizeof fault, "pthread_create:%d", ++calls);
    if (asked_for(fault))
        return EAGAIN;
    if (fails("pthread_create"))
        return errno;
    return real<int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)>("pthread_create")(
        thread, attributes, body, argument);
}

} // extern "C"
#pragma GCC visibility pop
