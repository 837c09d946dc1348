// SPDX-License-Identifier: MIT
#include "probes/veth_net.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

static void require(bool done, const std::string &what)
{
    if (done)
        return;
    perror(what.c_str());
    abort();
}

void must_run(const std::string &command)
{
    require(system(command.c_str()) == 0, command);
}

t_cable::t_cable(const std::string &near_name, const std::string &far_end)
    : name(near_name), far_name(far_end.empty() ? "far-" + near_name : far_end)
{
    must_run("ip link add " + name + " type veth peer name " + far_name);
    // Without link-local addresses nobody but the test speaks.
    for (const std::string &end : {name, far_name})
        must_run("ip link set " + end + " addrgenmode none && ip link set " + end + " up");
}

t_cable::~t_cable()
{
    if (if_nametoindex(name.c_str()) != 0)
        must_run("ip link del " + name);
}

int t_cable::ifindex() const
{
    return static_cast<int>(if_nametoindex(name.c_str()));
}

t_bytes t_cable::mac() const
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request = {};
    strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
    require(ioctl(fd, SIOCGIFHWADDR, &request) == 0, "MAC of " + name);
    close(fd);
    return t_bytes(request.ifr_hwaddr.sa_data, request.ifr_hwaddr.sa_data + MAC_SIZE);
}

t_peer::t_peer(const t_cable &cable) : watch_{}
{
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    require(fd >= 0, "peer socket");
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(cable.far_name.c_str()));
    require(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0, "bind to " + cable.far_name);
    watch_.owner = this;
    watch_.watcher.fd = fd;
    watch_.watcher.cb = on_readable;
    require(uloop_fd_add(&watch_.watcher, ULOOP_READ) == 0, "watch " + cable.far_name);
}

t_peer::~t_peer()
{
    uloop_fd_delete(&watch_.watcher);
    close(watch_.watcher.fd);
}

void t_peer::send(const t_bytes &frame) const
{
    require(::send(watch_.watcher.fd, frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size()), "send");
}

void t_peer::on_readable(uloop_fd *watcher, unsigned int)
{
    t_peer *peer = container_of(watcher, t_watch, watcher)->owner;
    uint8_t buffer[2048];
    sockaddr_ll from = {};
    socklen_t size = sizeof from;
    const ssize_t got = recvfrom(watcher->fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr *>(&from), &size);
    if (got <= 0 || from.sll_pkttype == PACKET_OUTGOING)
        return;
    peer->heard.emplace_back(buffer, buffer + got);
    const t_bytes reply = peer->answer ? peer->answer(peer->heard.back()) : t_bytes();
    if (!reply.empty())
        peer->send(reply);
}

static bool time_is_over;

bool run_loop_until(const std::function<bool()> &done, int limit_ms)
{
    time_is_over = false;
    uloop_timeout limit = {};
    limit.cb = [](uloop_timeout *) { time_is_over = true; };
    uloop_timeout_set(&limit, limit_ms);
    while (!done() && !time_is_over)
        uloop_run_timeout(limit_ms);
    uloop_timeout_cancel(&limit);
    return done();
}
