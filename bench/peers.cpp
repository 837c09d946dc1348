// SPDX-License-Identifier: MIT
#include "bench/peers.h"

#include <arpa/inet.h>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench/networks.h"
#include "lab/offer.h"
#include "probes/arp/arp_frames.h"

namespace {

constexpr int POLL_MS = 50;
constexpr uint16_t BOOTP_SERVER = 67;
constexpr uint8_t BOOTP_REQUEST = 1;
constexpr uint32_t OFFERED_ADDRESS = 0x0a000002;
constexpr t_mac SERVER_MAC = {{2, 0, 0, 0, 0, 1}};
// An OFFER (53), its router (3), its name server (6), the end.
constexpr uint8_t OFFER_OPTIONS[] = {53, 1, 2, 3, 4, 10, 0, 0, 1, 6, 4, 10, 0, 0, 53, 255};

int open_on(const std::string &interface, uint16_t ether_type)
{
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ether_type);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        give_up(interface);
    return fd;
}

} // namespace

bool answer_discover(uint8_t (&bytes)[LARGEST_FRAME], size_t size)
{
    t_dhcp_frame frame;
    if (size != sizeof frame)
        return false;
    memcpy(&frame, bytes, sizeof frame);
    if (frame.udp.destination_port_be != htons(BOOTP_SERVER) || frame.dhcp.op != BOOTP_REQUEST)
        return false;
    const t_dhcp_frame answer = offer_to(frame, {.server_mac = SERVER_MAC,
                                                 .server_be = frame.ipv4.source_be,
                                                 .address_be = htonl(OFFERED_ADDRESS),
                                                 .options = OFFER_OPTIONS});
    memcpy(bytes, &answer, sizeof answer);
    return true;
}

bool answer_arp(uint8_t (&bytes)[LARGEST_FRAME], size_t size)
{
    t_arp_frame request;
    if (size < sizeof request)
        return false;
    memcpy(&request, bytes, sizeof request);
    if (request.opcode_be != htons(ARP_OPCODE_REQUEST))
        return false;
    t_arp_frame reply = request;
    reply.ethernet.destination = request.ethernet.source;
    reply.ethernet.source = request.ethernet.destination;
    reply.opcode_be = htons(ARP_OPCODE_REPLY);
    reply.sender_mac = request.ethernet.destination;
    reply.sender_ip_be = request.target_ip_be;
    reply.target_mac = request.sender_mac;
    reply.target_ip_be = request.sender_ip_be;
    memcpy(bytes, &reply, sizeof reply);
    return true;
}

t_peers::t_peers(const std::vector<std::string> &far_ends, uint16_t ether_type, t_answerer answer) : answer_(answer)
{
    t_far_side far_side;
    for (const std::string &far_end : far_ends)
        sockets_.push_back(open_on(far_end, ether_type));
    thread_ = std::thread([this] { serve(); });
}

t_peers::~t_peers()
{
    stop_ = true;
    thread_.join();
    for (int fd : sockets_)
        close(fd);
}

void t_peers::serve()
{
    std::vector<pollfd> wanted;
    for (int fd : sockets_)
        wanted.push_back({fd, POLLIN, 0});
    while (!stop_) {
        poll(wanted.data(), wanted.size(), POLL_MS);
        for (const pollfd &ready : wanted) {
            uint8_t frame[LARGEST_FRAME];
            const ssize_t got = ready.revents & POLLIN ? recv(ready.fd, frame, sizeof frame, MSG_DONTWAIT) : 0;
            if (got > 0 && answer_(frame, static_cast<size_t>(got)))
                static_cast<void>(send(ready.fd, frame, static_cast<size_t>(got), 0));
        }
    }
}
