// SPDX-License-Identifier: MIT
#include "bench/dhcp_peers.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "probes/wire_formats.h"

namespace {

constexpr int POLL_MS = 50;
constexpr uint16_t BOOTP_SERVER = 67;
constexpr uint16_t BOOTP_CLIENT = 68;

int open_on(const std::string &interface)
{
    int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_IP));
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        perror(interface.c_str());
        exit(EXIT_FAILURE);
    }
    return fd;
}

// An OFFER with a router and a name server, made out of the DISCOVER itself. False when the frame is no DISCOVER.
bool make_offer(t_dhcp_frame &frame)
{
    if (frame.udp.destination_port_be != htons(BOOTP_SERVER) || frame.dhcp.op != 1)
        return false;
    static constexpr uint8_t OPTIONS[] = {53, 1, 2, 3, 4, 10, 0, 0, 1, 6, 4, 10, 0, 0, 53, 255};
    memcpy(frame.ethernet.destination, frame.ethernet.source, MAC_SIZE);
    memcpy(frame.ethernet.source, "\x02\x00\x00\x00\x00\x01", MAC_SIZE);
    frame.udp.source_port_be = htons(BOOTP_SERVER);
    frame.udp.destination_port_be = htons(BOOTP_CLIENT);
    frame.dhcp.op = 2;
    frame.dhcp.yiaddr_be = htonl(0x0a000002);
    memset(frame.dhcp.options, 0, sizeof frame.dhcp.options);
    memcpy(frame.dhcp.options, OPTIONS, sizeof OPTIONS);
    return true;
}

void answer(int fd)
{
    t_dhcp_frame frame = {};
    sockaddr_ll from = {};
    socklen_t length = sizeof from;
    ssize_t got = recvfrom(fd, &frame, sizeof frame, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from), &length);
    if (got == static_cast<ssize_t>(sizeof frame) && from.sll_pkttype != PACKET_OUTGOING && make_offer(frame))
        static_cast<void>(send(fd, &frame, sizeof frame, 0));
}

} // namespace

t_dhcp_peers::t_dhcp_peers(const std::vector<std::string> &interfaces)
{
    for (const std::string &interface : interfaces)
        sockets_.push_back(open_on(interface));
    thread_ = std::thread([this] { serve(); });
}

t_dhcp_peers::~t_dhcp_peers()
{
    stop_ = true;
    thread_.join();
    for (int fd : sockets_)
        close(fd);
}

void t_dhcp_peers::serve()
{
    std::vector<pollfd> wanted;
    for (int fd : sockets_)
        wanted.push_back({fd, POLLIN, 0});
    while (!stop_) {
        poll(wanted.data(), wanted.size(), POLL_MS);
        for (const pollfd &ready : wanted)
            if (ready.revents & POLLIN)
                answer(ready.fd);
    }
}
