// SPDX-License-Identifier: MIT
#include "core/wishes.h"

#include <atomic>
#include <bit>
#include <cstdint>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
}

static void (*serve_wish)(t_wish);
static pthread_t loop_thread;
static int wake_fd = -1; // readable when there is a wish
static uloop_fd wake_watcher;
static std::atomic<unsigned> wishes_left; // a bit for each

static unsigned bit_of(t_wish wish)
{
    return 1U << static_cast<unsigned>(wish);
}

void bind_wish_server(void (*serve)(t_wish))
{
    serve_wish = serve;
    loop_thread = pthread_self();
}

static void serve_wishes(uloop_fd *, unsigned int)
{
    uint64_t wakes;
    ssize_t got = read(wake_fd, &wakes, sizeof wakes);
    static_cast<void>(got); // nothing there means that all were served already
    for (unsigned left = wishes_left.exchange(0); left; left &= left - 1)
        serve_wish(static_cast<t_wish>(std::countr_zero(left)));
}

bool attach_wishes_to_loop()
{
    wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    wake_watcher.fd = wake_fd;
    wake_watcher.cb = serve_wishes;
    return wake_fd >= 0 && uloop_fd_add(&wake_watcher, ULOOP_READ) == 0;
}

void detach_wishes_from_loop()
{
    uloop_fd_delete(&wake_watcher);
}

static bool on_loop_thread()
{
    return pthread_equal(pthread_self(), loop_thread) != 0;
}

static void wake_loop()
{
    const uint64_t one = 1;
    ssize_t written = write(wake_fd, &one, sizeof one);
    static_cast<void>(written); // a counter that is full wakes as well
}

void wish_for(t_wish wish)
{
    if (on_loop_thread())
        return serve_wish(wish);
    wishes_left |= bit_of(wish);
    wake_loop();
}

void release_wishes()
{
    if (wake_fd >= 0)
        close(wake_fd);
    wake_fd = -1;
    wishes_left = 0;
}
