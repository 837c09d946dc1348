// SPDX-License-Identifier: MIT
// The daemon's descriptors: numbers of the simulation, with nothing of the kernel behind them.
#pragma once

#include <memory>
#include <poll.h>
#include <sys/types.h>

namespace sim {

// What a descriptor leads to; several descriptors may lead to one.
struct t_description {
    virtual ~t_description() = default;
    virtual short readiness() const { return POLLIN | POLLOUT; } // as poll() tells it, without being asked for errors
    virtual ssize_t read(void *buffer, size_t size);             // -1 and errno; EAGAIN when it would wait
    virtual ssize_t write(const void *data, size_t size);
    virtual const char *kind() const = 0;

    bool is_stream = false; // may be waited for without an end in read()
    int flags = 0;          // O_NONBLOCK and the like
};

using t_description_ref = std::shared_ptr<t_description>;

// The lowest free number, as the kernel would give it; -1 and EMFILE when the world refuses.
int install_descriptor(t_description_ref description);

// Null, and EBADF, for a number that is not open.
t_description *description_of(int fd);
t_description_ref share_description(int fd);

template <typename Kind> Kind *description_as(int fd)
{
    return dynamic_cast<Kind *>(description_of(fd));
}

// Those that are open, the standard ones left out.
int count_of_descriptors();
const char *kind_of_descriptor(int fd); // null when it is not open

// Descriptors 0 to 2, which lead to the event log.
void open_standard_descriptors();

// What the daemon prints, line by line into the event log; returns its length.
int print(const char *text);

// What the end of a pipe that belongs to a command does: text to be read, then the end.
t_description_ref make_pipe_writer_of(int write_fd);
void write_to_pipe(const t_description_ref &writer, const char *text);

} // namespace sim
