// SPDX-License-Identifier: MIT
// ARP frames in memory: building the request and taking a received frame apart.
#pragma once

#include <span>

#include "probes/wire_formats.h"

// What a received ARP packet says.
struct t_arp_packet {
    uint8_t ethernet_source[MAC_SIZE];
    uint8_t sender_mac[MAC_SIZE];
    uint16_t opcode;
    uint32_t sender_ip_be;
};
constexpr uint16_t ARP_OPCODE_REQUEST = 1;
constexpr uint16_t ARP_OPCODE_REPLY = 2;

enum class t_arp_frame_kind {
    foreign, // not ARP
    cut,     // ARP, but too short for its fields
    whole,
};

// An all-zero target MAC is unknown: the request is then broadcast.
void build_arp_request(t_arp_frame *frame, const uint8_t *source_mac, uint32_t sender_ip_be, const uint8_t *target_mac,
                       uint32_t target_ip_be);

// `packet` is filled in only from a whole frame.
t_arp_frame_kind parse_arp_frame(std::span<const uint8_t> bytes, t_arp_packet *packet);
