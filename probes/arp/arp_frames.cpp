// SPDX-License-Identifier: MIT
// Builder and parser of ARP frames (RFC 826).
#include "probes/arp/arp_frames.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <net/ethernet.h>
#include <net/if_arp.h>

#include "platform/log.h"

static void fill_arp_frame(t_arp_frame *frame, uint16_t opcode, const t_mac &source_mac, uint32_t sender_ip_be)
{
    *frame = {};
    frame->ethernet.source = source_mac;
    frame->ethernet.ether_type_be = htons(ETHERTYPE_ARP);
    frame->hardware_type_be = htons(ARPHRD_ETHER);
    frame->protocol_type_be = htons(ETHERTYPE_IP);
    frame->hardware_length = MAC_SIZE;
    frame->protocol_length = sizeof sender_ip_be;
    frame->opcode_be = htons(opcode);
    frame->sender_mac = source_mac;
    frame->sender_ip_be = sender_ip_be;
}

// The fields that say "Ethernet and IPv4", as two words of a filter.
constexpr uint32_t ETHERNET_AND_IPV4 = ARPHRD_ETHER << 16 | ETHERTYPE_IP;
constexpr uint32_t LENGTHS_AND_REQUEST = MAC_SIZE << 24 | sizeof(uint32_t) << 16 | ARP_OPCODE_REQUEST;
static_assert(offsetof(t_arp_frame, hardware_length) == offsetof(t_arp_frame, hardware_type_be) + sizeof(uint32_t));
static_assert(offsetof(t_arp_frame, sender_mac) == offsetof(t_arp_frame, hardware_length) + sizeof(uint32_t));

static bool is_ipv4_request(const t_arp_frame &frame)
{
    return frame.ethernet.ether_type_be == htons(ETHERTYPE_ARP) && frame.hardware_type_be == htons(ARPHRD_ETHER) &&
           frame.protocol_type_be == htons(ETHERTYPE_IP) && frame.hardware_length == MAC_SIZE &&
           frame.protocol_length == sizeof frame.sender_ip_be && frame.opcode_be == htons(ARP_OPCODE_REQUEST);
}

static bool is_unicast(const t_mac &mac)
{
    return !(mac[0] & 1) && mac != UNKNOWN_MAC;
}

void build_arp_request(t_arp_frame *frame, const t_mac &source_mac, uint32_t sender_ip_be, const t_mac &target_mac,
                       uint32_t target_ip_be)
{
    fill_arp_frame(frame, ARP_OPCODE_REQUEST, source_mac, sender_ip_be);
    frame->ethernet.destination = target_mac == UNKNOWN_MAC ? BROADCAST_MAC : target_mac;
    frame->target_mac = target_mac;
    frame->target_ip_be = target_ip_be;
}

void build_arp_reply(t_arp_frame *frame, const t_mac &own_mac, uint32_t own_ip_be, const t_arp_asker &asker)
{
    fill_arp_frame(frame, ARP_OPCODE_REPLY, own_mac, own_ip_be);
    frame->ethernet.destination = asker.mac;
    frame->target_mac = asker.mac;
    frame->target_ip_be = asker.ip_be;
}

// Each packet that is no reply, a cut one included, is told of as an error.
static void keep_other_packets(t_frame_filter *filter)
{
    constexpr uint32_t shortest = offsetof(t_arp_frame, padding);
    const std::initializer_list<sock_filter> whole = {
        BPF_STMT(BPF_LD | BPF_W | BPF_LEN, 0),               // A: bytes that arrived
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, shortest, 1, 0), // whole: over the next one
    };
    filter_add(filter, whole);
    filter_keep(filter);
    const std::initializer_list<sock_filter> reply = {
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(t_arp_frame, opcode_be)), // A: opcode
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ARP_OPCODE_REPLY, 1, 0),          // a reply: over the next one
    };
    filter_add(filter, reply);
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

t_frame_filter arp_host_filter(const t_mac &target_mac, int level)
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

t_frame_filter arp_question_filter(uint32_t own_ip_be)
{
    t_frame_filter filter = {};
    filter_require_half(&filter, offsetof(t_arp_frame, ethernet.ether_type_be), ETHERTYPE_ARP);
    filter_refuse_own(&filter);
    filter_require_word(&filter, offsetof(t_arp_frame, hardware_type_be), ETHERNET_AND_IPV4);
    filter_require_word(&filter, offsetof(t_arp_frame, hardware_length), LENGTHS_AND_REQUEST);
    filter_require_word(&filter, offsetof(t_arp_frame, target_ip_be), ntohl(own_ip_be));
    filter_keep(&filter);
    return filter;
}

bool parse_arp_question(std::span<const uint8_t> bytes, uint32_t own_ip_be, t_arp_asker *asker)
{
    constexpr size_t needed = offsetof(t_arp_frame, padding);
    t_arp_frame frame = {};
    if (bytes.size() < needed)
        return false;
    memcpy(&frame, bytes.data(), needed);
    if (!is_ipv4_request(frame) || frame.target_ip_be != own_ip_be || !is_unicast(frame.sender_mac) ||
        frame.sender_ip_be == own_ip_be || frame.sender_ip_be == 0)
        return false;
    asker->mac = frame.sender_mac;
    asker->ip_be = frame.sender_ip_be;
    return true;
}

bool parse_arp_frame(std::span<const uint8_t> bytes, t_arp_packet *packet)
{
    constexpr size_t needed = offsetof(t_arp_frame, padding);
    t_arp_frame frame = {};
    std::copy_n(bytes.data(), std::min(bytes.size(), needed), reinterpret_cast<uint8_t *>(&frame));
    if (bytes.size() < sizeof frame.ethernet || frame.ethernet.ether_type_be != htons(ETHERTYPE_ARP))
        return false;
    packet->ethernet_source = frame.ethernet.source;
    packet->sender_mac = frame.sender_mac;
    packet->opcode = bytes.size() < needed ? 0 : ntohs(frame.opcode_be);
    packet->sender_ip_be = frame.sender_ip_be;
    return true;
}
