// SPDX-License-Identifier: MIT
#include "faults.h"

#include <cerrno>
#include <dlfcn.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

namespace {

bool watching = false;
fault fault_kind = fault::none;
int fault_number = -1;
std::vector<std::string> calls;
std::string stop_name;
std::function<void()> stop_action;

// True: this call is to fail.
bool meets_fault(const char *name)
{
    if (stop_action && stop_name == name)
        std::exchange(stop_action, nullptr)();
    if (!watching)
        return false;
    bool hit = static_cast<int>(calls.size()) == fault_number;
    calls.push_back(name);
    if (hit && fault_kind == fault::power_cut)
        _exit(power_cut_status);
    if (hit)
        errno = EIO;
    return hit && fault_kind == fault::failure;
}

template <typename result_type, typename... argument_types>
result_type call(const char *name, argument_types... arguments)
{
    using function = result_type (*)(argument_types...);
    if (meets_fault(name))
        return -1;
    return reinterpret_cast<function>(dlsym(RTLD_NEXT, name))(arguments...);
}

} // namespace

void watch_calls(fault kind, int number)
{
    calls.clear();
    fault_kind = kind;
    fault_number = number;
    watching = true;
}

void stop_before(const std::string &name, const std::function<void()> &action)
{
    stop_name = name;
    stop_action = action;
}

std::vector<std::string> watched_calls()
{
    watching = false;
    return calls;
}

extern "C" {

int mkostemp(char *path, int flags)
{
    return call<int>("mkostemp", path, flags);
}

ssize_t write(int fd, const void *data, size_t size)
{
    return call<ssize_t>("write", fd, data, size);
}

int fchmod(int fd, mode_t mode)
{
    return call<int>("fchmod", fd, mode);
}

int fsync(int fd)
{
    return call<int>("fsync", fd);
}

int rename(const char *from, const char *to) noexcept
{
    return call<int>("rename", from, to);
}

int ftruncate(int fd, off_t size) noexcept
{
    // Where an off_t may have 32 bits the C library has another one for 64.
    const char *real = sizeof size > sizeof(long) ? "ftruncate64" : "ftruncate";
    return meets_fault("ftruncate") ? -1 : reinterpret_cast<int (*)(int, off_t)>(dlsym(RTLD_NEXT, real))(fd, size);
}
}
