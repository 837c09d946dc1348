// SPDX-License-Identifier: MIT
// A probe's own raw socket on one port, from its opening to its end. Loop thread only.
#pragma once

#include <cstdint>
#include <span>

#include <linux/if_packet.h>
#include <sys/types.h>

#include "probes/wire/frame_filter.h"
#include "probes/wire/mac.h"

extern "C" {
#include <libubox/uloop.h>
}

constexpr uloop_fd closed_watcher()
{
    uloop_fd watcher = {};
    watcher.fd = -1;
    return watcher;
}

// Closed from birth, and again after close(), which may be called at any time. Whoever opened it closes it: records
// that are copied or zeroed as a whole hold it, so it does not end by itself.
struct t_port_socket {
    uloop_fd watcher = closed_watcher();
    int ifindex = 0; // the port's, by look_up()
    t_mac mac = {};

    bool is_open() const { return watcher.fd >= 0; }
    // False with errno set.
    bool open(uint16_t ether_type);
    void close();

    // Asks for the port's index and MAC. False when the port is gone; what is not known is 0 then.
    bool look_up(const char *port);
    // The filter stands before the first frame is heard; a kernel that refuses it changes nothing.
    bool listen(const t_frame_filter &filter, const sockaddr_ll &address);

    bool send(std::span<const uint8_t> frame, const sockaddr_ll &to) const;
    // The size of the frame that was taken; -1 when none is pending, on an error, and when the socket is closed.
    ssize_t receive(std::span<uint8_t> buffer, sockaddr_ll *from = nullptr) const;
};

// A record of the wire as the bytes that are sent.
template <typename Frame> std::span<const uint8_t> bytes_of(const Frame &frame)
{
    return {reinterpret_cast<const uint8_t *>(&frame), sizeof frame};
}
