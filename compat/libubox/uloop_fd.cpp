// SPDX-License-Identifier: MIT
// Descriptors of the event loop, on epoll.
#include "uloop_internal.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

uloop_fd_handler uloop_fd_set_cb = nullptr;

namespace {

constexpr int BATCH_EVENTS = 10;

// A ready descriptor that waits for its callback; null once the application has deleted it.
struct ready_fd {
    struct uloop_fd *watch;
    unsigned int events;
};

int poll_fd = -1;
ready_fd batch[BATCH_EVENTS];
int batch_next = 0;
int batch_end = 0;

uint32_t epoll_mask(unsigned int flags)
{
    uint32_t mask = 0;
    if (flags & ULOOP_READ)
        mask |= EPOLLIN | EPOLLRDHUP;
    if (flags & ULOOP_WRITE)
        mask |= EPOLLOUT;
    if (flags & ULOOP_EDGE_TRIGGER)
        mask |= EPOLLET;
    return mask;
}

int watch(struct uloop_fd *sock, unsigned int flags)
{
    struct epoll_event event = {};
    event.events = epoll_mask(flags);
    event.data.ptr = sock;
    return epoll_ctl(poll_fd, sock->registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, sock->fd, &event);
}

int unwatch(struct uloop_fd *sock)
{
    int result = epoll_ctl(poll_fd, EPOLL_CTL_DEL, sock->fd, nullptr);
    sock->registered = false;
    sock->flags = 0;
    if (uloop_fd_set_cb)
        uloop_fd_set_cb(sock, 0);
    return result;
}

void drop_from_batch(const struct uloop_fd *sock)
{
    for (int i = batch_next; i < batch_end; i++) {
        if (batch[i].watch == sock)
            batch[i].watch = nullptr;
    }
}

void make_non_blocking(int fd)
{
    int flags = fcntl(fd, F_GETFL);
    if (flags >= 0)
        fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

// Records on the watch what the kernel said; a watch in error that did not ask for it is on its last callback.
ready_fd note_event(const struct epoll_event *event)
{
    auto *sock = static_cast<struct uloop_fd *>(event->data.ptr);
    unsigned int events = 0;
    if (event->events & EPOLLIN)
        events |= ULOOP_READ;
    if (event->events & EPOLLOUT)
        events |= ULOOP_WRITE;
    if (event->events & EPOLLRDHUP)
        sock->eof = true;
    if (event->events & (EPOLLERR | EPOLLHUP)) {
        sock->error = true;
        if (!(sock->flags & ULOOP_ERROR_CB))
            unwatch(sock);
    }
    return {sock, events};
}

void fetch_batch(int wait_ms)
{
    struct epoll_event events[BATCH_EVENTS];
    int count = epoll_wait(poll_fd, events, BATCH_EVENTS, wait_ms);
    batch_next = 0;
    batch_end = 0;
    for (int i = 0; i < count; i++)
        batch[batch_end++] = note_event(&events[i]);
}

} // namespace

int uloop_open_poll()
{
    if (poll_fd < 0)
        poll_fd = epoll_create1(EPOLL_CLOEXEC);
    return poll_fd < 0 ? -1 : 0;
}

void uloop_close_poll()
{
    if (poll_fd >= 0)
        close(poll_fd);
    poll_fd = -1;
    batch_next = batch_end = 0;
}

int uloop_watch_own(struct uloop_fd *own)
{
    if (watch(own, ULOOP_READ) < 0)
        return -1;
    own->registered = true;
    own->flags = ULOOP_READ;
    return 0;
}

void uloop_serve_one_fd(int wait_ms)
{
    if (batch_next == batch_end)
        fetch_batch(wait_ms);
    while (batch_next < batch_end) {
        ready_fd ready = batch[batch_next++];
        if (!ready.watch || !ready.watch->cb)
            continue;
        // The callback may free its record.
        ready.watch->cb(ready.watch, ready.events);
        return;
    }
}

int uloop_fd_add(struct uloop_fd *sock, unsigned int flags)
{
    if (!(flags & ULOOP_EVENT_MASK))
        return uloop_fd_delete(sock);
    if (!sock->registered && !(flags & ULOOP_BLOCKING))
        make_non_blocking(sock->fd);
    if (watch(sock, flags) < 0)
        return -1;
    sock->registered = true;
    sock->flags = static_cast<uint8_t>(flags);
    sock->eof = false;
    sock->error = false;
    if (uloop_fd_set_cb)
        uloop_fd_set_cb(sock, flags);
    return 0;
}

int uloop_fd_delete(struct uloop_fd *sock)
{
    // Also when it is not registered any more: after an error its last callback may still be due.
    drop_from_batch(sock);
    return sock->registered ? unwatch(sock) : 0;
}
