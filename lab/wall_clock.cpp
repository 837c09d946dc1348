// SPDX-License-Identifier: MIT
// Preloaded into the daemon: the time of day as somebody set it. The monotonic clock is left alone. The file behind
// LAB_WALL_CLOCK holds how many seconds to add, and how often the time of day was asked for.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

struct t_wall_clock {
    int64_t added_seconds;
    int64_t questions;
};

static t_wall_clock *wall_clock;

[[gnu::constructor]] static void open_wall_clock()
{
    const char *path = getenv("LAB_WALL_CLOCK");
    if (!path || strcmp(program_invocation_short_name, "wan_detect") != 0)
        return;
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    void *shared = mmap(nullptr, sizeof(t_wall_clock), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (fd < 0 || shared == MAP_FAILED)
        abort();
    close(fd);
    wall_clock = static_cast<t_wall_clock *>(shared);
}

static time_t added_seconds()
{
    if (!wall_clock)
        return 0;
    __atomic_add_fetch(&wall_clock->questions, 1, __ATOMIC_RELAXED);
    return static_cast<time_t>(__atomic_load_n(&wall_clock->added_seconds, __ATOMIC_RELAXED));
}

template <typename Function> static Function real(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

#pragma GCC visibility push(default)
extern "C" {

int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    static const auto ask = real<int (*)(clockid_t, timespec *)>("clock_gettime");
    const int result = ask(clock, now);
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
        now->tv_sec += added_seconds();
    return result;
}

int gettimeofday(timeval *now, void *zone) noexcept
{
    const int result = real<int (*)(timeval *, void *)>("gettimeofday")(now, zone);
    if (result == 0)
        now->tv_sec += added_seconds();
    return result;
}

time_t time(time_t *now) noexcept
{
    const time_t seconds = real<time_t (*)(time_t *)>("time")(nullptr) + added_seconds();
    if (now)
        *now = seconds;
    return seconds;
}

} // extern "C"
#pragma GCC visibility pop
