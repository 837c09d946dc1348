// SPDX-License-Identifier: MIT
// Builder of DNS queries and the checks on what comes back.
#include "probes/dns/dns_frames.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <net/ethernet.h>
#include <netinet/ip.h>

#include "platform/log.h"

constexpr uint16_t DNS_CLIENT_PORT = 21000;
constexpr uint16_t DNS_RECURSION_DESIRED = 0x0100;
constexpr uint16_t DNS_TYPE_A = 1;
constexpr uint16_t DNS_CLASS_IN = 1;

namespace {

// What the UDP checksum covers of the IP header (RFC 768).
struct [[gnu::packed]] t_pseudo_header {
    uint32_t source_be;
    uint32_t destination_be;
    uint8_t zero;
    uint8_t protocol;
    uint16_t length_be;
};
static_assert(sizeof(t_pseudo_header) == 12);

// The part of an answer that is looked at.
struct [[gnu::packed]] t_dns_answer_frame {
    t_ethernet_header ethernet;
    t_ipv4_header ipv4;
    t_udp_header udp;
    t_dns_header dns;
};
static_assert(offsetof(t_dns_answer_frame, ipv4.protocol) == 23 && offsetof(t_dns_answer_frame, ipv4.source_be) == 26);
static_assert(offsetof(t_dns_answer_frame, ipv4.destination_be) == 30 && offsetof(t_dns_answer_frame, udp) == 34);
static_assert(offsetof(t_dns_answer_frame, dns) == 42 && offsetof(t_dns_answer_frame, dns.ancount_be) == 48);

} // namespace

constexpr size_t IP_LENGTH = sizeof(t_dns_query_frame) - offsetof(t_dns_query_frame, ipv4);
constexpr size_t UDP_LENGTH = sizeof(t_dns_query_frame) - offsetof(t_dns_query_frame, udp);

static uint16_t ipv4_checksum(const t_ipv4_header &header)
{
    return checksum_finish(checksum_add(0, &header, sizeof header));
}

// The frame's UDP part must be complete but for its checksum, which is 0.
static uint16_t udp_checksum(const t_dns_query_frame &frame)
{
    const t_pseudo_header pseudo = {frame.ipv4.source_be, frame.ipv4.destination_be, 0, frame.ipv4.protocol,
                                    frame.udp.length_be};
    const auto *udp = reinterpret_cast<const uint8_t *>(&frame) + offsetof(t_dns_query_frame, udp);
    const uint16_t sum = checksum_finish(checksum_add(checksum_add(0, &pseudo, sizeof pseudo), udp, UDP_LENGTH));
    return sum == 0 ? UINT16_MAX : sum; // 0 would say "not computed"
}

void build_dns_query(t_dns_query_frame *frame, const t_dns_entry &entry, uint32_t source_be, const t_mac &source_mac)
{
    *frame = {};
    frame->ethernet.destination = entry.server_mac;
    frame->ethernet.source = source_mac;
    frame->ethernet.ether_type_be = htons(ETHERTYPE_IP);
    frame->ipv4.version_ihl = IPV4_VERSION_IHL;
    frame->ipv4.total_length_be = htons(IP_LENGTH);
    frame->ipv4.identification_be = htons(dns_ip_identification(entry.query_id));
    frame->ipv4.fragment_be = htons(IP_DF);
    frame->ipv4.ttl = IPV4_TTL;
    frame->ipv4.protocol = IPV4_PROTOCOL_UDP;
    frame->ipv4.source_be = source_be;
    frame->ipv4.destination_be = entry.dns_server_be;
    frame->ipv4.checksum = ipv4_checksum(frame->ipv4);
    frame->udp.source_port_be = htons(DNS_CLIENT_PORT);
    frame->udp.destination_port_be = htons(DNS_SERVER_PORT);
    frame->udp.length_be = htons(UDP_LENGTH);
    frame->dns.id_be = htons(entry.query_id);
    frame->dns.flags_be = htons(DNS_RECURSION_DESIRED);
    frame->dns.qdcount_be = htons(1);
    memcpy(frame->name, DNS_QUERY_NAME, sizeof DNS_QUERY_NAME);
    frame->type_be = htons(DNS_TYPE_A);
    frame->class_be = htons(DNS_CLASS_IN);
    frame->udp.checksum = udp_checksum(*frame);
}

t_dns_answer parse_dns_answer(std::span<const uint8_t> bytes)
{
    t_dns_answer_frame frame = {};
    std::copy_n(bytes.data(), std::min(bytes.size(), sizeof frame), reinterpret_cast<uint8_t *>(&frame));
    const uint16_t answers = bytes.size() < sizeof frame ? 0 : ntohs(frame.dns.ancount_be);
    return {.protocol = frame.ipv4.protocol,
            .identification = ntohs(frame.ipv4.identification_be),
            .source_be = frame.ipv4.source_be,
            .destination_be = frame.ipv4.destination_be,
            .source_port = ntohs(frame.udp.source_port_be),
            .id = ntohs(frame.dns.id_be),
            .answers = answers};
}

t_frame_filter dns_answer_filter(const t_dns_entry &entry, int level)
{
    t_frame_filter filter = {};
    if (level >= LOG_LEVEL_Info) // tells of every frame
        return filter;
    filter_require_byte(&filter, offsetof(t_dns_answer_frame, ipv4.protocol), IPV4_PROTOCOL_UDP);
    filter_require_word(&filter, offsetof(t_dns_answer_frame, ipv4.destination_be), ntohl(entry.dev_ip_be));
    filter_require_word(&filter, offsetof(t_dns_answer_frame, ipv4.source_be), ntohl(entry.dns_server_be));
    filter_require_half(&filter, offsetof(t_dns_answer_frame, udp.source_port_be), DNS_SERVER_PORT);
    filter_require_half(&filter, offsetof(t_dns_answer_frame, dns.id_be), entry.query_id);
    const std::initializer_list<sock_filter> program = {
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(t_dns_answer_frame, dns.ancount_be)), // A: answers
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 1),                                     // some: over the next one
    };
    filter_add(&filter, program);
    filter_drop(&filter);
    filter_keep(&filter);
    return filter;
}

t_dns_flaw find_dns_flaw(const t_dns_answer &answer, const t_dns_entry &entry, bool check_identification)
{
    if (answer.protocol != IPV4_PROTOCOL_UDP)
        return t_dns_flaw::protocol;
    if (check_identification && answer.identification != dns_ip_identification(entry.query_id))
        return t_dns_flaw::identification;
    if (answer.destination_be != entry.dev_ip_be || answer.source_be != entry.dns_server_be)
        return t_dns_flaw::addresses;
    if (answer.source_port != DNS_SERVER_PORT)
        return t_dns_flaw::port;
    if (answer.id != entry.query_id)
        return t_dns_flaw::id;
    return answer.answers == 0 ? t_dns_flaw::no_answers : t_dns_flaw::none;
}
