// SPDX-License-Identifier: MIT
// Signals of the event loop: handlers only leave a mark and write to the wake pipe, the loop does the rest.
#include "uloop_internal.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

bool uloop_handle_sigchld = true;

namespace {

// A disposition taken over at the start of the loop.
struct taken_signal {
    int signo;
    void (*handler)(int);
    struct sigaction saved;
};

// Written by handlers, in whichever thread takes the signal.
std::atomic<int> stop_signal{0};
std::atomic<bool> child_signal{false};
std::atomic<bool> watched_signal[NSIG];
std::atomic<int> wake_write_fd{-1};

constinit struct list_head watches = {&watches, &watches};
struct uloop_fd wake_read = {.cb = nullptr, .fd = -1, .eof = false, .error = false, .registered = false, .flags = 0};

void wake_loop()
{
    int saved_errno = errno;
    int fd = wake_write_fd.load(std::memory_order_relaxed);
    const char byte = 0;
    // A full pipe wakes the loop as well.
    if (fd >= 0 && write(fd, &byte, sizeof(byte)) < 0)
        errno = saved_errno;
    errno = saved_errno;
}

void on_stop_signal(int signo)
{
    stop_signal.store(signo, std::memory_order_relaxed);
    __atomic_store_n(&uloop_cancelled, true, __ATOMIC_RELAXED);
    wake_loop();
}

void on_child_signal(int)
{
    child_signal.store(true, std::memory_order_relaxed);
    wake_loop();
}

void on_watched_signal(int signo)
{
    watched_signal[signo].store(true, std::memory_order_relaxed);
    wake_loop();
}

taken_signal taken_signals[] = {
    {SIGINT, on_stop_signal, {}},
    {SIGTERM, on_stop_signal, {}},
    {SIGCHLD, on_child_signal, {}},
};

bool is_ours_to_handle(const taken_signal &taken)
{
    return taken.signo != SIGCHLD || uloop_handle_sigchld;
}

void handle_with(int signo, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigaction(signo, &action, nullptr);
}

// What is not at its default belongs to the application.
bool is_default(int signo, struct sigaction *current)
{
    return sigaction(signo, nullptr, current) == 0 && !(current->sa_flags & SA_SIGINFO) &&
           current->sa_handler == SIG_DFL;
}

struct uloop_signal *find_watch(int signo)
{
    struct uloop_signal *watch;
    list_for_each_entry(watch, &watches, list)
    {
        if (watch->signo == signo)
            return watch;
    }
    return nullptr;
}

void run_watches(int signo)
{
    struct list_head due;
    struct uloop_signal *watch;
    struct uloop_signal *ahead;
    INIT_LIST_HEAD(&due);
    list_for_each_entry_safe(watch, ahead, &watches, list)
    {
        if (watch->signo == signo)
            list_move_tail(&watch->list, &due);
    }
    // A callback may delete any watch, so each goes back before it is called.
    while (!list_empty(&due)) {
        watch = list_first_entry(&due, struct uloop_signal, list);
        list_move_tail(&watch->list, &watches);
        if (watch->cb)
            watch->cb(watch);
    }
}

void serve_wake_pipe(struct uloop_fd *pipe_end, unsigned int)
{
    char bytes[64];
    while (read(pipe_end->fd, bytes, sizeof(bytes)) > 0)
        ;
    for (int signo = 1; signo < NSIG; signo++) {
        if (watched_signal[signo].exchange(false, std::memory_order_relaxed))
            run_watches(signo);
    }
}

} // namespace

int uloop_open_wake_pipe()
{
    if (wake_read.registered)
        return 0;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0)
        return -1;
    wake_read.cb = serve_wake_pipe;
    wake_read.fd = ends[0];
    wake_write_fd.store(ends[1], std::memory_order_relaxed);
    if (uloop_watch_own(&wake_read) == 0)
        return 0;
    uloop_close_wake_pipe();
    return -1;
}

void uloop_close_wake_pipe()
{
    // A handler that runs meanwhile finds no pipe rather than a closed one.
    int write_fd = wake_write_fd.exchange(-1, std::memory_order_relaxed);
    if (write_fd < 0)
        return;
    close(write_fd);
    close(wake_read.fd);
    wake_read.fd = -1;
    wake_read.registered = false;
}

void uloop_install_handlers()
{
    struct sigaction current;
    for (taken_signal &taken : taken_signals) {
        if (!is_ours_to_handle(taken) || !is_default(taken.signo, &current))
            continue;
        taken.saved = current;
        handle_with(taken.signo, taken.handler);
    }
    if (is_default(SIGPIPE, &current))
        handle_with(SIGPIPE, SIG_IGN);
}

// SIGPIPE stays ignored.
void uloop_restore_handlers()
{
    for (const taken_signal &taken : taken_signals) {
        struct sigaction current;
        if (!is_ours_to_handle(taken) || sigaction(taken.signo, nullptr, &current) < 0)
            continue;
        if (!(current.sa_flags & SA_SIGINFO) && current.sa_handler == taken.handler)
            sigaction(taken.signo, &taken.saved, nullptr);
    }
}

bool uloop_take_child_signal()
{
    return child_signal.exchange(false, std::memory_order_relaxed);
}

int uloop_stop_signal()
{
    return stop_signal.load(std::memory_order_relaxed);
}

void uloop_clear_stop_signal()
{
    stop_signal.store(0, std::memory_order_relaxed);
}

int uloop_signal_add(struct uloop_signal *s)
{
    if (s->pending || s->signo <= 0 || s->signo >= NSIG)
        return -1;
    struct sigaction action = {};
    action.sa_handler = on_watched_signal;
    if (sigaction(s->signo, &action, &s->orig) < 0)
        return -1;
    list_add_tail(&s->list, &watches);
    s->pending = true;
    return 0;
}

int uloop_signal_delete(struct uloop_signal *s)
{
    if (!s->pending)
        return -1;
    list_del(&s->list);
    s->pending = false;
    struct uloop_signal *other = find_watch(s->signo);
    if (!other)
        return sigaction(s->signo, &s->orig, nullptr);
    // The disposition from before the first watch is restored by the last one.
    if (s->orig.sa_handler != on_watched_signal)
        other->orig = s->orig;
    return 0;
}
