// SPDX-License-Identifier: MIT
// The only place that touches packet sockets, so that tests can replace the wire. Loop thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

struct pollfd;
struct t_frame_filter;
struct sockaddr_ll;
struct uloop_fd;

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
