// SPDX-License-Identifier: MIT
#include "core/background.h"

#include <atomic>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
}

#include "platform/clock.h"
#include "platform/ending.h"

constexpr size_t LARGEST_STACK = size_t{256} * 1024; // the C library's default may be megabytes for each flapping port
constexpr int NOT_STOPPING = -1;

static std::atomic<int> stop_reason = NOT_STOPPING; // signal number, or 0 for an end without one
static std::atomic<int> threads_at_work;            // started, and not yet counted as gone
static int leave_fd = -1;                           // counts the threads that left since somebody looked last
static uloop_fd stop_watcher;

static void end_loop(uloop_fd *, unsigned int)
{
    uloop_end();
}

bool init_background()
{
    const bool ending_is_heard = init_ending();
    leave_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return ending_is_heard && leave_fd >= 0;
}

bool attach_background_to_loop()
{
    stop_watcher.fd = ending_fd();
    stop_watcher.cb = end_loop;
    return uloop_fd_add(&stop_watcher, ULOOP_READ) == 0;
}

void detach_background_from_loop()
{
    uloop_fd_delete(&stop_watcher);
}

bool begin_to_stop(int signal_number)
{
    int saved_errno = errno;
    int expected = NOT_STOPPING;
    bool first = stop_reason.compare_exchange_strong(expected, signal_number);
    ask_for_end();
    errno = saved_errno;
    return first;
}

int stop_signal()
{
    int reason = stop_reason;
    return reason == NOT_STOPPING ? 0 : reason;
}

// Waits for a descriptor, whatever signals arrive meanwhile; true when it became readable.
static bool wait_readable(int fd, uint32_t milliseconds)
{
    const t_time_stamp start = get_time_stamp();
    int64_t left_ms = milliseconds;
    for (;;) {
        pollfd wanted = {fd, POLLIN, 0};
        int ready = poll(&wanted, 1, static_cast<int>(left_ms));
        if (ready > 0)
            return true;
        int64_t passed_ms = milliseconds_since(start);
        left_ms = static_cast<int64_t>(milliseconds) - passed_ms;
        if (left_ms <= 0)
            return false;
    }
}

bool sleep_unless_stopped(uint32_t milliseconds)
{
    return wait_readable(ending_fd(), milliseconds);
}

sigset_t ending_signals()
{
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGALRM);
    return ends;
}

static void count_leavers()
{
    uint64_t leavers;
    if (read(leave_fd, &leavers, sizeof leavers) == sizeof leavers)
        threads_at_work -= static_cast<int>(leavers);
}

// With a small stack where the C library lets us choose, with its own otherwise, or where that is smaller.
static int create_thread(pthread_t *thread, t_thread_body body, void *argument)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return pthread_create(thread, nullptr, body, argument);
    size_t stack_size = 0;
    if (pthread_attr_getstacksize(&attributes, &stack_size) == 0 && stack_size > LARGEST_STACK)
        pthread_attr_setstacksize(&attributes, LARGEST_STACK);
    int result = pthread_create(thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    return result;
}

int start_background_thread(pthread_t *thread, t_thread_body body, void *argument)
{
    count_leavers();
    if (++threads_at_work > MAX_BACKGROUND_THREADS) {
        --threads_at_work;
        return EAGAIN;
    }
    const sigset_t ends = ending_signals();
    sigset_t saved;
    pthread_sigmask(SIG_BLOCK, &ends, &saved);
    int result = create_thread(thread, body, argument);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    if (result != 0)
        --threads_at_work;
    return result;
}

// The write is the last thing that the thread does with anything shared: only after it has been read does the thread
// count as gone, and the main thread may close the descriptor.
void leave_background()
{
    const uint64_t one = 1;
    ssize_t written = write(leave_fd, &one, sizeof one);
    static_cast<void>(written); // it always fits: there are no more threads than that
}

void wait_for_the_end()
{
    // The main thread may cancel as soon as it hears of the leaving, which must not hit the telling itself.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    leave_background();
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    for (;;)
        pause();
}

// No condition variable: its timed wait would hide the lock from the tools that look for races in accelerated time.
bool stop_background_threads()
{
    begin_to_stop(0);
    const t_time_stamp start = get_time_stamp();
    for (;;) {
        count_leavers();
        if (threads_at_work <= 0)
            return true;
        int64_t passed_ms = milliseconds_since(start);
        if (passed_ms >= BACKGROUND_STOP_LIMIT_MS)
            return false;
        wait_readable(leave_fd, static_cast<uint32_t>(BACKGROUND_STOP_LIMIT_MS - passed_ms));
    }
}

void release_background()
{
    if (leave_fd >= 0)
        close(leave_fd);
    leave_fd = -1;
    threads_at_work = 0;
    stop_reason = NOT_STOPPING;
    release_ending();
}
