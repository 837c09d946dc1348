// SPDX-License-Identifier: MIT
// Raw packet sockets: opening, binding, sending, receiving, and their place in the event loop; and the ioctls that tell
// of an interface.
#include "probes/wire/packet_socket.h"

#include <cerrno>
#include <fcntl.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/guards.h"

int packet_socket_open(uint16_t ether_type)
{
    const uint16_t heard_at_once = ether_type == ETH_P_ALL ? 0 : ether_type;
    return socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(heard_at_once));
}

int packet_socket_bind(int fd, const sockaddr_ll &address)
{
    return bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

int packet_socket_bind_to_device(int fd, const char *name)
{
    // The kernel would cut a longer name, and that could be another interface's.
    if (strlen(name) >= IFNAMSIZ) {
        errno = ENODEV;
        return -1;
    }
    ifreq request = {};
    memcpy(request.ifr_name, name, strlen(name));
    if (setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, &request, sizeof request) != 0)
        return -1;
    // The option alone does not keep other ports' frames from a packet socket. Protocol 0 keeps the socket's own, which
    // is none as long as it waits to be bound; index 0, of an interface that vanished just now, would mean every port.
    const unsigned ifindex = if_nametoindex(name);
    return ifindex == 0 ? -1 : packet_socket_bind(fd, packet_address(0, static_cast<int>(ifindex), nullptr));
}

int packet_socket_set_option(int fd, int option, const void *value, size_t size)
{
    return setsockopt(fd, SOL_SOCKET, option, value, static_cast<socklen_t>(size));
}

int packet_socket_filter(int fd, const t_frame_filter &filter)
{
    if (filter.length == 0) {
        const int unused = 0;
        const bool detached = packet_socket_set_option(fd, SO_DETACH_FILTER, &unused, sizeof unused) == 0;
        return detached || errno == ENOENT ? 0 : -1; // there was none
    }
    const sock_fprog program = {.len = filter.length, .filter = const_cast<sock_filter *>(filter.code)};
    return packet_socket_set_option(fd, SO_ATTACH_FILTER, &program, sizeof program);
}

int packet_socket_set_nonblocking(int fd)
{
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0)
        return -1;
    return fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0 ? -1 : 0;
}

ssize_t packet_socket_send(int fd, const void *frame, size_t size, const sockaddr_ll &address)
{
    return sendto(fd, frame, size, 0, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

ssize_t packet_socket_receive(int fd, void *buffer, size_t size, sockaddr_ll *from)
{
    sockaddr_ll source = {};
    socklen_t source_size = sizeof source;
    // Never blocks: the frame that woke the loop may be gone by now.
    const ssize_t got = recvfrom(fd, buffer, size, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&source), &source_size);
    if (got >= 0 && from)
        *from = source;
    return got;
}

int packet_socket_wait_readable(int fd, int timeout_ms)
{
    const t_time_stamp start = get_time_stamp();
    int left_ms = timeout_ms;
    for (;;) {
        pollfd wanted = {.fd = fd, .events = POLLIN, .revents = 0};
        const int ready = fd < 0 ? -1 : poll(&wanted, 1, left_ms);
        if (ready > 0)
            return wanted.revents & POLLNVAL ? -1 : 1;
        if (ready == 0)
            return 0;
        if (fd < 0 || errno != EINTR)
            return -1;
        const int64_t passed_ms = milliseconds_since(start);
        left_ms = passed_ms < timeout_ms ? static_cast<int>(timeout_ms - passed_ms) : 0;
    }
}

int packet_socket_poll(pollfd *sockets, size_t count, int timeout_ms)
{
    const int ready = poll(sockets, count, timeout_ms);
    return ready < 0 && errno == EINTR ? 0 : ready;
}

void packet_socket_watch(uloop_fd *watcher)
{
    uloop_fd_add(watcher, ULOOP_READ | ULOOP_BLOCKING | ULOOP_ERROR_CB);
}

void packet_socket_unwatch(uloop_fd *watcher)
{
    uloop_fd_delete(watcher);
}

void packet_socket_settle_error(uloop_fd *watcher)
{
    int pending = 0;
    socklen_t size = sizeof pending;
    const bool read = getsockopt(watcher->fd, SOL_SOCKET, SO_ERROR, &pending, &size) == 0;
    if (!read || pending == 0)
        packet_socket_unwatch(watcher);
}

void packet_socket_close(uloop_fd *watcher)
{
    packet_socket_unwatch(watcher);
    if (watcher->fd >= 0)
        close(watcher->fd);
    watcher->fd = -1;
}

// --- interfaces

// Asks for one attribute. False also for a name that no interface can have: cut, it could be another interface's.
static bool ask(int fd, unsigned attribute, const char *name, ifreq *request)
{
    *request = {};
    if (!name || strlen(name) >= IFNAMSIZ)
        return false;
    memcpy(request->ifr_name, name, strlen(name));
    return ioctl(fd, attribute, request) == 0;
}

static bool ask_mac(int fd, const char *name, t_mac *mac)
{
    ifreq request;
    if (!ask(fd, SIOCGIFHWADDR, name, &request))
        return false;
    *mac = mac_at(request.ifr_hwaddr.sa_data);
    return true;
}

static bool ask_address(int fd, unsigned attribute, const char *name, uint32_t *address_be)
{
    ifreq request;
    if (!ask(fd, attribute, name, &request))
        return false;
    sockaddr_in address;
    memcpy(&address, &request.ifr_addr, sizeof address);
    *address_be = address.sin_addr.s_addr;
    return true;
}

int query_interface(const char *name, t_interface_info *info)
{
    *info = {};
    const t_fd_guard channel(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (channel.fd < 0)
        return -1;
    ifreq flags;
    const bool known = ask(channel.fd, SIOCGIFFLAGS, name, &flags) && ask_mac(channel.fd, name, &info->mac) &&
                       ask_address(channel.fd, SIOCGIFADDR, name, &info->address_be) &&
                       ask_address(channel.fd, SIOCGIFNETMASK, name, &info->netmask_be);
    return known ? 0 : -1;
}

int query_port(int fd, const char *name, int *ifindex, t_mac *mac)
{
    *ifindex = 0;
    *mac = {};
    ifreq request;
    if (!ask(fd, SIOCGIFINDEX, name, &request))
        return -1;
    *ifindex = request.ifr_ifindex;
    return ask_mac(fd, name, mac) ? 0 : -1;
}
