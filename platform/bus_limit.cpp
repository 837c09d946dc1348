// SPDX-License-Identifier: MIT
// A timer that signals the loop thread itself. Its handler interrupts a read and hangs up a connection; both end a wait
// inside the library, which offers no other way.
#include "platform/bus_limit.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <libubus.h>

#include "platform/clock.h"

// Not every C library has the official name of the member.
#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

constexpr int LIMIT_SIGNAL = SIGUSR2;
constexpr long NANOSECONDS_PER_MILLISECOND = 1'000'000;
constexpr int UNCONDITIONAL = 1; // a single look, which does not ask what the connection takes

static t_bus_write_limit *innermost; // borrowed; null outside of the library's callbacks

bool bus_takes_data(const ubus_context *context, int wait_ms)
{
    pollfd room = {context->sock.fd, POLLOUT, 0};
    return poll(&room, 1, wait_ms) > 0;
}

void hang_up_on_deaf_bus(const ubus_context *context)
{
    if (context->sock.fd >= 0 && !bus_takes_data(context, BUS_WRITE_LIMIT_MS))
        shutdown(context->sock.fd, SHUT_RDWR);
}

// A timer's last signal arrives at the latest when timer_delete returns, so the limit still exists.
static void pass_on(int, siginfo_t *info, void *)
{
    const int saved_errno = errno;
    if (info->si_code == SI_TIMER)
        static_cast<t_bus_limit *>(info->si_value.sival_ptr)->look();
    errno = saved_errno;
}

// Without SA_RESTART, so that a read comes back. Whoever started the process may have left the signal blocked.
static bool catch_signal()
{
    struct sigaction action = {};
    action.sa_sigaction = pass_on;
    action.sa_flags = SA_SIGINFO;
    sigset_t wanted;
    sigemptyset(&wanted);
    sigaddset(&wanted, LIMIT_SIGNAL);
    return sigaction(LIMIT_SIGNAL, &action, nullptr) == 0 && pthread_sigmask(SIG_UNBLOCK, &wanted, nullptr) == 0;
}

static bool create_timer(timer_t *timer, t_bus_limit *limit)
{
    sigevent to_this_thread = {};
    to_this_thread.sigev_notify = SIGEV_THREAD_ID;
    to_this_thread.sigev_signo = LIMIT_SIGNAL;
    to_this_thread.sigev_value.sival_ptr = limit;
    to_this_thread.sigev_notify_thread_id = static_cast<pid_t>(syscall(SYS_gettid));
    return catch_signal() && timer_create(CLOCK_MONOTONIC, &to_this_thread, timer) == 0;
}

t_bus_limit::t_bus_limit(const ubus_context *context, int milliseconds)
    : t_bus_limit(context, milliseconds, UNCONDITIONAL)
{
}

t_bus_limit::t_bus_limit(const ubus_context *context, int distance_ms, int looks)
    : context_(context), distance_ms_(distance_ms), looks_(looks), looks_left_(looks),
      created_(create_timer(&timer_, this))
{
    start();
}

t_bus_limit::~t_bus_limit()
{
    if (created_)
        timer_delete(timer_);
}

void t_bus_limit::start()
{
    looks_left_ = looks_;
    itimerspec limit = {};
    limit.it_value.tv_sec = distance_ms_ / MILLISECONDS_PER_SECOND;
    limit.it_value.tv_nsec = distance_ms_ % MILLISECONDS_PER_SECOND * NANOSECONDS_PER_MILLISECOND;
    limit.it_interval = limit.it_value; // a signal that comes a moment before the wait begins does not end it
    set_ = created_ && timer_settime(timer_, 0, &limit, nullptr) == 0;
}

void t_bus_limit::stop()
{
    const itimerspec never = {};
    if (created_)
        timer_settime(timer_, 0, &never, nullptr);
}

void t_bus_limit::look()
{
    if (looks_ != UNCONDITIONAL && bus_takes_data(context_, 0)) {
        looks_left_ = looks_;
        return;
    }
    if (looks_left_ > 1) {
        looks_left_ = looks_left_ - 1;
        return;
    }
    reached_ = 1;
    if (context_ && context_->sock.fd >= 0)
        shutdown(context_->sock.fd, SHUT_RDWR);
}

t_bus_write_limit::t_bus_write_limit(const ubus_context *context)
    : t_bus_limit(context, BUS_WRITE_LOOK_MS, BUS_WRITE_LIMIT_MS / BUS_WRITE_LOOK_MS), outer_(innermost)
{
    innermost = this;
}

t_bus_write_limit::~t_bus_write_limit()
{
    innermost = outer_;
}

t_bus_write_pause::t_bus_write_pause() : paused_(innermost)
{
    if (paused_)
        paused_->stop();
}

t_bus_write_pause::~t_bus_write_pause()
{
    if (paused_)
        paused_->start();
}
