// SPDX-License-Identifier: MIT
#include "tests/unit/probes/veth_net.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
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

void wait_until_running(const std::string &interface)
{
    constexpr int ATTEMPTS = 10'000;
    constexpr useconds_t PAUSE_US = 1000;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request = {};
    strncpy(request.ifr_name, interface.c_str(), IFNAMSIZ - 1);
    for (int attempt = 0; !(request.ifr_flags & IFF_RUNNING); attempt++) {
        require(attempt < ATTEMPTS, interface + " never runs");
        usleep(PAUSE_US);
        require(ioctl(fd, SIOCGIFFLAGS, &request) == 0, "flags of " + interface);
    }
    // The queue is opened a moment after the flag, under the lock that setting the same flags takes as well.
    require(ioctl(fd, SIOCSIFFLAGS, &request) == 0, "flags of " + interface);
    close(fd);
}

// A packet socket at the far end of a cable.
static int open_far_end(const t_cable &cable, uint16_t ether_type)
{
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    require(fd >= 0, "peer socket");
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ether_type);
    address.sll_ifindex = static_cast<int>(if_nametoindex(cable.far_name.c_str()));
    require(address.sll_ifindex != 0, cable.far_name);
    require(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0, "bind to " + cable.far_name);
    return fd;
}

static void send_frame(int fd, const t_bytes &frame)
{
    require(send(fd, frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size()), "send");
}

// The next frame that came over the cable; empty for what the peer sent itself and when there is none.
static t_bytes receive_frame(int fd)
{
    t_bytes frame(ETH_FRAME_LEN);
    sockaddr_ll from = {};
    socklen_t size = sizeof from;
    const ssize_t got =
        recvfrom(fd, frame.data(), frame.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from), &size);
    frame.resize(got < 0 || from.sll_pkttype == PACKET_OUTGOING ? 0 : static_cast<size_t>(got));
    return frame;
}

t_cable::t_cable(const std::string &near_name, const std::string &far_end)
    : name(near_name), far_name(far_end.empty() ? "far-" + near_name : far_end)
{
    must_run("ip link add " + name + " type veth peer name " + far_name);
    // Without link-local addresses nobody but the test speaks.
    for (const std::string &end : {name, far_name})
        must_run("ip link set " + end + " addrgenmode none && ip link set " + end + " up");
    wait_until_running(name);
    wait_until_running(far_name);
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

t_loop_peer::t_loop_peer(const t_cable &cable) : watch_{}
{
    watch_.owner = this;
    watch_.watcher.fd = open_far_end(cable, ETH_P_ALL);
    watch_.watcher.cb = on_readable;
    require(uloop_fd_add(&watch_.watcher, ULOOP_READ) == 0, "watch " + cable.far_name);
}

t_loop_peer::~t_loop_peer()
{
    uloop_fd_delete(&watch_.watcher);
    close(watch_.watcher.fd);
}

void t_loop_peer::send(const t_bytes &frame) const
{
    send_frame(watch_.watcher.fd, frame);
}

void t_loop_peer::on_readable(uloop_fd *watcher, unsigned int)
{
    t_loop_peer *peer = container_of(watcher, t_watch, watcher)->owner;
    const t_bytes frame = receive_frame(watcher->fd);
    if (frame.empty())
        return;
    peer->heard.push_back(frame);
    const t_bytes reply = peer->answer ? peer->answer(frame) : t_bytes();
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

t_thread_peer::t_thread_peer(const t_cable &cable, uint16_t ether_type, t_answerer answerer)
    : fd_(open_far_end(cable, ether_type)), answerer_(std::move(answerer)), thread_([this] { serve(); })
{
}

t_thread_peer::~t_thread_peer()
{
    stopping_ = true;
    thread_.join();
    close(fd_);
}

void t_thread_peer::send(const t_bytes &frame) const
{
    send_frame(fd_, frame);
}

void t_thread_peer::serve()
{
    constexpr int STOP_CHECK_MS = 20;
    while (!stopping_) {
        pollfd wanted = {.fd = fd_, .events = POLLIN, .revents = 0};
        if (poll(&wanted, 1, STOP_CHECK_MS) <= 0)
            continue;
        const t_bytes heard = receive_frame(fd_);
        if (heard.empty())
            continue;
        for (const t_bytes &frame : answerer_(heard))
            send(frame);
    }
}

t_arp_peer::t_arp_peer(const t_cable &cable, t_answerer answerer)
    : peer_(cable, ETH_P_ARP, [this, answerer](const t_bytes &frame) {
          t_arp_frame request = {};
          memcpy(&request, frame.data(), std::min(frame.size(), sizeof request));
          if (request.opcode_be != htons(1))
              return std::vector<t_bytes>();
          requests_++;
          return answerer(request);
      })
{
}
