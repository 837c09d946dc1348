// SPDX-License-Identifier: MIT
#include "probes/lan_wire_peer.h"

#include <algorithm>

#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

t_wire_peer::t_wire_peer(const std::string &interface, uint16_t ether_type, t_answerer answerer)
    : fd_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)), answerer_(std::move(answerer))
{
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ether_type);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    EXPECT_NE(address.sll_ifindex, 0) << interface;
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    thread_ = std::thread([this] { serve(); });
}

t_wire_peer::~t_wire_peer()
{
    stopping_ = true;
    thread_.join();
    close(fd_);
}

void t_wire_peer::send(const t_frame &frame)
{
    EXPECT_EQ(::send(fd_, frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()));
}

void t_wire_peer::serve()
{
    constexpr int STOP_CHECK_MS = 20;
    while (!stopping_) {
        pollfd wanted = {.fd = fd_, .events = POLLIN, .revents = 0};
        if (poll(&wanted, 1, STOP_CHECK_MS) <= 0)
            continue;
        t_frame heard(ETH_FRAME_LEN);
        const ssize_t size = recv(fd_, heard.data(), heard.size(), MSG_DONTWAIT);
        if (size < 0)
            continue;
        heard.resize(static_cast<size_t>(size));
        for (const t_frame &frame : answerer_(heard))
            send(frame);
    }
}

t_arp_peer::t_arp_peer(const std::string &interface, t_answerer answerer)
    : peer_(interface, ETH_P_ARP, [this, answerer](const t_wire_peer::t_frame &frame) {
          t_arp_frame request = {};
          memcpy(&request, frame.data(), std::min(frame.size(), sizeof request));
          if (request.opcode_be != htons(1))
              return std::vector<t_wire_peer::t_frame>();
          requests_++;
          return answerer(request);
      })
{
}

t_wire_peer::t_frame arp_reply(const t_arp_frame &request, const t_mac &mac, bool broadcast)
{
    t_wire_peer::t_frame frame = t_arp_answer{mac, request.target_ip_be}.bytes();
    memcpy(frame.data(), broadcast ? BROADCAST_MAC : request.ethernet.source, MAC_SIZE);
    memcpy(frame.data() + 32, request.sender_mac, MAC_SIZE);
    memcpy(frame.data() + 38, &request.sender_ip_be, sizeof request.sender_ip_be);
    return frame;
}
