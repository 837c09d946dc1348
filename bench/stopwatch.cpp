// SPDX-License-Identifier: MIT
#include "bench/stopwatch.h"

#include <ctime>
#include <sys/socket.h>
#include <unistd.h>

namespace {

thread_local t_call_times times;

// Adds its own lifetime to a sum.
class t_lap {
public:
    explicit t_lap(t_microseconds &sum) : sum_(sum) {}
    ~t_lap() { sum_ += now() - start_; }
    t_lap(const t_lap &) = delete;
    t_lap &operator=(const t_lap &) = delete;
    t_moment start() const { return start_; }

private:
    t_microseconds &sum_;
    const t_moment start_ = now();
};

} // namespace

t_microseconds thread_cpu()
{
    timespec used;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

void restart_call_times()
{
    times = {};
}

const t_call_times &call_times()
{
    return times;
}

// The linker leads the daemon's calls here.
extern "C" {
int __real_bind(int fd, const sockaddr *address, socklen_t size);
int __real_close(int fd);
ssize_t __real_sendto(int fd, const void *frame, size_t size, int flags, const sockaddr *address, socklen_t length);

int __wrap_bind(int fd, const sockaddr *address, socklen_t size)
{
    t_lap lap(times.in_bind);
    return __real_bind(fd, address, size);
}

int __wrap_close(int fd)
{
    t_lap lap(times.in_close);
    times.last_close = lap.start();
    return __real_close(fd);
}

ssize_t __wrap_sendto(int fd, const void *frame, size_t size, int flags, const sockaddr *address, socklen_t length)
{
    if (times.first_send == t_moment())
        times.first_send = now();
    return __real_sendto(fd, frame, size, flags, address, length);
}
}
