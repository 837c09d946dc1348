// SPDX-License-Identifier: MIT
// Timers of the event loop: one list in order of expiry, with a resolution of one millisecond.
#include "uloop_internal.h"

#include <algorithm>
#include <climits>
#include <ctime>

namespace {

constexpr int MS_PER_S = 1000;
constexpr int US_PER_MS = 1000;
constexpr int64_t US_PER_S = 1000000;
constexpr int NS_PER_US = 1000;

constinit struct list_head timers = {&timers, &timers};

struct timeval now()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return {ts.tv_sec, ts.tv_nsec / NS_PER_US};
}

// Whole milliseconds from b to a, towards zero: less than one counts as none.
int64_t ms_between(const struct timeval &a, const struct timeval &b)
{
    int64_t seconds = static_cast<int64_t>(a.tv_sec) - b.tv_sec;
    return (seconds * US_PER_S + (a.tv_usec - b.tv_usec)) / US_PER_MS;
}

struct uloop_timeout *first_timer()
{
    return list_empty(&timers) ? nullptr : list_first_entry(&timers, struct uloop_timeout, list);
}

void disarm(struct uloop_timeout *timeout)
{
    list_del(&timeout->list);
    timeout->pending = false;
}

} // namespace

int uloop_timeout_add(struct uloop_timeout *timeout)
{
    if (timeout->pending)
        return -1;
    struct list_head *later = timers.next;
    // Equal times stay in the order they were armed.
    while (later != &timers && ms_between(list_entry(later, struct uloop_timeout, list)->time, timeout->time) <= 0)
        later = later->next;
    list_add_tail(&timeout->list, later);
    timeout->pending = true;
    return 0;
}

int uloop_timeout_set(struct uloop_timeout *timeout, int msecs)
{
    if (timeout->pending)
        disarm(timeout);
    timeout->time = now();
    timeout->time.tv_sec += msecs / MS_PER_S;
    timeout->time.tv_usec += suseconds_t{msecs % MS_PER_S} * US_PER_MS;
    if (timeout->time.tv_usec >= US_PER_S) {
        timeout->time.tv_sec++;
        timeout->time.tv_usec -= US_PER_S;
    }
    return uloop_timeout_add(timeout);
}

int uloop_timeout_cancel(struct uloop_timeout *timeout)
{
    if (!timeout->pending)
        return -1;
    disarm(timeout);
    return 0;
}

int64_t uloop_timeout_remaining64(struct uloop_timeout *timeout)
{
    return timeout->pending ? ms_between(timeout->time, now()) : -1;
}

int uloop_timeout_remaining(struct uloop_timeout *timeout)
{
    return static_cast<int>(std::clamp<int64_t>(uloop_timeout_remaining64(timeout), INT_MIN, INT_MAX));
}

int uloop_get_next_timeout(void)
{
    struct uloop_timeout *first = first_timer();
    if (!first)
        return -1;
    return static_cast<int>(std::clamp<int64_t>(ms_between(first->time, now()), 0, INT_MAX));
}

void uloop_run_expired_timers()
{
    if (list_empty(&timers))
        return;
    const struct timeval pass_time = now();
    while (struct uloop_timeout *first = first_timer()) {
        if (ms_between(first->time, pass_time) > 0)
            return;
        // The callback may arm the timer again, or free it.
        disarm(first);
        if (first->cb)
            first->cb(first);
    }
}

void uloop_cancel_all_timers()
{
    while (struct uloop_timeout *first = first_timer())
        disarm(first);
}
