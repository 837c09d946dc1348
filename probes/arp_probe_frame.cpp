// SPDX-License-Identifier: MIT
// Builder and parser of ARP frames (RFC 826).
#include "probes/arp_probe_frame.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <net/ethernet.h>
#include <net/if_arp.h>

void build_arp_request(t_arp_frame *frame, const uint8_t *source_mac, uint32_t sender_ip_be, const uint8_t *target_mac,
                       uint32_t target_ip_be)
{
    constexpr uint8_t unknown[MAC_SIZE] = {};
    const bool known = memcmp(target_mac, unknown, MAC_SIZE) != 0;
    *frame = {};
    memcpy(frame->ethernet.destination, known ? target_mac : BROADCAST_MAC, MAC_SIZE);
    memcpy(frame->ethernet.source, source_mac, MAC_SIZE);
    frame->ethernet.ether_type_be = htons(ETHERTYPE_ARP);
    frame->hardware_type_be = htons(ARPHRD_ETHER);
    frame->protocol_type_be = htons(ETHERTYPE_IP);
    frame->hardware_length = MAC_SIZE;
    frame->protocol_length = sizeof target_ip_be;
    frame->opcode_be = htons(ARP_OPCODE_REQUEST);
    memcpy(frame->sender_mac, source_mac, MAC_SIZE);
    frame->sender_ip_be = sender_ip_be;
    memcpy(frame->target_mac, target_mac, MAC_SIZE);
    frame->target_ip_be = target_ip_be;
}

bool parse_arp_frame(std::span<const uint8_t> bytes, t_arp_packet *packet)
{
    constexpr size_t needed = offsetof(t_arp_frame, padding);
    t_arp_frame frame = {};
    std::copy_n(bytes.data(), std::min(bytes.size(), needed), reinterpret_cast<uint8_t *>(&frame));
    if (bytes.size() < sizeof frame.ethernet || frame.ethernet.ether_type_be != htons(ETHERTYPE_ARP))
        return false;
    memcpy(packet->ethernet_source, frame.ethernet.source, MAC_SIZE);
    memcpy(packet->sender_mac, frame.sender_mac, MAC_SIZE);
    packet->opcode = bytes.size() < needed ? 0 : ntohs(frame.opcode_be);
    packet->sender_ip_be = frame.sender_ip_be;
    return true;
}
