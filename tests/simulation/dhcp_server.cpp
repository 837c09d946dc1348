// SPDX-License-Identifier: MIT
// A DHCP server: it answers each DISCOVER with an OFFER.
#include <arpa/inet.h>
#include <cstring>
#include <net/ethernet.h>

#include "probes/wire/wire_formats.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr uint16_t SERVER_PORT = 67;
constexpr uint16_t CLIENT_PORT = 68;
constexpr uint8_t BOOT_REQUEST = 1;
constexpr uint8_t BOOT_REPLY = 2;
constexpr uint8_t MESSAGE_OFFER = 2;

static bool is_discover(const std::string &bytes, t_dhcp_frame *frame)
{
    if (bytes.size() < sizeof *frame)
        return false;
    memcpy(frame, bytes.data(), sizeof *frame);
    return frame->ethernet.ether_type_be == htons(ETHERTYPE_IP) && frame->ipv4.protocol == IPV4_PROTOCOL_UDP &&
           frame->udp.destination_port_be == htons(SERVER_PORT) && frame->dhcp.op == BOOT_REQUEST;
}

static void put_option(uint8_t **at, uint8_t code, const void *value, uint8_t size)
{
    *(*at)++ = code;
    *(*at)++ = size;
    memcpy(*at, value, size);
    *at += size;
}

static void hears(t_port &port, const std::string &bytes)
{
    t_dhcp_frame frame;
    if (!is_discover(bytes, &frame))
        return;
    const auto net = static_cast<uint32_t>(0x0a000000 + port.number * 0x10000);
    const uint32_t server_be = htonl(net + 1), mask_be = htonl(0xffffff00);
    frame.ethernet.destination = frame.ethernet.source;
    frame.ethernet.source = {{0x02, 0, 0, 0, 2, static_cast<uint8_t>(port.number)}};
    frame.ipv4.source_be = server_be;
    frame.udp.source_port_be = htons(SERVER_PORT);
    frame.udp.destination_port_be = htons(CLIENT_PORT);
    frame.dhcp.op = BOOT_REPLY;
    frame.dhcp.yiaddr_be = htonl(net + 100);
    memset(frame.dhcp.options, 0, sizeof frame.dhcp.options);
    uint8_t *at = frame.dhcp.options;
    put_option(&at, 53, &MESSAGE_OFFER, 1);
    put_option(&at, 54, &server_be, 4);
    put_option(&at, 1, &mask_be, 4);
    put_option(&at, 3, &server_be, 4);
    put_option(&at, 6, &server_be, 4);
    *at = 255;
    answer_frame(port, std::string(reinterpret_cast<const char *>(&frame), sizeof frame), port.answers_after);
}

static bool serves(const t_port &, const std::string &connection)
{
    return connection == "dhcp";
}

extern const t_neighbour_kind dhcp_server;
const t_neighbour_kind dhcp_server = {.name = "dhcp", .hears = hears, .serves = serves};

} // namespace sim
