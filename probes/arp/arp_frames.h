// SPDX-License-Identifier: MIT
// ARP frames in memory: building the request and taking a received frame apart.
#pragma once

#include <span>

#include "probes/wire/frame_filter.h"
#include "probes/wire/wire_formats.h"

// What a received ARP packet says. Of one that was cut short the opcode is 0, so that it is no reply.
struct t_arp_packet {
    t_mac ethernet_source;
    t_mac sender_mac;
    uint16_t opcode;
    uint32_t sender_ip_be;
};

// Who wants to know where an address is.
struct t_arp_asker {
    t_mac mac;
    uint32_t ip_be;
};

constexpr uint16_t ARP_OPCODE_REQUEST = 1;
constexpr uint16_t ARP_OPCODE_REPLY = 2;

// An all-zero target MAC is unknown: the request is then broadcast.
void build_arp_request(t_arp_frame *frame, const t_mac &source_mac, uint32_t sender_ip_be, const t_mac &target_mac,
                       uint32_t target_ip_be);

// Tells the asker, and nobody else, that `own_ip_be` is at `own_mac`.
void build_arp_reply(t_arp_frame *frame, const t_mac &own_mac, uint32_t own_ip_be, const t_arp_asker &asker);

// For the search behind a port: lets through what came in on the port and may be a reply from this address. What is
// told of in the log at `level` passes as well.
t_frame_filter arp_search_filter(uint32_t target_ip_be, int level);

// For the re-check of a host: lets through what came in and may be a reply of the host with this MAC, whatever its
// address. What is told of in the log at `level` passes as well.
t_frame_filter arp_host_filter(const t_mac &target_mac, int level);

// For whoever answers for an address: lets through what came in on the port and may ask for it.
t_frame_filter arp_question_filter(uint32_t own_ip_be);

// Whether the frame asks for `own_ip_be`, and who does. A sender that gives this address for its own only announces it;
// one without an address tests whether it is free, and would leave it to us; nobody has a group's MAC.
bool parse_arp_question(std::span<const uint8_t> bytes, uint32_t own_ip_be, t_arp_asker *asker);

// False, and `packet` untouched, when the frame is not ARP.
bool parse_arp_frame(std::span<const uint8_t> bytes, t_arp_packet *packet);
