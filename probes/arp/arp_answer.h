// SPDX-License-Identifier: MIT
// Answers ARP requests for the address that a probe asks from, while it waits for its answer. Nobody else does: an
// offered address belongs to nobody yet, and a static one may have left its port together with the link. Loop thread
// only; nothing here waits.
#pragma once

#include "probes/wire/packet_socket.h"
#include "probes/wire/second_count.h"

struct t_arp_answerer {
    t_port_socket socket;       // never put into the loop; its MAC is what the answers tell
    t_device *dev;              // borrowed
    uint32_t own_ip_be;         // what they are for
    t_mac next_hop;             // where the awaited answer comes from
    t_second_count to_next_hop; // answers of this second
    t_second_count to_strangers;
};

// Each second so many requests of the next hop are answered, and as many of all others together, so that nobody is
// kept from asking by a stranger who asks all the time.
constexpr uint32_t ARP_ANSWERS_PER_SECOND = 10;

// Whoever floods the port must not keep the loop reading.
constexpr int ARP_QUESTIONS_PER_READ = 256;

// Begins to hear what is asked on the port. All but the descriptor and the counts is filled in already, the port's
// index and MAC included. When that fails nothing is answered, and the probe goes on without.
void start_arp_answers(t_arp_answerer *answerer);

// Answers what is pending.
void answer_arp_questions(t_arp_answerer *answerer);

// Harmless when it is closed.
void stop_arp_answers(t_arp_answerer *answerer);
