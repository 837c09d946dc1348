// SPDX-License-Identifier: MIT
// The table of descriptors, and the doors that take any descriptor.
#include "tests/simulation/descriptors.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

#include "tests/simulation/door.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr int STANDARD_DESCRIPTORS = 3;

static std::vector<t_description_ref> table;

ssize_t t_description::read(void *, size_t)
{
    errno = EINVAL;
    return -1;
}

ssize_t t_description::write(const void *, size_t)
{
    errno = EINVAL;
    return -1;
}

static int install_from(t_description_ref description, size_t first)
{
    if (static_cast<unsigned>(count_of_descriptors()) >= world.descriptor_limit) {
        errno = EMFILE;
        return -1;
    }
    size_t fd = first;
    while (fd < table.size() && table[fd])
        fd++;
    if (fd >= table.size())
        table.resize(fd + 1);
    table[fd] = std::move(description);
    return static_cast<int>(fd);
}

int install_descriptor(t_description_ref description)
{
    return install_from(std::move(description), 0);
}

t_description_ref share_description(int fd)
{
    if (fd >= 0 && static_cast<size_t>(fd) < table.size() && table[static_cast<size_t>(fd)])
        return table[static_cast<size_t>(fd)];
    errno = EBADF;
    return nullptr;
}

t_description *description_of(int fd)
{
    if (fd >= 0 && static_cast<size_t>(fd) < table.size() && table[static_cast<size_t>(fd)])
        return table[static_cast<size_t>(fd)].get();
    errno = EBADF;
    return nullptr;
}

int count_of_descriptors()
{
    const auto open = [](const t_description_ref &one) { return one != nullptr; };
    const size_t standard = std::min<size_t>(table.size(), STANDARD_DESCRIPTORS);
    return static_cast<int>(std::count_if(table.begin() + static_cast<ptrdiff_t>(standard), table.end(), open));
}

const char *kind_of_descriptor(int fd)
{
    const t_description *one = description_of(fd);
    return one ? one->kind() : nullptr;
}

namespace {

struct t_output : t_description {
    ssize_t read(void *, size_t) override { return 0; }
    ssize_t write(const void *data, size_t size) override
    {
        print(std::string(static_cast<const char *>(data), size).c_str());
        return static_cast<ssize_t>(size);
    }
    short readiness() const override { return POLLOUT; }
    const char *kind() const override { return "output"; }
};

} // namespace

void open_standard_descriptors()
{
    for (int fd = 0; fd < STANDARD_DESCRIPTORS; fd++)
        install_descriptor(std::make_shared<t_output>());
}

} // namespace sim

using namespace sim;

static bool has_room(const void *description)
{
    return static_cast<const t_description *>(description)->readiness() & (POLLOUT | POLLERR | POLLHUP);
}

static bool has_something(const void *description)
{
    return static_cast<const t_description *>(description)->readiness() & (POLLIN | POLLERR | POLLHUP);
}

// Waits where the descriptor would: false when a signal ended the wait.
static bool may_go_on(const t_description &one, bool (*is_over)(const void *))
{
    if (errno != EAGAIN || (one.flags & O_NONBLOCK))
        return false;
    if (wait_for({.is_over = is_over, .of = &one, .by_signals = true, .may_cancel = true, .what = one.kind()}) !=
        t_woken::signal)
        return true;
    errno = EINTR;
    return false;
}

DOOR(ssize_t, read, (int fd, void *buffer, size_t size), (fd, buffer, size), t_door::descriptor)
{
    const t_description_ref one = share_description(fd);
    ssize_t got = -1;
    while (one && (got = one->read(buffer, size)) < 0 && may_go_on(*one, has_something)) {
    }
    return got;
}

DOOR(ssize_t, write, (int fd, const void *data, size_t size), (fd, data, size), t_door::descriptor)
{
    const t_description_ref one = share_description(fd);
    ssize_t put = -1;
    while (one && (put = one->write(data, size)) < 0 && may_go_on(*one, has_room)) {
    }
    return put;
}

DOOR(ssize_t, readv, (int fd, const iovec *parts, int count), (fd, parts, count), t_door::descriptor)
{
    const t_description_ref one = share_description(fd);
    return one && count > 0 ? one->read(parts[0].iov_base, parts[0].iov_len) : -1;
}

DOOR(int, close, (int fd), (fd), t_door::descriptor)
{
    if (!description_of(fd))
        return -1;
    table[static_cast<size_t>(fd)].reset();
    return 0;
}

DOOR(int, dup2, (int fd, int wanted), (fd, wanted), t_door::descriptor)
{
    t_description_ref one = share_description(fd);
    if (!one)
        return -1;
    if (static_cast<size_t>(wanted) >= table.size())
        table.resize(static_cast<size_t>(wanted) + 1);
    table[static_cast<size_t>(wanted)] = std::move(one);
    return wanted;
}

static int control(int fd, int command, int argument)
{
    t_description_ref one = share_description(fd);
    if (!one)
        return -1;
    switch (command) {
    case F_GETFL:
        return one->flags;
    case F_SETFL:
        one->flags = argument;
        return 0;
    case F_DUPFD_CLOEXEC:
        return install_from(std::move(one), static_cast<size_t>(argument));
    case F_SETFD:
        return 0;
    default:
        fail("fcntl is asked for %d, which the simulation does not know", command);
    }
}

// It takes its last argument as it comes, so it cannot be written as the other doors are.
extern "C" int __real_fcntl(int fd, int command, ...);
extern "C" int __wrap_fcntl(int fd, int command, ...);
extern "C" int __wrap_fcntl(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const int argument = va_arg(arguments, int);
    va_end(arguments);
    if (!inside)
        return __real_fcntl(fd, command, argument);
    door(t_door::descriptor);
    return control(fd, command, argument);
}

// --- poll

namespace {

struct t_polled {
    pollfd *wanted;
    nfds_t count;
};

int look_at_polled(const t_polled &polled)
{
    int ready = 0;
    for (nfds_t i = 0; i < polled.count; i++) {
        pollfd &one = polled.wanted[i];
        one.revents = 0;
        if (one.fd < 0)
            continue;
        const t_description *description = description_of(one.fd);
        one.revents = description ? static_cast<short>(description->readiness() & (one.events | POLLERR | POLLHUP))
                                  : short{POLLNVAL};
        ready += one.revents != 0;
    }
    return ready;
}

bool is_any_ready(const void *polled)
{
    return look_at_polled(*static_cast<const t_polled *>(polled)) > 0;
}

} // namespace

DOOR(int, poll, (pollfd * wanted, nfds_t count, int milliseconds), (wanted, count, milliseconds), t_door::wait)
{
    const int saved_errno = errno;
    t_polled polled = {wanted, count};
    const t_time deadline = milliseconds < 0 ? NEVER : now() + milliseconds * MILLISECOND;
    t_woken woken = t_woken::ready;
    if (look_at_polled(polled) == 0 && milliseconds != 0)
        woken = wait_for({.is_over = is_any_ready,
                          .of = &polled,
                          .deadline = deadline,
                          .by_signals = true,
                          .may_cancel = true,
                          .what = "descriptors"});
    const int ready = look_at_polled(polled);
    errno = saved_errno;
    if (ready > 0 || woken != t_woken::signal)
        return ready;
    errno = EINTR;
    return -1;
}
