// SPDX-License-Identifier: MIT
#include "probes/arp_answer.h"

#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>

#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "probes/arp_probe_frame.h"
#include "probes/packet_address.h"
#include "probes/packet_socket.h"

namespace {

// Takes pending frames until one is to be answered. False when none is left, or enough were read.
bool hear_question(const t_arp_answerer &answerer, int *frames_left, t_arp_asker *asker)
{
    while ((*frames_left)-- > 0) {
        uint8_t bytes[sizeof(t_arp_frame)];
        sockaddr_ll from = {};
        const ssize_t got = packet_socket_receive(answerer.watcher.fd, bytes, sizeof bytes, &from);
        if (got <= 0)
            return false;
        if (from.sll_pkttype != PACKET_OUTGOING &&
            parse_arp_question({bytes, static_cast<size_t>(got)}, answerer.own_ip_be, asker))
            return true;
    }
    return false;
}

bool may_answer(t_arp_answerer *answerer, const t_arp_asker &asker)
{
    const bool is_next_hop = memcmp(asker.mac, answerer->next_hop, MAC_SIZE) == 0;
    return count_in_second(is_next_hop ? &answerer->to_next_hop : &answerer->to_strangers) <= ARP_ANSWERS_PER_SECOND;
}

} // namespace

void start_arp_answers(t_arp_answerer *answerer)
{
    if (answerer->own_ip_be == 0)
        return;
    // A bridge takes its members' frames before any listener for ARP hears them.
    answerer->watcher.fd = packet_socket_open(ETH_P_ALL);
    if (answerer->watcher.fd < 0)
        return;
    packet_socket_filter(answerer->watcher.fd, arp_question_filter(answerer->own_ip_be));
    packet_socket_set_nonblocking(answerer->watcher.fd);
    if (packet_socket_bind(answerer->watcher.fd, packet_address(ETH_P_ALL, answerer->ifindex, nullptr)) != 0)
        stop_arp_answers(answerer);
}

void answer_arp_questions(t_arp_answerer *answerer)
{
    t_arp_asker asker;
    for (int left = ARP_QUESTIONS_PER_READ; answerer->watcher.fd > 0 && hear_question(*answerer, &left, &asker);) {
        if (!may_answer(answerer, asker))
            continue;
        t_arp_frame reply;
        build_arp_reply(&reply, answerer->port_mac, answerer->own_ip_be, asker);
        const sockaddr_ll address = packet_address(ETH_P_ARP, answerer->ifindex, asker.mac);
        if (packet_socket_send(answerer->watcher.fd, &reply, sizeof reply, address) > 0)
            LOG(Debug, "Told %s, who asked via dev:%s, that this port has %s\n", t_ipv4_text(asker.ip_be).text,
                device_name(answerer->dev), t_ipv4_text(answerer->own_ip_be).text);
    }
}

void stop_arp_answers(t_arp_answerer *answerer)
{
    packet_socket_close(&answerer->watcher);
}
