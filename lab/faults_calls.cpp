// SPDX-License-Identifier: MIT
// System calls and their wrappers, as the daemon calls them, that fail while the page says so.
#include "faults.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

const char *name_of_socket(int domain)
{
    switch (domain) {
    case AF_PACKET:
        return "socket packet";
    case AF_INET:
        return "socket inet";
    case AF_UNIX:
        return "socket unix";
    default:
        return "socket";
    }
}

// In very fast time a wait of some milliseconds is none at all, and whoever waits would look as if it span.
int lengthened(int timeout_ms)
{
    const t_fault_page *page = fault_page();
    return page && timeout_ms > 0 ? std::max(timeout_ms, static_cast<int>(page->shortest_wait_ms)) : timeout_ms;
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

int socket(int domain, int type, int protocol) noexcept
{
    if (fails(name_of_socket(domain)))
        return -1;
    return real<int (*)(int, int, int)>("socket")(domain, type, protocol);
}

int bind(int fd, const sockaddr *address, socklen_t size) noexcept
{
    return fails("bind") ? -1 : real<int (*)(int, const sockaddr *, socklen_t)>("bind")(fd, address, size);
}

int connect(int fd, const sockaddr *address, socklen_t size)
{
    return fails("connect") ? -1 : real<int (*)(int, const sockaddr *, socklen_t)>("connect")(fd, address, size);
}

int setsockopt(int fd, int level, int option, const void *value, socklen_t size) noexcept
{
    if (fails("setsockopt"))
        return -1;
    return real<int (*)(int, int, int, const void *, socklen_t)>("setsockopt")(fd, level, option, value, size);
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return fails("ioctl") ? -1 : real<int (*)(int, unsigned long, void *)>("ioctl")(fd, request, argument);
}

ssize_t sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address, socklen_t address_size)
{
    if (fails("sendto"))
        return -1;
    return real<ssize_t (*)(int, const void *, size_t, int, const sockaddr *, socklen_t)>("sendto")(
        fd, data, size, flags, address, address_size);
}

ssize_t recvfrom(int fd, void *data, size_t size, int flags, sockaddr *address, socklen_t *address_size)
{
    if (fails("recvfrom"))
        return -1;
    return real<ssize_t (*)(int, void *, size_t, int, sockaddr *, socklen_t *)>("recvfrom")(fd, data, size, flags,
                                                                                            address, address_size);
}

ssize_t sendmsg(int fd, const msghdr *message, int flags)
{
    return fails("sendmsg") ? -1 : real<ssize_t (*)(int, const msghdr *, int)>("sendmsg")(fd, message, flags);
}

int epoll_create1(int flags) noexcept
{
    return fails("epoll_create1") ? -1 : real<int (*)(int)>("epoll_create1")(flags);
}

int epoll_ctl(int poll_fd, int operation, int fd, epoll_event *event) noexcept
{
    if (operation == EPOLL_CTL_ADD && fails("epoll_ctl add"))
        return -1;
    return real<int (*)(int, int, int, epoll_event *)>("epoll_ctl")(poll_fd, operation, fd, event);
}

int epoll_wait(int poll_fd, epoll_event *events, int capacity, int timeout_ms)
{
    return real<int (*)(int, epoll_event *, int, int)>("epoll_wait")(poll_fd, events, capacity, lengthened(timeout_ms));
}

int poll(pollfd *wanted, nfds_t count, int timeout_ms)
{
    return real<int (*)(pollfd *, nfds_t, int)>("poll")(wanted, count, lengthened(timeout_ms));
}

int timerfd_create(int clock, int flags) noexcept
{
    return fails("timerfd_create") ? -1 : real<int (*)(int, int)>("timerfd_create")(clock, flags);
}

int timer_create(clockid_t clock, sigevent *event, timer_t *timer) noexcept
{
    return fails("timer_create") ? -1
                                 : real<int (*)(clockid_t, sigevent *, timer_t *)>("timer_create")(clock, event, timer);
}

int eventfd(unsigned int count, int flags) noexcept
{
    if (asked_for("eventfd")) {
        errno = EMFILE;
        return -1;
    }
    return fails("eventfd") ? -1 : real<int (*)(unsigned int, int)>("eventfd")(count, flags);
}

int signalfd(int fd, const sigset_t *signals, int flags) noexcept
{
    return fails("signalfd") ? -1 : real<int (*)(int, const sigset_t *, int)>("signalfd")(fd, signals, flags);
}

int pipe2(int *ends, int flags) noexcept
{
    return fails("pipe2") ? -1 : real<int (*)(int *, int)>("pipe2")(ends, flags);
}

int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (fails(strcmp(path, "/dev/console") == 0 ? "open console" : "open"))
        return -1;
    return real<int (*)(const char *, int, mode_t)>("open")(path, flags, mode);
}

FILE *fopen(const char *path, const char *mode)
{
    return fails("fopen") ? nullptr : real<FILE *(*)(const char *, const char *)>("fopen")(path, mode);
}

int mkostemp(char *path, int flags)
{
    return fails("mkostemp") ? -1 : real<int (*)(char *, int)>("mkostemp")(path, flags);
}

int clone(int (*body)(void *), void *stack, int flags, void *argument, ...) noexcept
{
    if (fails("clone"))
        return -1;
    return real<int (*)(int (*)(void *), void *, int, void *, ...)>("clone")(body, stack, flags, argument);
}

} // extern "C"
#pragma GCC visibility pop
