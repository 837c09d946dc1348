// SPDX-License-Identifier: MIT
// Periodic timers of the event loop, each a descriptor of its own.
#include "uloop_internal.h"

#include <ctime>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

constexpr unsigned int MS_PER_S = 1000;
constexpr long NS_PER_MS = 1000000;

void serve_timer(struct uloop_fd *sock, unsigned int)
{
    struct uloop_interval *timer = container_of(sock, struct uloop_interval, priv.ufd);
    uint64_t expirations = 0;
    if (read(sock->fd, &expirations, sizeof(expirations)) != static_cast<ssize_t>(sizeof(expirations)))
        return;
    timer->expirations += expirations;
    if (timer->cb)
        timer->cb(timer);
}

int start(int fd, unsigned int msecs)
{
    struct itimerspec timing = {};
    timing.it_value.tv_sec = msecs / MS_PER_S;
    timing.it_value.tv_nsec = static_cast<long>(msecs % MS_PER_S) * NS_PER_MS;
    timing.it_interval = timing.it_value;
    return timerfd_settime(fd, 0, &timing, nullptr);
}

} // namespace

int uloop_interval_set(struct uloop_interval *timer, unsigned int msecs)
{
    struct uloop_fd *sock = &timer->priv.ufd;
    // The watch may be older than the loop itself, so it is always made anew.
    uloop_interval_cancel(timer);
    sock->fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (sock->fd < 0)
        return -1;
    sock->cb = serve_timer;
    if (start(sock->fd, msecs) == 0 && uloop_fd_add(sock, ULOOP_READ) == 0)
        return 0;
    close(sock->fd);
    sock->fd = -1;
    return -1;
}

int uloop_interval_cancel(struct uloop_interval *timer)
{
    struct uloop_fd *sock = &timer->priv.ufd;
    if (!sock->registered)
        return -1;
    uloop_fd_delete(sock);
    close(sock->fd);
    sock->fd = -1;
    return 0;
}

int64_t uloop_interval_remaining(struct uloop_interval *timer)
{
    struct itimerspec timing;
    if (!timer->priv.ufd.registered || timerfd_gettime(timer->priv.ufd.fd, &timing) < 0)
        return -1;
    return static_cast<int64_t>(timing.it_value.tv_sec) * MS_PER_S + timing.it_value.tv_nsec / NS_PER_MS;
}
