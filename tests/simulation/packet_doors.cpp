// SPDX-License-Identifier: MIT
// Sockets of every kind that the daemon opens itself, and the questions about interfaces.
#include "tests/simulation/packets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/un.h>
#include <utility>

#include "tests/simulation/bus.h"
#include "tests/simulation/descriptors.h"
#include "tests/simulation/door.h"
#include "tests/simulation/world.h"

namespace sim {

namespace {

struct t_queued {
    std::string bytes;
    int ifindex;
    uint8_t type; // PACKET_HOST or PACKET_OUTGOING
};

struct t_packet_socket : t_description {
    uint16_t ether_type_be = 0;
    int ifindex = 0;
    std::vector<sock_filter> filter;
    std::deque<t_queued> frames;
    int error = 0;

    t_packet_socket();
    ~t_packet_socket() override;
    short readiness() const override
    {
        return static_cast<short>(POLLOUT | (frames.empty() ? 0 : POLLIN) | (error ? POLLERR : 0));
    }
    const char *kind() const override { return "packet socket"; }
};

// A socket that is only asked about interfaces, or only connected to the bus.
struct t_plain_socket : t_description {
    bool greeted = false; // the bus daemon has said hello
    bool connected = false;

    short readiness() const override
    {
        return static_cast<short>((greeted ? POLLIN : 0) | (connected && !bus.is_up ? POLLIN | POLLHUP : 0));
    }
    const char *kind() const override { return "socket"; }
};

std::vector<t_packet_socket *> packet_sockets; // in the order of their opening

t_packet_socket::t_packet_socket()
{
    packet_sockets.push_back(this);
}

t_packet_socket::~t_packet_socket()
{
    packet_sockets.erase(std::find(packet_sockets.begin(), packet_sockets.end(), this));
}

} // namespace

int count_of_packet_sockets()
{
    return static_cast<int>(packet_sockets.size());
}

static uint16_t ether_type_of(const std::string &frame)
{
    uint16_t type_be = 0;
    memcpy(&type_be, frame.data() + 12, sizeof type_be);
    return type_be;
}

static bool wants(const t_packet_socket &socket, const t_queued &frame)
{
    if (socket.ether_type_be == 0 || (socket.ifindex != 0 && socket.ifindex != frame.ifindex))
        return false;
    if (socket.ether_type_be != htons(ETH_P_ALL) && socket.ether_type_be != ether_type_of(frame.bytes))
        return false;
    return socket.filter.empty() || run_filter(socket.filter, frame.bytes, frame.type) > 0;
}

// `only_all`: to those alone that listen to every protocol.
static void queue(const t_queued &frame, bool only_all)
{
    for (t_packet_socket *socket : packet_sockets)
        if ((!only_all || socket->ether_type_be == htons(ETH_P_ALL)) && wants(*socket, frame) &&
            socket->frames.size() < MOST_FRAMES_QUEUED)
            socket->frames.push_back(frame);
}

void frame_comes(int port, const std::string &frame)
{
    const t_port &at = port_at(port);
    if (!at.link || frame.size() < ETH_HLEN)
        return;
    const bool is_member = at.in_bridge || at.in_other_bridge;
    queue({frame, ifindex_of(port), PACKET_HOST}, is_member);
    if (at.in_bridge)
        queue({frame, BRIDGE_IFINDEX, PACKET_HOST}, false);
}

void tell_sockets_of_loss(int port, int error)
{
    for (t_packet_socket *socket : packet_sockets)
        if (socket->ifindex == ifindex_of(port))
            socket->error = error;
}

} // namespace sim

using namespace sim;

static int failure(int error)
{
    errno = error;
    return -1;
}

DOOR(int, socket, (int family, int type, int protocol), (family, type, protocol), t_door::packet)
{
    if (family != AF_PACKET)
        return install_descriptor(std::make_shared<t_plain_socket>());
    auto made = std::make_shared<t_packet_socket>();
    made->ether_type_be = static_cast<uint16_t>(protocol);
    made->flags = type & SOCK_NONBLOCK ? O_NONBLOCK : 0;
    return install_descriptor(std::move(made));
}

DOOR(int, bind, (int fd, const sockaddr *address, socklen_t size), (fd, address, size), t_door::packet)
{
    auto *one = description_as<t_packet_socket>(fd);
    if (!one)
        return failure(EINVAL);
    sockaddr_ll wanted = {};
    memcpy(&wanted, address, std::min<size_t>(size, sizeof wanted));
    if (wanted.sll_ifindex != 0 && wanted.sll_ifindex != BRIDGE_IFINDEX && port_of_ifindex(wanted.sll_ifindex) == 0)
        return failure(ENODEV);
    one->ifindex = wanted.sll_ifindex;
    if (wanted.sll_protocol != 0)
        one->ether_type_be = wanted.sll_protocol;
    return 0;
}

DOOR(int, setsockopt, (int fd, int level, int option, const void *value, socklen_t size),
     (fd, level, option, value, size), t_door::packet)
{
    auto *one = description_as<t_packet_socket>(fd);
    if (!one)
        return description_of(fd) ? 0 : -1;
    if (level != SOL_SOCKET)
        return 0;
    if (option == SO_ATTACH_FILTER) {
        sock_fprog program = {};
        memcpy(&program, value, sizeof program);
        one->filter.assign(program.filter, program.filter + program.len);
    } else if (option == SO_DETACH_FILTER) {
        if (one->filter.empty())
            return failure(ENOENT);
        one->filter.clear();
    }
    return 0;
}

DOOR(int, getsockopt, (int fd, int level, int option, void *value, socklen_t *size), (fd, level, option, value, size),
     t_door::packet)
{
    auto *one = description_as<t_packet_socket>(fd);
    int error = one ? std::exchange(one->error, 0) : 0;
    if (option == SO_ERROR)
        memcpy(value, &error, sizeof error);
    return one ? 0 : failure(EBADF);
}

DOOR(ssize_t, sendto, (int fd, const void *data, size_t size, int flags, const sockaddr *to, socklen_t to_size),
     (fd, data, size, flags, to, to_size), t_door::packet)
{
    sockaddr_ll wanted = {};
    memcpy(&wanted, to, std::min<size_t>(to_size, sizeof wanted));
    const int port = port_of_ifindex(wanted.sll_ifindex);
    const bool is_bridge = wanted.sll_ifindex == BRIDGE_IFINDEX;
    if (!description_as<t_packet_socket>(fd) || (port == 0 && !is_bridge))
        return failure(ENXIO);
    const std::string frame(static_cast<const char *>(data), size);
    queue({frame, wanted.sll_ifindex, PACKET_OUTGOING}, true);
    if (is_bridge)
        frame_goes_to_bridge(frame);
    else
        frame_goes(port, frame);
    return static_cast<ssize_t>(size);
}

static ssize_t receive(int fd, void *buffer, size_t size, sockaddr_ll *from)
{
    auto *one = description_as<t_packet_socket>(fd);
    if (!one)
        return failure(EBADF);
    if (one->error)
        return failure(std::exchange(one->error, 0));
    if (one->frames.empty())
        return failure(EAGAIN);
    const t_queued frame = std::move(one->frames.front());
    one->frames.pop_front();
    *from = {};
    from->sll_family = AF_PACKET;
    from->sll_ifindex = frame.ifindex;
    from->sll_protocol = ether_type_of(frame.bytes);
    from->sll_pkttype = frame.type;
    const size_t got = std::min(size, frame.bytes.size());
    memcpy(buffer, frame.bytes.data(), got);
    return static_cast<ssize_t>(got);
}

DOOR(ssize_t, recvfrom, (int fd, void *buffer, size_t size, int flags, sockaddr *from, socklen_t *from_size),
     (fd, buffer, size, flags, from, from_size), t_door::packet)
{
    sockaddr_ll source;
    const ssize_t got = receive(fd, buffer, size, &source);
    if (got >= 0 && from)
        memcpy(from, &source, std::min<size_t>(*from_size, sizeof source));
    return got;
}

// --- the bus daemon's socket, which the library connects to by itself

DOOR(int, connect, (int fd, const sockaddr *address, socklen_t size), (fd, address, size), t_door::packet)
{
    const t_description_ref one = share_description(fd);
    auto *knock = dynamic_cast<t_plain_socket *>(one.get());
    if (!knock || !bus.is_up)
        return failure(ECONNREFUSED);
    knock->connected = true;
    if (!bus.hangs)
        happen_at(now() + bus.latency, [one] { static_cast<t_plain_socket *>(one.get())->greeted = bus.is_up; });
    return 0;
}

DOOR(ssize_t, recv, (int fd, void *buffer, size_t size, int flags), (fd, buffer, size, flags), t_door::packet)
{
    const auto *knock = description_as<t_plain_socket>(fd);
    if (!knock || !knock->greeted)
        return knock && !bus.is_up ? 0 : failure(EAGAIN);
    memset(buffer, 0, std::min<size_t>(size, 1));
    return 1;
}

DOOR(int, shutdown, (int fd, int how), (fd, how), t_door::bus)
{
    return hang_up_bus(fd) ? 0 : failure(ENOTCONN);
}

DOOR(int, getpeername, (int fd, sockaddr *address, socklen_t *size), (fd, address, size), t_door::bus)
{
    if (!is_bus_connection(fd))
        return failure(ENOTCONN);
    sockaddr_un peer = {};
    peer.sun_family = AF_UNIX;
    memcpy(address, &peer, std::min<size_t>(*size, sizeof peer));
    return 0;
}

// --- interfaces

DOOR(unsigned, if_nametoindex, (const char *name), (name), t_door::packet)
{
    if (strcmp(name, BRIDGE_NAME) == 0)
        return BRIDGE_IFINDEX;
    const int port = port_named(name);
    if (port == 0)
        errno = ENODEV;
    return port == 0 ? 0 : static_cast<unsigned>(ifindex_of(port));
}

static void put_address(sockaddr *place, uint32_t address_be)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = address_be;
    memcpy(place, &address, sizeof address);
}

static int ask_interface(unsigned long question, ifreq *request)
{
    const bool is_bridge = strcmp(request->ifr_name, BRIDGE_NAME) == 0;
    const int port = is_bridge ? 0 : port_named(request->ifr_name);
    if (!is_bridge && port == 0)
        return failure(ENODEV);
    switch (question) {
    case SIOCGIFINDEX:
        request->ifr_ifindex = is_bridge ? BRIDGE_IFINDEX : ifindex_of(port);
        return 0;
    case SIOCGIFFLAGS:
        request->ifr_flags = IFF_UP | IFF_BROADCAST | IFF_RUNNING;
        return 0;
    case SIOCGIFHWADDR:
        memcpy(request->ifr_hwaddr.sa_data, is_bridge ? bridge_mac() : mac_of(port), ETH_ALEN);
        return 0;
    case SIOCGIFADDR:
    case SIOCGIFNETMASK:
        if (!is_bridge)
            return failure(EADDRNOTAVAIL);
        put_address(&request->ifr_addr, question == SIOCGIFADDR ? world.lan_address_be : world.lan_netmask_be);
        return 0;
    default:
        return failure(EOPNOTSUPP);
    }
}

extern "C" int __real_ioctl(int fd, unsigned long question, ...);
extern "C" int __wrap_ioctl(int fd, unsigned long question, ...);
extern "C" int __wrap_ioctl(int fd, unsigned long question, ...)
{
    va_list arguments;
    va_start(arguments, question);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    if (!inside)
        return __real_ioctl(fd, question, argument);
    door(t_door::packet);
    return description_of(fd) ? ask_interface(question, static_cast<ifreq *>(argument)) : -1;
}
