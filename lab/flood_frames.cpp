// SPDX-License-Identifier: MIT
// Garbage, and the traffic of other hosts among themselves.
#include "lab/flood_frames.h"

#include <arpa/inet.h>
#include <cstring>
#include <net/ethernet.h>

#include "lab/near_misses.h"
#include "probes/wire/wire_formats.h"

namespace {

constexpr uint32_t HOSTS = 64;       // few enough for any bridge to remember
constexpr uint32_t BROADCASTS = 256; // one frame in so many goes to everyone
constexpr uint32_t SHORTEST_GARBAGE = 14;
constexpr uint32_t USUAL_GARBAGE = 200;
constexpr uint32_t LONG_GARBAGE = 32;          // one frame in so many may have any length
constexpr uint32_t OTHERS_SUBNET = 0x0a630000; // 10.99.0.0/16
constexpr uint16_t DHCP_SERVER = 67, DHCP_CLIENT = 68, DNS_SERVER = 53, DNS_CLIENT = 21000;

t_mac mac_of_host(uint64_t port, uint32_t number)
{
    return {{0x02, 0x00, 0x5e, 0x40, static_cast<uint8_t>(port), static_cast<uint8_t>(number)}};
}

// From one host to another behind the same port, which a bridge keeps to itself; now and then to everyone.
void address(t_flood_frame *frame, uint8_t port, uint16_t ether_type, t_dice *dice)
{
    t_ethernet_header header = {};
    const uint32_t from = dice->below(HOSTS);
    header.source = mac_of_host(port, from);
    header.destination = mac_of_host(port, (from + 1 + dice->below(HOSTS - 1)) % HOSTS);
    if (dice->below(BROADCASTS) == 0)
        header.destination = BROADCAST_MAC;
    header.ether_type_be = htons(ether_type);
    memcpy(frame->bytes, &header, sizeof header);
}

uint32_t some_address(t_dice *dice)
{
    return htonl(OTHERS_SUBNET + dice->below(0xffff));
}

uint16_t some_ether_type(t_dice *dice)
{
    constexpr uint16_t known[] = {ETHERTYPE_IP, ETHERTYPE_ARP, ETHERTYPE_IPV6, ETHERTYPE_VLAN, 0x8863, 0x8864, 0x88cc};
    const uint32_t choice = dice->below(2 * sizeof known / sizeof *known);
    return choice < sizeof known / sizeof *known ? known[choice] : static_cast<uint16_t>(dice->next());
}

void make_garbage(t_flood_frame *frame, uint8_t port, t_dice *dice)
{
    const uint32_t longest = dice->below(LONG_GARBAGE) == 0 ? FLOOD_FRAME_SIZE : USUAL_GARBAGE;
    frame->size = static_cast<uint16_t>(SHORTEST_GARBAGE + dice->below(longest - SHORTEST_GARBAGE + 1));
    dice->fill(frame->bytes, frame->size);
    address(frame, port, some_ether_type(dice), dice);
}

void make_udp(t_flood_frame *frame, uint8_t port, uint16_t source, uint16_t destination, size_t payload, t_dice *dice)
{
    t_ipv4_header ip = {};
    t_udp_header udp = {};
    address(frame, port, ETHERTYPE_IP, dice);
    ip.version_ihl = IPV4_VERSION_IHL;
    ip.total_length_be = htons(static_cast<uint16_t>(sizeof ip + sizeof udp + payload));
    ip.ttl = IPV4_TTL;
    ip.protocol = IPV4_PROTOCOL_UDP;
    ip.source_be = some_address(dice);
    ip.destination_be = some_address(dice);
    ip.checksum = checksum_finish(checksum_add(0, &ip, sizeof ip));
    udp.source_port_be = htons(source);
    udp.destination_port_be = htons(destination);
    udp.length_be = htons(static_cast<uint16_t>(sizeof udp + payload));
    memcpy(frame->bytes + sizeof(t_ethernet_header), &ip, sizeof ip);
    memcpy(frame->bytes + sizeof(t_ethernet_header) + sizeof ip, &udp, sizeof udp);
    frame->size = static_cast<uint16_t>(sizeof(t_ethernet_header) + sizeof ip + sizeof udp + payload);
}

// Discovers, offers, requests and acknowledgements of others.
void make_dhcp(t_flood_frame *frame, uint8_t port, t_dice *dice)
{
    const bool reply = dice->below(2) == 0;
    t_dhcp_message message = {};
    make_udp(frame, port, reply ? DHCP_SERVER : DHCP_CLIENT, reply ? DHCP_CLIENT : DHCP_SERVER, sizeof message, dice);
    constexpr uint8_t cookie[] = {0x63, 0x82, 0x53, 0x63};
    message.op = reply ? 2 : 1;
    message.htype = 1;
    message.hlen = MAC_SIZE;
    message.xid = static_cast<uint32_t>(dice->next());
    message.yiaddr_be = reply ? some_address(dice) : 0;
    dice->fill(message.chaddr, MAC_SIZE);
    memcpy(message.magic_cookie, cookie, sizeof cookie);
    const auto type = static_cast<uint8_t>(reply ? 2 + 3 * dice->below(2) : 1 + 2 * dice->below(2));
    const uint8_t options[] = {53, 1, type, 54, 4, 10, 99, 0, 1, 3, 4, 10, 99, 0, 1, 6, 4, 10, 99, 0, 1, 255};
    memcpy(message.options, options, sizeof options);
    memcpy(frame->bytes + offsetof(t_dhcp_frame, dhcp), &message, sizeof message);
}

// The discovery of others, and their sessions.
void make_pppoe(t_flood_frame *frame, uint8_t port, t_dice *dice)
{
    constexpr uint8_t codes[] = {0x09, 0x07, 0x19, 0x65, 0xa7, 0x00};
    constexpr uint16_t session_type = 0x8864, discovery_type = 0x8863;
    const uint8_t code = codes[dice->below(sizeof codes)];
    address(frame, port, code == 0 ? session_type : discovery_type, dice);
    uint8_t tags[] = {0x01, 0x01, 0, 0, 0x01, 0x02, 0, 4, 'b', 'r', 'a', 's', 0x01, 0x03, 0, 4, 0, 0, 0, 0};
    dice->fill(tags + sizeof tags - sizeof(uint32_t), sizeof(uint32_t));
    t_pppoe_header header = {.version_type = 0x11, .code = code, .session_id_be = 0, .length_be = htons(sizeof tags)};
    memcpy(frame->bytes + sizeof(t_ethernet_header), &header, sizeof header);
    memcpy(frame->bytes + sizeof(t_ethernet_header) + sizeof header, tags, sizeof tags);
    frame->size = 60;
}

void make_arp(t_flood_frame *frame, uint8_t port, t_dice *dice)
{
    t_arp_frame arp = {};
    address(frame, port, ETHERTYPE_ARP, dice);
    memcpy(&arp.ethernet, frame->bytes, sizeof arp.ethernet);
    arp.hardware_type_be = htons(1);
    arp.protocol_type_be = htons(ETHERTYPE_IP);
    arp.hardware_length = MAC_SIZE;
    arp.protocol_length = sizeof arp.sender_ip_be;
    arp.opcode_be = htons(static_cast<uint16_t>(1 + dice->below(2)));
    arp.sender_mac = arp.ethernet.source;
    arp.sender_ip_be = some_address(dice);
    arp.target_mac = arp.ethernet.destination;
    arp.target_ip_be = some_address(dice);
    memcpy(frame->bytes, &arp, sizeof arp);
    frame->size = sizeof arp;
}

// Questions and answers; half of the answers go to the port that the daemon asks from.
void make_dns(t_flood_frame *frame, uint8_t port, t_dice *dice)
{
    const bool reply = dice->below(2) == 0;
    const auto client = static_cast<uint16_t>(dice->below(2) == 0 ? DNS_CLIENT : 1024 + dice->below(60000));
    uint8_t payload[] = {0, 0, 0x81, 0x80, 0,    1, 0, 1, 0, 0, 0, 0, 4,  'h', 'o', 's', 't', 0, 0,
                         1, 0, 1,    0xc0, 0x0c, 0, 1, 0, 1, 0, 0, 0, 60, 0,   4,   10,  99,  0, 1};
    dice->fill(payload, sizeof(uint16_t));
    make_udp(frame, port, reply ? DNS_SERVER : client, reply ? client : DNS_SERVER, sizeof payload, dice);
    memcpy(frame->bytes + frame->size - sizeof payload, payload, sizeof payload);
}

struct t_kind {
    const char *name;
    void (*make)(t_flood_frame *frame, uint8_t port, t_dice *dice);
};
constexpr t_kind KINDS[] = {
    {"garbage", make_garbage}, {"dhcp", make_dhcp}, {"pppoe", make_pppoe}, {"arp", make_arp}, {"dns", make_dns},
};
constexpr size_t KIND_COUNT = sizeof KINDS / sizeof *KINDS;

const t_kind *find_kind(const char *name)
{
    for (const t_kind &kind : KINDS)
        if (strcmp(kind.name, name) == 0)
            return &kind;
    return nullptr;
}

} // namespace

uint64_t t_dice::next()
{
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return state_ * 0x2545f4914f6cdd1dULL;
}

void t_dice::fill(void *bytes, size_t size)
{
    for (size_t i = 0; i < size; i++)
        static_cast<uint8_t *>(bytes)[i] = static_cast<uint8_t>(next() >> 56);
}

bool fill_pool(t_flood_pool *pool, const char *kind, const t_questions &questions, t_dice *dice)
{
    const bool mix = strcmp(kind, "mix") == 0;
    const t_kind *only = find_kind(kind);
    const bool near = strcmp(kind, "near") == 0;
    if (!mix && !near && !only)
        return false;
    const auto port = static_cast<uint8_t>(dice->next() >> 56);
    for (size_t i = 0; i < FLOOD_POOL_SIZE; i++) {
        const size_t turn = i % (KIND_COUNT + 1);
        t_flood_frame *frame = &pool->frames[i];
        if (near || (mix && turn == KIND_COUNT))
            make_near_miss(frame, mix ? i / (KIND_COUNT + 1) : i, questions);
        else
            (only ? only : &KINDS[turn])->make(frame, port, dice);
    }
    pool->count = FLOOD_POOL_SIZE;
    return true;
}
