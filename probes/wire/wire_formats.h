// SPDX-License-Identifier: MIT
// Frames as they stand on the wire. Records are copied in and out of byte buffers; nothing indexes a frame by hand.
#pragma once

#include <cstddef>
#include <cstdint>

#include "probes/wire/mac.h"

// IEEE 802.3
struct [[gnu::packed]] t_ethernet_header {
    t_mac destination;
    t_mac source;
    uint16_t ether_type_be;
};
static_assert(sizeof(t_ethernet_header) == 14);

// RFC 791, without options
struct [[gnu::packed]] t_ipv4_header {
    uint8_t version_ihl;
    uint8_t tos;
    uint16_t total_length_be;
    uint16_t identification_be;
    uint16_t fragment_be;
    uint8_t ttl;
    uint8_t protocol;
    uint16_t checksum;
    uint32_t source_be;
    uint32_t destination_be;
};
static_assert(sizeof(t_ipv4_header) == 20);
constexpr uint8_t IPV4_VERSION_IHL = 0x45;
constexpr uint8_t IPV4_TTL = 64;
constexpr uint8_t IPV4_PROTOCOL_UDP = 17;

// RFC 768
struct [[gnu::packed]] t_udp_header {
    uint16_t source_port_be;
    uint16_t destination_port_be;
    uint16_t length_be;
    uint16_t checksum;
};
static_assert(sizeof(t_udp_header) == 8);

// RFC 2131
constexpr size_t DHCP_OPTIONS_SIZE = 128;
struct [[gnu::packed]] t_dhcp_message {
    uint8_t op;
    uint8_t htype;
    uint8_t hlen;
    uint8_t hops;
    uint32_t xid; // host order by design: written and compared as drawn
    uint16_t secs_be;
    uint16_t flags_be;
    uint32_t ciaddr_be;
    uint32_t yiaddr_be;
    uint32_t siaddr_be;
    uint32_t giaddr_be;
    uint8_t chaddr[16];
    uint8_t sname[64];
    uint8_t file[128];
    uint8_t magic_cookie[4];
    uint8_t options[DHCP_OPTIONS_SIZE];
};
static_assert(offsetof(t_dhcp_message, chaddr) == 28 && offsetof(t_dhcp_message, sname) == 44);
static_assert(offsetof(t_dhcp_message, file) == 108 && offsetof(t_dhcp_message, magic_cookie) == 236);
static_assert(offsetof(t_dhcp_message, options) == 240 && sizeof(t_dhcp_message) == 368);

struct [[gnu::packed]] t_dhcp_frame {
    t_ethernet_header ethernet;
    t_ipv4_header ipv4;
    t_udp_header udp;
    t_dhcp_message dhcp;
};
static_assert(offsetof(t_dhcp_frame, ipv4) == 14 && offsetof(t_dhcp_frame, udp) == 34);
static_assert(offsetof(t_dhcp_frame, dhcp) == 42 && sizeof(t_dhcp_frame) == 410);

// RFC 2516
struct [[gnu::packed]] t_pppoe_header {
    uint8_t version_type;
    uint8_t code;
    uint16_t session_id_be;
    uint16_t length_be;
};
static_assert(sizeof(t_pppoe_header) == 6);

struct [[gnu::packed]] t_pppoe_tag {
    uint16_t type_be;
    uint16_t length_be;
};
static_assert(sizeof(t_pppoe_tag) == 4);

struct [[gnu::packed]] t_padi_frame {
    t_ethernet_header ethernet;
    t_pppoe_header pppoe;
    t_pppoe_tag service_name;
    t_pppoe_tag host_uniq;
    uint32_t host_uniq_value; // host order by design: written and compared as drawn
};
static_assert(offsetof(t_padi_frame, pppoe) == 14 && offsetof(t_padi_frame, service_name) == 20);
static_assert(offsetof(t_padi_frame, host_uniq_value) == 28 && sizeof(t_padi_frame) == 32);

// RFC 826 over Ethernet, padded to the smallest frame
struct [[gnu::packed]] t_arp_frame {
    t_ethernet_header ethernet;
    uint16_t hardware_type_be;
    uint16_t protocol_type_be;
    uint8_t hardware_length;
    uint8_t protocol_length;
    uint16_t opcode_be;
    t_mac sender_mac;
    uint32_t sender_ip_be;
    t_mac target_mac;
    uint32_t target_ip_be;
    uint8_t padding[18];
};
static_assert(offsetof(t_arp_frame, opcode_be) == 20 && offsetof(t_arp_frame, sender_mac) == 22);
static_assert(offsetof(t_arp_frame, sender_ip_be) == 28 && offsetof(t_arp_frame, target_mac) == 32);
static_assert(offsetof(t_arp_frame, target_ip_be) == 38 && offsetof(t_arp_frame, padding) == 42);
static_assert(sizeof(t_arp_frame) == 60);

// RFC 1035
struct [[gnu::packed]] t_dns_header {
    uint16_t id_be;
    uint16_t flags_be;
    uint16_t qdcount_be;
    uint16_t ancount_be;
    uint16_t nscount_be;
    uint16_t arcount_be;
};
static_assert(sizeof(t_dns_header) == 12);

// "example.com" as labels
constexpr uint8_t DNS_QUERY_NAME[] = {7, 'e', 'x', 'a', 'm', 'p', 'l', 'e', 3, 'c', 'o', 'm', 0};

struct [[gnu::packed]] t_dns_query_frame {
    t_ethernet_header ethernet;
    t_ipv4_header ipv4;
    t_udp_header udp;
    t_dns_header dns;
    uint8_t name[sizeof DNS_QUERY_NAME];
    uint16_t type_be;
    uint16_t class_be;
};
static_assert(sizeof DNS_QUERY_NAME == 13 && offsetof(t_dns_query_frame, dns) == 42);
static_assert(offsetof(t_dns_query_frame, name) == 54 && sizeof(t_dns_query_frame) == 71);

// The Internet checksum (RFC 1071) over `size` bytes, in memory order; an odd last byte counts as padded with zero.
// `sum` is what earlier pieces of even size added up to.
uint32_t checksum_add(uint32_t sum, const void *bytes, size_t size);
uint16_t checksum_finish(uint32_t sum);
