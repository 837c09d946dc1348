// SPDX-License-Identifier: MIT
// A frame filter as the kernel runs it, without any interface: it sits on one end of a pair of local sockets.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "probes/wire/frame_filter.h"

class t_kernel_filter {
public:
    explicit t_kernel_filter(const t_frame_filter &filter)
    {
        if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends_) != 0)
            give_up("socketpair");
        if (filter.length == 0)
            return;
        sock_fprog program = {.len = filter.length, .filter = const_cast<sock_filter *>(filter.code)};
        if (setsockopt(ends_[1], SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0)
            give_up("the kernel refuses the filter");
    }
    ~t_kernel_filter()
    {
        close(ends_[0]);
        close(ends_[1]);
    }
    t_kernel_filter(const t_kernel_filter &) = delete;
    t_kernel_filter &operator=(const t_kernel_filter &) = delete;

    // True when the frame comes through, whole.
    bool passes(const std::vector<uint8_t> &frame) const
    {
        if (send(ends_[0], frame.data(), frame.size(), 0) != static_cast<ssize_t>(frame.size()))
            give_up("send");
        uint8_t byte;
        const ssize_t got = recv(ends_[1], &byte, sizeof byte, MSG_DONTWAIT | MSG_TRUNC);
        if (got >= 0 && got != static_cast<ssize_t>(frame.size()))
            give_up("the filter cuts frames");
        return got >= 0;
    }

private:
    [[noreturn]] static void give_up(const char *what)
    {
        perror(what);
        abort();
    }

    int ends_[2] = {-1, -1};
};
