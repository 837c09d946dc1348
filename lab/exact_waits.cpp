// SPDX-License-Identifier: MIT
// Preloaded before the library that makes a program's clock faster. That one shortens waits to whole milliseconds of
// real time, so that a program computes in circles until what is left of one is over; here a wait is as short as it
// must be.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr double NS_PER_MS = 1e6;
constexpr long NS_PER_S = 1000000000;
constexpr size_t SIGNALS_SIZE = 8; // of the kernel's signal set, which stays null

double speed = 1;

[[gnu::constructor]] void read_speed()
{
    const char *settings = getenv("FAKETIME");
    const char *factor = settings ? strchr(settings, 'x') : nullptr;
    if (factor && strtod(factor + 1, nullptr) > 0)
        speed = strtod(factor + 1, nullptr);
}

timespec real_time(int timeout_ms)
{
    const long ns = static_cast<long>(timeout_ms * NS_PER_MS / speed);
    return {ns / NS_PER_S, ns % NS_PER_S};
}

template <typename Function> Function next(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

int epoll_wait(int epoll, epoll_event *events, int room, int timeout_ms)
{
    if (timeout_ms > 0) {
        const timespec time = real_time(timeout_ms);
        const long result = syscall(SYS_epoll_pwait2, epoll, events, room, &time, nullptr, SIGNALS_SIZE);
        if (result >= 0 || errno != ENOSYS) // valgrind does not know it, for one
            return static_cast<int>(result);
    }
    return next<int (*)(int, epoll_event *, int, int)>("epoll_wait")(epoll, events, room, timeout_ms);
}

int poll(pollfd *descriptors, nfds_t count, int timeout_ms)
{
    timespec time = real_time(timeout_ms);
    return static_cast<int>(
        syscall(SYS_ppoll, descriptors, count, timeout_ms < 0 ? nullptr : &time, nullptr, SIGNALS_SIZE));
}

} // extern "C"
#pragma GCC visibility pop
