// SPDX-License-Identifier: MIT
// Building DISCOVER frames and taking OFFER frames apart.
#include "probes/discovery/dhcp_frames.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <net/ethernet.h>

#include "platform/log.h"

constexpr uint16_t DHCP_SERVER_PORT = 67;
constexpr uint16_t DHCP_CLIENT_PORT = 68;
constexpr uint16_t IDENTIFICATION = 0xd431;

constexpr uint8_t BOOT_REQUEST = 1;
constexpr uint8_t BOOT_REPLY = 2;
constexpr uint8_t HARDWARE_ETHERNET = 1;
constexpr uint8_t MAGIC_COOKIE[] = {0x63, 0x82, 0x53, 0x63};

constexpr uint8_t OPTION_PAD = 0;
constexpr uint8_t OPTION_SUBNET_MASK = 1;
constexpr uint8_t OPTION_ROUTER = 3;
constexpr uint8_t OPTION_DNS_SERVER = 6;
constexpr uint8_t OPTION_MESSAGE_TYPE = 53;
constexpr uint8_t OPTION_PARAMETERS = 55;
constexpr uint8_t OPTION_END = 255;
constexpr size_t OPTION_HEADER_SIZE = 2; // code and length
constexpr uint8_t MESSAGE_DISCOVER = 1;

constexpr uint8_t DISCOVER_OPTIONS[] = {
    OPTION_MESSAGE_TYPE, 1, MESSAGE_DISCOVER,                                        //
    OPTION_PARAMETERS,   3, OPTION_ROUTER,    OPTION_SUBNET_MASK, OPTION_DNS_SERVER, //
    OPTION_END,
};

static void fill_headers(t_dhcp_frame *frame, const t_mac &mac)
{
    frame->ethernet.destination = BROADCAST_MAC;
    frame->ethernet.source = mac;
    frame->ethernet.ether_type_be = htons(ETHERTYPE_IP);

    frame->ipv4.version_ihl = IPV4_VERSION_IHL;
    frame->ipv4.total_length_be = htons(sizeof *frame - sizeof frame->ethernet);
    frame->ipv4.identification_be = htons(IDENTIFICATION);
    frame->ipv4.ttl = IPV4_TTL;
    frame->ipv4.protocol = IPV4_PROTOCOL_UDP;
    frame->ipv4.destination_be = INADDR_BROADCAST;
    frame->ipv4.checksum = checksum_finish(checksum_add(0, &frame->ipv4, sizeof frame->ipv4));

    frame->udp.source_port_be = htons(DHCP_CLIENT_PORT);
    frame->udp.destination_port_be = htons(DHCP_SERVER_PORT);
    frame->udp.length_be = htons(sizeof frame->udp + sizeof frame->dhcp);
}

size_t build_dhcp_discover(std::span<uint8_t> buffer, const t_mac &mac, uint32_t xid)
{
    t_dhcp_frame frame = {};
    if (buffer.size() < sizeof frame)
        return 0;
    fill_headers(&frame, mac);
    frame.dhcp.op = BOOT_REQUEST;
    frame.dhcp.htype = HARDWARE_ETHERNET;
    frame.dhcp.hlen = MAC_SIZE;
    frame.dhcp.xid = xid;
    memcpy(frame.dhcp.chaddr, mac.bytes, MAC_SIZE);
    memcpy(frame.dhcp.magic_cookie, MAGIC_COOKIE, sizeof MAGIC_COOKIE);
    memcpy(frame.dhcp.options, DISCOVER_OPTIONS, sizeof DISCOVER_OPTIONS);
    memcpy(buffer.data(), &frame, sizeof frame);
    return sizeof frame;
}

bool parse_dhcp_offer(std::span<const uint8_t> frame, t_dhcp_offer *offer)
{
    // What a short frame lacks reads as zero, and fails at the cookie at the latest.
    t_dhcp_frame head = {};
    const size_t option_start = offsetof(t_dhcp_frame, dhcp) + offsetof(t_dhcp_message, options);
    const size_t taken = std::min(frame.size(), option_start);
    if (taken > 0)
        memcpy(&head, frame.data(), taken);
    if (head.ipv4.protocol != IPV4_PROTOCOL_UDP || head.udp.destination_port_be != htons(DHCP_CLIENT_PORT) ||
        memcmp(head.dhcp.magic_cookie, MAGIC_COOKIE, sizeof MAGIC_COOKIE) != 0 || head.dhcp.op != BOOT_REPLY)
        return false;
    offer->xid = head.dhcp.xid;
    offer->address_be = head.dhcp.yiaddr_be;
    offer->server_mac = head.ethernet.source;
    offer->options = frame.subspan(taken);
    return true;
}

t_frame_filter dhcp_offer_filter(uint32_t xid, const t_mac &lan_mac, int level)
{
    t_frame_filter filter = {};
    if (level >= LOG_LEVEL_Debug) // tells of every frame
        return filter;
    uint32_t cookie_be;
    memcpy(&cookie_be, MAGIC_COOKIE, sizeof cookie_be);
    filter_require_byte(&filter, offsetof(t_dhcp_frame, ipv4.protocol), IPV4_PROTOCOL_UDP);
    filter_require_half(&filter, offsetof(t_dhcp_frame, udp.destination_port_be), DHCP_CLIENT_PORT);
    filter_require_word(&filter, offsetof(t_dhcp_frame, dhcp.magic_cookie), ntohl(cookie_be));
    filter_require_byte(&filter, offsetof(t_dhcp_frame, dhcp.op), BOOT_REPLY);
    if (level < LOG_LEVEL_Info) // tells of other transactions
        filter_require_word(&filter, offsetof(t_dhcp_frame, dhcp.xid), ntohl(xid));
    if (level < LOG_LEVEL_Warning) // tells of the router's own server
        filter_refuse_mac(&filter, offsetof(t_dhcp_frame, ethernet.source), lan_mac);
    filter_keep(&filter);
    return filter;
}

bool next_dhcp_option(std::span<const uint8_t> *options, t_dhcp_option *option)
{
    if (options->empty() || options->front() == OPTION_PAD || options->front() == OPTION_END)
        return false;
    if (options->size() < OPTION_HEADER_SIZE)
        return false;
    const size_t length = (*options)[1];
    if (options->size() - OPTION_HEADER_SIZE < length)
        return false;
    option->code = options->front();
    option->value = options->subspan(OPTION_HEADER_SIZE, length);
    *options = options->subspan(OPTION_HEADER_SIZE + length);
    return true;
}

t_dhcp_learned learn_dhcp_option(const t_dhcp_option &option, t_detect_result *result)
{
    const size_t address_size = sizeof result->gateway.ipv4_be;
    // Several routers leave open which one leads upstream.
    if (option.code == OPTION_ROUTER && option.value.size() == address_size) {
        memcpy(&result->gateway.ipv4_be, option.value.data(), address_size);
        return t_dhcp_learned::gateway;
    }
    const bool has_addresses = !option.value.empty() && option.value.size() % address_size == 0;
    if (option.code == OPTION_DNS_SERVER && has_addresses) {
        memcpy(&result->dns_server.ipv4_be, option.value.data(), address_size);
        return t_dhcp_learned::dns_server;
    }
    return t_dhcp_learned::nothing;
}
