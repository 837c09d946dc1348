// SPDX-License-Identifier: MIT
// Builder and parser of ARP frames (RFC 826).
#include "probes/arp_probe_frame.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <net/ethernet.h>
#include <net/if_arp.h>

#include "platform/log.h"

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

// Each packet that is no reply, a cut one included, is told of as an error.
static void keep_other_packets(t_frame_filter *filter)
{
    filter_add(filter, {BPF_STMT(BPF_LD | BPF_W | BPF_LEN, 0),
                        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, offsetof(t_arp_frame, padding), 1, 0)});
    filter_keep(filter);
    filter_add(filter, {BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(t_arp_frame, opcode_be)),
                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ARP_OPCODE_REPLY, 1, 0)});
    filter_keep(filter);
}

t_frame_filter arp_search_filter(uint32_t target_ip_be, int level)
{
    t_frame_filter filter = {};
    filter_require_half(&filter, offsetof(t_arp_frame, ethernet.ether_type_be), ETHERTYPE_ARP);
    filter_refuse_own(&filter);
    if (level < LOG_LEVEL_Info) { // tells of replies from other addresses
        if (level >= LOG_LEVEL_Error)
            keep_other_packets(&filter);
        filter_require_half(&filter, offsetof(t_arp_frame, opcode_be), ARP_OPCODE_REPLY);
        filter_require_word(&filter, offsetof(t_arp_frame, sender_ip_be), ntohl(target_ip_be));
    }
    filter_keep(&filter);
    return filter;
}

t_frame_filter arp_host_filter(const uint8_t *target_mac, int level)
{
    t_frame_filter filter = {};
    if (level >= LOG_LEVEL_Info) // tells of every packet
        return filter;
    filter_refuse_own(&filter);
    filter_require_mac(&filter, offsetof(t_arp_frame, ethernet.source), target_mac);
    if (level < LOG_LEVEL_Error) { // tells of whatever else the host says
        filter_require_mac(&filter, offsetof(t_arp_frame, sender_mac), target_mac);
        filter_require_half(&filter, offsetof(t_arp_frame, opcode_be), ARP_OPCODE_REPLY);
    }
    filter_keep(&filter);
    return filter;
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
