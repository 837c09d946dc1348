// SPDX-License-Identifier: MIT
// Descriptors that exist to be waited for: epoll, eventfd, signalfd, pipes.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include "tests/simulation/commands.h"
#include "tests/simulation/descriptors.h"
#include "tests/simulation/door.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/signals.h"

namespace sim {

namespace {

ssize_t would_wait()
{
    errno = EAGAIN;
    return -1;
}

struct t_counter : t_description {
    uint64_t value = 0;

    short readiness() const override { return static_cast<short>(POLLOUT | (value > 0 ? POLLIN : 0)); }
    ssize_t read(void *buffer, size_t) override
    {
        if (value == 0)
            return would_wait();
        memcpy(buffer, &value, sizeof value);
        value = 0;
        return sizeof value;
    }
    ssize_t write(const void *data, size_t) override
    {
        uint64_t more = 0;
        memcpy(&more, data, sizeof more);
        value += more;
        return sizeof more;
    }
    const char *kind() const override { return "eventfd"; }
};

struct t_signals : t_description {
    uint64_t set = 0; // a bit for each number

    int first() const { return first_signal(set & pending_for_process); }
    short readiness() const override { return first() ? POLLIN : short{0}; }
    ssize_t read(void *buffer, size_t) override
    {
        const int number = first();
        if (!number)
            return would_wait();
        take_pending(number);
        signalfd_siginfo info = {};
        info.ssi_signo = static_cast<uint32_t>(number);
        memcpy(buffer, &info, sizeof info);
        return sizeof info;
    }
    const char *kind() const override { return "signalfd"; }
};

struct t_channel {
    std::string bytes;
};

constexpr size_t PIPE_SIZE = 65536;

struct t_pipe_reader : t_description {
    std::shared_ptr<t_channel> channel;
    std::weak_ptr<t_description> writer;

    short readiness() const override
    {
        return static_cast<short>((channel->bytes.empty() ? 0 : POLLIN) | (writer.expired() ? POLLHUP : 0));
    }
    ssize_t read(void *buffer, size_t size) override
    {
        if (channel->bytes.empty())
            return writer.expired() ? 0 : would_wait();
        const size_t got = std::min(size, channel->bytes.size());
        memcpy(buffer, channel->bytes.data(), got);
        channel->bytes.erase(0, got);
        return static_cast<ssize_t>(got);
    }
    const char *kind() const override { return "pipe"; }
};

struct t_pipe_writer : t_description {
    std::shared_ptr<t_channel> channel;

    short readiness() const override { return channel->bytes.size() < PIPE_SIZE ? POLLOUT : short{0}; }
    ssize_t write(const void *data, size_t size) override
    {
        const size_t put = std::min(size, PIPE_SIZE - std::min(PIPE_SIZE, channel->bytes.size()));
        if (put == 0)
            return would_wait();
        channel->bytes.append(static_cast<const char *>(data), put);
        return static_cast<ssize_t>(put);
    }
    const char *kind() const override { return "pipe"; }
};

struct t_watched {
    int fd;
    std::weak_ptr<t_description> description;
    const t_description *place; // of the same: to look there costs less
    epoll_event event;
};

struct t_epoll : t_description {
    std::vector<t_watched> watched;

    static uint32_t events_of(const t_watched &one)
    {
        if (one.description.expired())
            return 0;
        const auto ready = static_cast<uint32_t>(one.place->readiness());
        const uint32_t hung_up = ready & POLLHUP ? uint32_t{EPOLLRDHUP} : 0; // poll's bits are epoll's
        return (ready | hung_up) & (one.event.events | EPOLLERR | EPOLLHUP);
    }
    bool is_ready() const
    {
        return std::any_of(watched.begin(), watched.end(), [](const t_watched &one) { return events_of(one) != 0; });
    }
    short readiness() const override { return is_ready() ? POLLIN : short{0}; }
    const char *kind() const override { return "epoll"; }
    void forget_closed()
    {
        watched.erase(std::remove_if(watched.begin(), watched.end(),
                                     [](const t_watched &one) { return one.description.expired(); }),
                      watched.end());
    }
    t_watched *find(int fd, const t_description *description)
    {
        for (t_watched &one : watched)
            if (one.fd == fd && one.place == description)
                return &one;
        return nullptr;
    }
};

bool is_epoll_ready(const void *poll)
{
    return static_cast<const t_epoll *>(poll)->is_ready();
}

} // namespace

t_description_ref make_pipe_writer_of(int write_fd)
{
    return share_description(write_fd);
}

void write_to_pipe(const t_description_ref &writer, const char *text)
{
    if (writer)
        writer->write(text, strlen(text));
}

} // namespace sim

using namespace sim;

DOOR(int, eventfd, (unsigned first, int flags), (first, flags), t_door::descriptor)
{
    auto counter = std::make_shared<t_counter>();
    counter->value = first;
    counter->flags = flags & EFD_NONBLOCK;
    return install_descriptor(std::move(counter));
}

DOOR(int, signalfd, (int fd, const sigset_t *set, int flags), (fd, set, flags), t_door::descriptor)
{
    if (fd != -1)
        fail("signalfd is used in a way that the simulation does not know");
    auto signals = std::make_shared<t_signals>();
    signals->set = bits_of(set);
    signals->flags = flags & SFD_NONBLOCK;
    return install_descriptor(std::move(signals));
}

DOOR(int, pipe2, (int *ends, int flags), (ends, flags), t_door::descriptor)
{
    const auto channel = std::make_shared<t_channel>();
    auto writer = std::make_shared<t_pipe_writer>();
    auto reader = std::make_shared<t_pipe_reader>();
    reader->channel = writer->channel = channel;
    reader->writer = writer;
    reader->flags = writer->flags = flags & O_NONBLOCK;
    ends[0] = install_descriptor(std::move(reader));
    if (ends[0] < 0)
        return -1;
    ends[1] = install_descriptor(std::move(writer));
    if (ends[1] >= 0)
        return 0;
    close(ends[0]);
    errno = EMFILE;
    return -1;
}

DOOR(int, epoll_create1, (int flags), (flags), t_door::descriptor)
{
    return install_descriptor(std::make_shared<t_epoll>());
}

DOOR(int, epoll_ctl, (int poll_fd, int operation, int fd, epoll_event *event), (poll_fd, operation, fd, event),
     t_door::descriptor)
{
    auto *poll = description_as<t_epoll>(poll_fd);
    const t_description_ref description = share_description(fd);
    if (!poll || !description)
        return -1;
    poll->forget_closed();
    t_watched *known = poll->find(fd, description.get());
    if (operation == EPOLL_CTL_ADD && !known) {
        poll->watched.push_back({fd, description, description.get(), *event});
        return 0;
    }
    if (!known || operation == EPOLL_CTL_ADD) {
        errno = known ? EEXIST : ENOENT;
        return -1;
    }
    if (operation == EPOLL_CTL_MOD)
        known->event = *event;
    else
        poll->watched.erase(poll->watched.begin() + (known - poll->watched.data()));
    return 0;
}

DOOR(int, epoll_wait, (int poll_fd, epoll_event *events, int most, int milliseconds),
     (poll_fd, events, most, milliseconds), t_door::wait)
{
    auto *poll = description_as<t_epoll>(poll_fd);
    if (!poll)
        return -1;
    const t_time deadline = milliseconds < 0 ? NEVER : now() + milliseconds * MILLISECOND;
    if (!poll->is_ready() && milliseconds != 0 &&
        wait_for({.is_over = is_epoll_ready,
                  .of = poll,
                  .deadline = deadline,
                  .by_signals = true,
                  .may_cancel = true,
                  .what = "the loop's descriptors"}) == t_woken::signal) {
        errno = EINTR;
        return -1;
    }
    int count = 0;
    const size_t size = poll->watched.size();
    const size_t first = size ? draw(3, doors_passed) % size : 0; // the kernel's order is that of what came first
    for (size_t i = 0; i < size && count < most; i++) {
        const t_watched &one = poll->watched[(first + i) % size];
        if (const uint32_t ready = t_epoll::events_of(one)) {
            events[count] = one.event;
            events[count++].events = ready;
        }
    }
    return count;
}

// --- the kernel's calls by number

static long call_kernel(long number, long first, long second)
{
    switch (number) {
    case SYS_gettid:
        return DAEMON_PID + self().number;
    case SYS_flock:
        return lock_file(static_cast<int>(first), static_cast<int>(second));
    case SYS_pidfd_open:
        return open_end_of_command(static_cast<pid_t>(first));
    default:
        fail("the kernel's call %ld is none that the simulation knows", number);
    }
}

extern "C" long __real_syscall(long number, ...);
extern "C" long __wrap_syscall(long number, ...);
// As many words as a call can have are read, given or not.
extern "C" __attribute__((no_sanitize_address)) long __wrap_syscall(long number, ...)
{
    va_list arguments;
    va_start(arguments, number);
    long words[6];
    for (long &word : words)
        word = va_arg(arguments, long);
    va_end(arguments);
    if (!inside)
        return __real_syscall(number, words[0], words[1], words[2], words[3], words[4], words[5]);
    door(t_door::descriptor);
    return call_kernel(number, words[0], words[1]);
}
