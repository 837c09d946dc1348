// SPDX-License-Identifier: MIT
// The only place that touches packet sockets, and asks the kernel for a port's index and addresses, so that tests can
// replace the wire: the functions here are all that stands on it. A probe holds its socket as a t_port_socket. Loop
// thread only.
#pragma once

#include <arpa/inet.h>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <linux/if_packet.h>
#include <span>
#include <sys/socket.h>
#include <sys/types.h>

#include "probes/wire/frame_filter.h"
#include "probes/wire/mac.h"

extern "C" {
#include <libubox/uloop.h>
}

struct pollfd;

// A raw packet socket for one EtherType (ETH_P_ALL, ETH_P_ARP), close-on-exec. -1 with errno set. One for all hears
// nothing before it is bound: no other port's frames, and the kernel need not take it off all ports again.
int packet_socket_open(uint16_t ether_type);

// 0, or -1 with errno set. A socket bound to a device by name hears that one only, once
// it hears anything.
int packet_socket_bind(int fd, const sockaddr_ll &address);
int packet_socket_bind_to_device(int fd, const char *name);
int packet_socket_set_option(int fd, int option, const void *value, size_t size); // SOL_SOCKET
int packet_socket_set_nonblocking(int fd);

// From now on only what passes the filter is heard, in place of an earlier filter. Without instructions everything is
// heard again; -1 with errno set where the kernel does not take it, and nothing changes.
int packet_socket_filter(int fd, const t_frame_filter &filter);

// Bytes sent or received, or -1 with errno set.
ssize_t packet_socket_send(int fd, const void *frame, size_t size, const sockaddr_ll &address);
// Receiving never blocks; `from` may be null.
ssize_t packet_socket_receive(int fd, void *buffer, size_t size, sockaddr_ll *from);

// Waits until the descriptor is readable, at most `timeout_ms`. 1 readable, 0 time over, -1 error.
int packet_socket_wait_readable(int fd, int timeout_ms);

// Waits for several at once, as poll does (a negative descriptor is passed over). The number of those that have an
// event, 0 when the time is over or a signal came, -1 error.
int packet_socket_poll(pollfd *sockets, size_t count, int timeout_ms);

// Attaches a descriptor to the loop for reading (error callback included), or takes it out (harmless when it is not
// in).
void packet_socket_watch(uloop_fd *watcher);
void packet_socket_unwatch(uloop_fd *watcher);

// For a watched socket that the loop reports in error without anything to read (its interface went down or vanished).
// Clears the error, so that an interface that returns is heard again; a descriptor whose error cannot be cleared is
// taken out of the loop, which would report it without end.
void packet_socket_settle_error(uloop_fd *watcher);

// Takes the descriptor out of the loop, closes it if it is open and sets it to -1.
void packet_socket_close(uloop_fd *watcher);

// --- what the kernel says of an interface

constexpr const char *LAN_BRIDGE = "br-lan";

struct t_interface_info {
    uint32_t address_be;
    uint32_t netmask_be;
    t_mac mac;
};

// IPv4 address, netmask and MAC of an interface, by name. 0, or -1 when any of them cannot be read.
int query_interface(const char *name, t_interface_info *info);

// Index and MAC of a port, asked through an open socket. 0, or -1; what could not be read is 0 then.
int query_port(int fd, const char *name, int *ifindex, t_mac *mac);

// --- addresses, and a probe's own socket

// A link-layer address of AF_PACKET. Without a destination (`mac` null) its length is 0.
inline sockaddr_ll packet_address(uint16_t ether_type, int ifindex, const t_mac *mac)
{
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ether_type);
    address.sll_ifindex = ifindex;
    if (mac) {
        address.sll_halen = MAC_SIZE;
        memcpy(address.sll_addr, mac->bytes, MAC_SIZE);
    }
    return address;
}

// The same to everyone: all eight bytes of the address field are set, the two spare ones included.
inline sockaddr_ll packet_broadcast_address(uint16_t ether_type, int ifindex)
{
    sockaddr_ll address = packet_address(ether_type, ifindex, nullptr);
    address.sll_halen = MAC_SIZE;
    memset(address.sll_addr, 0xff, sizeof address.sll_addr);
    return address;
}

constexpr uloop_fd closed_watcher()
{
    uloop_fd watcher = {};
    watcher.fd = -1;
    return watcher;
}

// A probe's own raw socket on one port. Closed from birth, and again after close(), which may be called at any time.
// Whoever opened it closes it: records that are copied or zeroed as a whole hold it, so it does not end by itself.
struct t_port_socket {
    uloop_fd watcher = closed_watcher();
    int ifindex = 0; // the port's, by look_up()
    t_mac mac = {};

    bool is_open() const { return watcher.fd >= 0; }

    // False with errno set.
    bool open(uint16_t ether_type)
    {
        watcher.fd = packet_socket_open(ether_type);
        return is_open();
    }

    void close() { packet_socket_close(&watcher); }

    // Asks for the port's index and MAC. False when the port is gone; what is not known is 0 then.
    bool look_up(const char *port) { return query_port(watcher.fd, port, &ifindex, &mac) == 0; }

    // The filter stands before the first frame is heard; a kernel that refuses it changes nothing.
    bool listen(const t_frame_filter &filter, const sockaddr_ll &address) const
    {
        packet_socket_filter(watcher.fd, filter);
        return packet_socket_bind(watcher.fd, address) == 0;
    }

    bool send(std::span<const uint8_t> frame, const sockaddr_ll &to) const
    {
        return packet_socket_send(watcher.fd, frame.data(), frame.size(), to) >= 0;
    }

    // The size of the frame that was taken; -1 when none is pending, on an error, and when the socket is closed.
    ssize_t receive(std::span<uint8_t> buffer, sockaddr_ll *from = nullptr) const
    {
        return is_open() ? packet_socket_receive(watcher.fd, buffer.data(), buffer.size(), from) : -1;
    }
};

// A record of the wire as the bytes that are sent.
template <typename Frame> std::span<const uint8_t> bytes_of(const Frame &frame)
{
    return {reinterpret_cast<const uint8_t *>(&frame), sizeof frame};
}
