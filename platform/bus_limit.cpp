// SPDX-License-Identifier: MIT
// A timer that signals the loop thread itself. Its handler interrupts a read and hangs up a connection; both end a wait
// inside the library, which offers no other way.
#include "platform/bus_limit.h"

#include <cerrno>
#include <csignal>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <libubus.h>

#include "platform/clock.h"

// Not every C library has the official name of the member.
#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace {

constexpr int LIMIT_SIGNAL = SIGUSR2;
constexpr long NANOSECONDS_PER_MILLISECOND = 1'000'000;

const ubus_context *limited; // borrowed; null between the calls
volatile sig_atomic_t times_over;

void hang_up(int)
{
    const int saved_errno = errno;
    times_over = 1;
    if (limited && limited->sock.fd >= 0)
        shutdown(limited->sock.fd, SHUT_RDWR);
    errno = saved_errno;
}

// Without SA_RESTART, so that a read comes back. Whoever started the process may have left the signal blocked.
bool catch_signal()
{
    struct sigaction action = {};
    action.sa_handler = hang_up;
    sigset_t wanted;
    sigemptyset(&wanted);
    sigaddset(&wanted, LIMIT_SIGNAL);
    return sigaction(LIMIT_SIGNAL, &action, nullptr) == 0 && pthread_sigmask(SIG_UNBLOCK, &wanted, nullptr) == 0;
}

bool create_timer(timer_t *timer)
{
    sigevent to_this_thread = {};
    to_this_thread.sigev_notify = SIGEV_THREAD_ID;
    to_this_thread.sigev_signo = LIMIT_SIGNAL;
    to_this_thread.sigev_notify_thread_id = static_cast<pid_t>(syscall(SYS_gettid));
    return catch_signal() && timer_create(CLOCK_MONOTONIC, &to_this_thread, timer) == 0;
}

} // namespace

t_bus_limit::t_bus_limit(const ubus_context *context, int milliseconds) : created_(create_timer(&timer_)), set_(false)
{
    limited = context;
    times_over = 0;
    itimerspec limit = {};
    limit.it_value.tv_sec = milliseconds / MILLISECONDS_PER_SECOND;
    limit.it_value.tv_nsec = milliseconds % MILLISECONDS_PER_SECOND * NANOSECONDS_PER_MILLISECOND;
    limit.it_interval = limit.it_value; // a signal that comes a moment before the wait begins does not end it
    set_ = created_ && timer_settime(timer_, 0, &limit, nullptr) == 0;
}

t_bus_limit::~t_bus_limit()
{
    if (created_)
        timer_delete(timer_);
    limited = nullptr;
}

bool t_bus_limit::reached() const
{
    return times_over != 0;
}
