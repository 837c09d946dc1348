// SPDX-License-Identifier: MIT
#include "tests/unit/probes/fake_wire.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <poll.h>

#include "probes/wire/frame_filter.h"
#include "probes/wire/packet_socket.h"

extern "C" {
#include <libubox/uloop.h>
}

t_fake_wire fake_wire;

void t_fake_wire::reset()
{
    *this = t_fake_wire();
}

void t_fake_wire::add_interface(const std::string &name, const t_fake_interface &interface)
{
    interfaces_[name] = interface;
}

void t_fake_wire::fail(t_wire_call call, int error, int skip, int times, const std::string &port)
{
    failures_.push_back({call, error, skip, times, port});
}

bool t_fake_wire::fails(t_wire_call call, const std::string &port)
{
    for (t_failure &failure : failures_) {
        if (failure.call != call || (!failure.port.empty() && failure.port != port))
            continue;
        if (failure.skip > 0) {
            failure.skip--;
        } else if (failure.times > 0) {
            failure.times--;
            errno = failure.error;
            return true;
        }
    }
    return false;
}

int t_fake_wire::add_socket(uint16_t ether_type)
{
    sockets_[next_fd_].ether_type = ether_type;
    return next_fd_++;
}

t_fake_socket *t_fake_wire::find(int fd)
{
    auto found = sockets_.find(fd);
    if (found != sockets_.end() && found->second.open)
        return &found->second;
    errno = EBADF;
    return nullptr;
}

t_fake_interface *t_fake_wire::find_interface(const std::string &name)
{
    auto found = interfaces_.find(name);
    return found == interfaces_.end() ? nullptr : &found->second;
}

std::string t_fake_wire::port_of(int ifindex) const
{
    for (const auto &[name, interface] : interfaces_)
        if (ifindex != 0 && interface.ifindex == ifindex)
            return name;
    return "";
}

std::string t_fake_wire::port_of(const t_fake_socket &socket) const
{
    return socket.device.empty() ? port_of(socket.address.sll_ifindex) : socket.device;
}

void t_fake_wire::record(const t_sent_frame &frame)
{
    sent_.push_back(frame);
    if (on_send)
        on_send(frame);
}

void t_fake_wire::close_socket(int fd)
{
    t_fake_socket &closed = sockets_.at(fd);
    closed.open = false;
    closed.watcher = nullptr;
    closed.arrived.clear();
}

void t_fake_wire::arrive(int fd, const t_bytes &frame)
{
    t_fake_socket &socket = sockets_.at(fd);
    arrive(fd, frame, packet_address(socket.ether_type, socket.address.sll_ifindex, nullptr));
}

void t_fake_wire::arrive(int fd, const t_bytes &frame, const sockaddr_ll &from)
{
    sockets_.at(fd).arrived.push_back({frame, from});
}

void t_fake_wire::arrive(const std::string &port, const t_bytes &frame)
{
    for (const auto &[fd, socket] : sockets_)
        if (socket.open && port_of(socket) == port)
            arrive(fd, frame);
}

int t_fake_wire::run_loop()
{
    int calls = 0;
    auto ready = [](const auto &entry) { return entry.second.watcher && !entry.second.arrived.empty(); };
    for (auto next = std::find_if(sockets_.begin(), sockets_.end(), ready); next != sockets_.end();
         next = std::find_if(sockets_.begin(), sockets_.end(), ready)) {
        uloop_fd *watcher = next->second.watcher;
        watcher->cb(watcher, ULOOP_READ);
        calls++;
    }
    return calls;
}

std::vector<t_sent_frame> t_fake_wire::sent_on(const std::string &port) const
{
    std::vector<t_sent_frame> found;
    std::copy_if(sent_.begin(), sent_.end(), std::back_inserter(found),
                 [&](const t_sent_frame &frame) { return frame.port == port; });
    return found;
}

int t_fake_wire::socket_of(const std::string &port) const
{
    for (const auto &[fd, socket] : sockets_)
        if (socket.open && port_of(socket) == port)
            return fd;
    return -1;
}

int t_fake_wire::open_sockets() const
{
    return static_cast<int>(
        std::count_if(sockets_.begin(), sockets_.end(), [](const auto &entry) { return entry.second.open; }));
}

int t_fake_wire::watched_sockets() const
{
    return static_cast<int>(
        std::count_if(sockets_.begin(), sockets_.end(), [](const auto &entry) { return entry.second.watcher; }));
}

// What the probes call.

int packet_socket_open(uint16_t ether_type)
{
    return fake_wire.fails(t_wire_call::OPEN) ? -1 : fake_wire.add_socket(ether_type);
}

int packet_socket_bind(int fd, const sockaddr_ll &address)
{
    t_fake_socket *socket = fake_wire.find(fd);
    if (!socket || fake_wire.fails(t_wire_call::BIND, fake_wire.port_of(address.sll_ifindex)))
        return -1;
    socket->bound = true;
    socket->address = address;
    return 0;
}

int packet_socket_bind_to_device(int fd, const char *name)
{
    t_fake_socket *socket = fake_wire.find(fd);
    if (!socket || fake_wire.fails(t_wire_call::BIND_TO_DEVICE, name))
        return -1;
    if (!fake_wire.find_interface(name)) {
        errno = ENODEV;
        return -1;
    }
    socket->device = name;
    return 0;
}

int packet_socket_set_option(int fd, int option, const void *value, size_t size)
{
    t_fake_socket *socket = fake_wire.find(fd);
    if (!socket || fake_wire.fails(t_wire_call::SET_OPTION, fake_wire.port_of(*socket)))
        return -1;
    const auto *bytes = static_cast<const uint8_t *>(value);
    socket->options.push_back({option, t_bytes(bytes, bytes + size)});
    return 0;
}

int packet_socket_filter(int fd, const t_frame_filter &filter)
{
    t_fake_socket *socket = fake_wire.find(fd);
    if (!socket || fake_wire.fails(t_wire_call::FILTER, fake_wire.port_of(*socket)))
        return -1;
    socket->filter_length = filter.length;
    socket->filtered_before_bound = filter.length > 0 && !socket->bound;
    return 0;
}

int packet_socket_set_nonblocking(int fd)
{
    t_fake_socket *socket = fake_wire.find(fd);
    if (!socket || fake_wire.fails(t_wire_call::SET_NONBLOCKING, fake_wire.port_of(*socket)))
        return -1;
    socket->nonblocking = true;
    return 0;
}

ssize_t packet_socket_send(int fd, const void *frame, size_t size, const sockaddr_ll &address)
{
    const std::string port = fake_wire.port_of(address.sll_ifindex);
    if (!fake_wire.find(fd) || fake_wire.fails(t_wire_call::SEND, port))
        return -1;
    const auto *bytes = static_cast<const uint8_t *>(frame);
    fake_wire.record({fd, port, t_bytes(bytes, bytes + size), address});
    return static_cast<ssize_t>(size);
}

ssize_t packet_socket_receive(int fd, void *buffer, size_t size, sockaddr_ll *from)
{
    t_fake_socket *socket = fake_wire.find(fd);
    if (!socket)
        return -1;
    if (fake_wire.fails(t_wire_call::RECEIVE, fake_wire.port_of(*socket))) {
        // The failing read consumes what woke it, as a pending error does.
        if (!socket->arrived.empty())
            socket->arrived.pop_front();
        return -1;
    }
    if (socket->arrived.empty()) {
        errno = EAGAIN;
        return -1;
    }
    const t_arrived_frame frame = socket->arrived.front();
    socket->arrived.pop_front();
    fake_wire.received++;
    const size_t taken = std::min(size, frame.bytes.size());
    if (taken > 0)
        std::copy_n(frame.bytes.data(), taken, static_cast<uint8_t *>(buffer));
    if (from)
        *from = frame.from;
    return static_cast<ssize_t>(taken);
}

int packet_socket_wait_readable(int fd, int timeout_ms)
{
    t_fake_socket *socket = fake_wire.find(fd);
    if (!socket || fake_wire.fails(t_wire_call::WAIT, fake_wire.port_of(*socket)))
        return -1;
    if (fake_wire.on_wait)
        fake_wire.on_wait(fd, timeout_ms);
    return socket->arrived.empty() ? 0 : 1;
}

int packet_socket_poll(pollfd *sockets, size_t count, int timeout_ms)
{
    if (fake_wire.fails(t_wire_call::WAIT))
        return -1;
    if (fake_wire.on_wait)
        fake_wire.on_wait(-1, timeout_ms);
    int ready = 0;
    for (size_t i = 0; i < count; i++) {
        t_fake_socket *socket = sockets[i].fd < 0 ? nullptr : fake_wire.find(sockets[i].fd);
        const bool readable = socket && !socket->arrived.empty();
        sockets[i].revents = static_cast<short>(readable ? sockets[i].events & POLLIN : 0);
        ready += sockets[i].revents != 0;
    }
    return ready;
}

void packet_socket_watch(uloop_fd *watcher)
{
    if (t_fake_socket *socket = fake_wire.find(watcher->fd))
        socket->watcher = watcher;
}

void packet_socket_unwatch(uloop_fd *watcher)
{
    if (t_fake_socket *socket = fake_wire.find(watcher->fd))
        socket->watcher = nullptr;
}

void packet_socket_settle_error(uloop_fd *watcher)
{
    t_fake_socket *socket = fake_wire.find(watcher->fd);
    if (socket && socket->error_pending)
        socket->error_pending = false;
    else
        packet_socket_unwatch(watcher);
}

void packet_socket_close(uloop_fd *watcher)
{
    packet_socket_unwatch(watcher);
    if (watcher->fd >= 0 && fake_wire.find(watcher->fd))
        fake_wire.close_socket(watcher->fd);
    watcher->fd = -1;
}

int query_interface(const char *name, t_interface_info *info)
{
    *info = {};
    const t_fake_interface *known = fake_wire.find_interface(name);
    if (!known || known->address_be == 0 || fake_wire.fails(t_wire_call::QUERY_INTERFACE, name))
        return -1;
    info->address_be = known->address_be;
    info->netmask_be = known->netmask_be;
    info->mac = known->mac;
    return 0;
}

int query_port(int fd, const char *name, int *ifindex, t_mac *mac)
{
    *ifindex = 0;
    *mac = UNKNOWN_MAC;
    const t_fake_interface *known = fake_wire.find_interface(name);
    if (!fake_wire.find(fd) || !known || fake_wire.fails(t_wire_call::QUERY_PORT, name))
        return -1;
    *ifindex = known->ifindex;
    *mac = known->mac;
    return 0;
}
