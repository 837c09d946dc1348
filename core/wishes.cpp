// SPDX-License-Identifier: MIT
#include "core/wishes.h"

#include <atomic>
#include <cstdint>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
}

static t_wish_servers serve;
static pthread_t loop_thread;
static int wake_fd = -1; // readable when there is a wish
static uloop_fd wake_watcher;
static std::atomic<bool> wished_role_look;
static std::atomic<bool> wished_fresh_retries;
static std::atomic<bool> wished_link_news;

void bind_wish_servers(const t_wish_servers &servers)
{
    serve = servers;
    loop_thread = pthread_self();
}

static void serve_wishes(uloop_fd *, unsigned int)
{
    uint64_t wakes;
    ssize_t got = read(wake_fd, &wakes, sizeof wakes);
    static_cast<void>(got); // nothing there means that all were served already
    if (wished_fresh_retries.exchange(false))
        serve.fresh_retries();
    if (wished_link_news.exchange(false))
        serve.link_news();
    serve.pass();
    if (wished_role_look.exchange(false))
        serve.role_look();
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

void wish_for_pass()
{
    if (on_loop_thread())
        return serve.pass();
    wake_loop();
}

void wish_for_role_look()
{
    if (on_loop_thread())
        return serve.role_look();
    wished_role_look = true;
    wake_loop();
}

void wish_for_fresh_retries()
{
    if (on_loop_thread())
        return serve.fresh_retries();
    wished_fresh_retries = true;
    wake_loop();
}

void wish_for_link_news()
{
    if (on_loop_thread())
        return serve.link_news();
    wished_link_news = true;
    wake_loop();
}

void release_wishes()
{
    if (wake_fd >= 0)
        close(wake_fd);
    wake_fd = -1;
    wished_role_look = false;
    wished_fresh_retries = false;
    wished_link_news = false;
}
