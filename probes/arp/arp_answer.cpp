// SPDX-License-Identifier: MIT
#include "probes/arp/arp_answer.h"

#include <net/ethernet.h>

#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "probes/arp/arp_frames.h"
#include "probes/wire/packet_socket.h"

// Takes pending frames until one is to be answered. False when none is left, or enough were read.
static bool hear_question(const t_arp_answerer &answerer, int *frames_left, t_arp_asker *asker)
{
    while ((*frames_left)-- > 0) {
        uint8_t bytes[sizeof(t_arp_frame)];
        sockaddr_ll from = {};
        const ssize_t got = answerer.socket.receive(bytes, &from);
        if (got <= 0)
            return false;
        if (from.sll_pkttype != PACKET_OUTGOING &&
            parse_arp_question({bytes, static_cast<size_t>(got)}, answerer.own_ip_be, asker))
            return true;
    }
    return false;
}

static bool may_answer(t_arp_answerer *answerer, const t_arp_asker &asker)
{
    t_second_count *second = asker.mac == answerer->next_hop ? &answerer->to_next_hop : &answerer->to_strangers;
    return count_in_second(second) <= ARP_ANSWERS_PER_SECOND;
}

void start_arp_answers(t_arp_answerer *answerer)
{
    t_port_socket &socket = answerer->socket;
    // A bridge takes its members' frames before any listener for ARP hears them.
    if (answerer->own_ip_be == 0 || !socket.open(ETH_P_ALL))
        return;
    packet_socket_set_nonblocking(socket.watcher.fd);
    if (!socket.listen(arp_question_filter(answerer->own_ip_be), packet_address(ETH_P_ALL, socket.ifindex, nullptr)))
        stop_arp_answers(answerer);
}

void answer_arp_questions(t_arp_answerer *answerer)
{
    const t_port_socket &socket = answerer->socket;
    t_arp_asker asker;
    for (int left = ARP_QUESTIONS_PER_READ; socket.is_open() && hear_question(*answerer, &left, &asker);) {
        if (!may_answer(answerer, asker))
            continue;
        t_arp_frame reply;
        build_arp_reply(&reply, socket.mac, answerer->own_ip_be, asker);
        if (socket.send(bytes_of(reply), packet_address(ETH_P_ARP, socket.ifindex, &asker.mac)))
            LOG(Debug, "Told %s, who asked via dev:%s, that this port has %s\n", t_ipv4_text(asker.ip_be).text,
                device_name(answerer->dev), t_ipv4_text(answerer->own_ip_be).text);
    }
}

void stop_arp_answers(t_arp_answerer *answerer)
{
    answerer->socket.close();
}
