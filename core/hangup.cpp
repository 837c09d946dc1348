// SPDX-License-Identifier: MIT
// No handler: one would interrupt what the libraries wait for, and they take that for a failure.
#include "core/hangup.h"

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
}

#include "platform/log.h"

constexpr int NONE = -1;

static int descriptor = NONE;
static uloop_fd watcher;

static sigset_t hangup_alone()
{
    sigset_t hangup;
    sigemptyset(&hangup);
    sigaddset(&hangup, SIGHUP);
    return hangup;
}

void hold_hangups()
{
    const sigset_t hangup = hangup_alone();
    pthread_sigmask(SIG_BLOCK, &hangup, nullptr);
}

static void serve_watcher(uloop_fd *, unsigned int)
{
    tell_of_hangup();
}

bool watch_for_hangups()
{
    const sigset_t hangup = hangup_alone();
    descriptor = signalfd(NONE, &hangup, SFD_NONBLOCK | SFD_CLOEXEC);
    watcher = {};
    watcher.fd = descriptor;
    watcher.cb = serve_watcher;
    return descriptor >= 0 && uloop_fd_add(&watcher, ULOOP_READ) == 0;
}

int hangup_fd()
{
    return descriptor;
}

void tell_of_hangup()
{
    signalfd_siginfo hangup;
    while (read(descriptor, &hangup, sizeof hangup) == sizeof hangup)
        LOG(Info, "SIGHUP is ignored\n");
}

void release_hangups()
{
    if (descriptor < 0)
        return;
    uloop_fd_delete(&watcher);
    close(descriptor);
    descriptor = NONE;
}
