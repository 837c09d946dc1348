// SPDX-License-Identifier: MIT
// The description of the DHCP discovery, and what only DHCP does: it reads an offer's options, and knows the router's
// own.
#include "probes/discovery/dhcp_discovery.h"

#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "probes/discovery/dhcp_frames.h"

t_discovery_batch dhcp_detect_handle;

constexpr const char *RECEIVING = "recv_dhcp_discovery_packet";
constexpr const char *PROCESSING = "process_dhcp_discovery_all";
constexpr size_t DHCP_FRAME_SIZE = 1024;

static bool may_tell(t_log_level level)
{
    return may_tell_of_frame(&dhcp_detect_handle.lines, level);
}

static void learn_options(t_dhcp_offer *offer, const char *name, t_detect_result *result)
{
    t_dhcp_option option;
    while (next_dhcp_option(&offer->options, &option)) {
        switch (learn_dhcp_option(option, result)) {
        case t_dhcp_learned::gateway:
            LOG_AS(RECEIVING, Debug, "dev:%s, GATEWAY=%s\n", name, t_ipv4_text(result->gateway.ipv4_be).text);
            break;
        case t_dhcp_learned::dns_server:
            LOG_AS(RECEIVING, Debug, "dev:%s, DNS_SERVER=%s\n", name, t_ipv4_text(result->dns_server.ipv4_be).text);
            break;
        case t_dhcp_learned::nothing:
            break;
        }
    }
}

// The frame is an offer for this port; false, and told, when it is none.
static bool understand(const t_discovery_port &port, std::span<const uint8_t> frame, t_dhcp_offer *offer)
{
    if (!parse_dhcp_offer(frame, offer)) {
        if (may_tell(LOG_LEVEL_Debug))
            LOG_AS(RECEIVING, Debug, "read from socket parse error, try again! dev=%s\n", device_name(port.dev));
        return false;
    }
    if (offer->xid != port.identifier) {
        if (may_tell(LOG_LEVEL_Info))
            LOG_AS(RECEIVING, Info, "Not match: rdhcp->xid=0x%08x, dhcp_detect_ctx->random_xid=0x%08x\n", offer->xid,
                   port.identifier);
        return false;
    }
    return true;
}

static bool is_offer(t_discovery_port *port, std::span<const uint8_t> frame)
{
    t_dhcp_offer offer;
    if (!understand(*port, frame, &offer))
        return false;
    const char *name = device_name(port->dev);
    port->result.address.ipv4_be = offer.address_be;
    memcpy(port->result.server_mac, offer.server_mac.bytes, MAC_SIZE);
    const bool is_own = offer.server_mac == dhcp_detect_handle.lan_mac;
    if (!is_own || may_tell(LOG_LEVEL_Debug))
        LOG_AS(RECEIVING, Debug, "dev:%s, IPADDR=%s, MAC=%02X-%02X-%02X-%02X-%02X-%02X\n", name,
               t_ipv4_text(offer.address_be).text, MAC_ARGS(offer.server_mac));
    if (is_own) {
        if (may_tell(LOG_LEVEL_Warning))
            LOG_AS(RECEIVING, Warning,
                   "Detecing dhcp offer from own mac:%02X-%02X-%02X-%02X-%02X-%02X, meaning there is a cirecle in "
                   "lan!!\n",
                   MAC_ARGS(offer.server_mac));
        return false;
    }
    learn_options(&offer, name, &port->result);
    return true;
}

static void tell_result(const t_device &dev)
{
    const t_detect_result &result = dev.result;
    LOG_AS(PROCESSING, Debug, "dev:%s, IPADDR=%s, MAC=%02X-%02X-%02X-%02X-%02X-%02X\n", dev.name,
           t_ipv4_text(result.address.ipv4_be).text, MAC_ARGS(result.server_mac));
    LOG_AS(PROCESSING, Debug, "dev:%s, GATEWAY=%s\n", dev.name, t_ipv4_text(result.gateway.ipv4_be).text);
    LOG_AS(PROCESSING, Debug, "dev:%s, DNS_SERVER=%s\n", dev.name, t_ipv4_text(result.dns_server.ipv4_be).text);
}

static consteval t_discovery_speakers speakers()
{
    t_discovery_speakers in = {};
    in.send_all = "send_dhcp_discovery_all";
    in.open = "init_dhcp_sockfd";
    in.send_packet = "send_dhcp_discovery_packet";
    in.receive = "recv_dhcp_discovery_packet";
    in.process = "process_dhcp_discovery_all";
    in.release = "release_dhcp_detect_handle";
    in.ask_linked = "dhcp_detect_for_all_link_device";
    in.ask_one = "dhcp_detect_for_specify_device";
    return in;
}

static_assert(announces(speakers().send_all, "Entering function: send_dhcp_discovery_all!\n") &&
              announces(speakers().send_packet, "Entering function: send_dhcp_discovery_packet!\n") &&
              announces(speakers().process, "Entering function: process_dhcp_discovery_all!\n") &&
              announces(speakers().release, "Entering function: release_dhcp_detect_handle!\n"));

static constexpr t_discovery_texts TEXTS = {
    .bad_list = "invalid parameters! Send failed!\n",
    .no_lan_bridge = "Couldn't get br-lan ip, netmask, mac!\n",
    .no_memory = "Failed to malloc %d dhcp_detect struct\n",
    .no_port = "Failed to load dhcp device!\n",
    .no_rights = nullptr, // said of PPPoE only
    .no_socket = "Create DHCP request socket failed!\n",
    .not_opened = "Failed to init DHCP socket in dev:%s\n",
    .opened = "DHCP Discovery packet sockfd init success in dev:%s\n",
    .sending = "Ready to send DHCP Discovery packet via dev:%s\n",
    .not_sent = "Failed to send DHCP socket via dev:%s\n",
    .sent = "Send DHCP Discovery packet success via dev:%s\n",
    .not_open = "Skip sending dhcp discoery packet due to socket error!\n",
    .not_built = nullptr, // the buffer has room for it
    .not_written = "Error while writing to dhcp request socket, using device:%s\n",
    .heard = "recv dhcp discovery packet from dev:%s\n",
    .understood = "Success parse dhcp discovery packet in dev=%s\n",
    .nothing_sent = "dhcp detect array is null, no packet sent yet, treat as detect over!\n",
    .impossible = "Should never happen, valid dhcp detect array while device count is 0!\n",
    .looking = "Processing dhcp offer in eth:%s\n",
    .found = "dev:%s detect dhcp Service!\n",
    .silent = "No dhcp Service detect in dev:%s yet!\n",
    .nothing_open = "Release null dhcp_detect_handle fail!\n",
    .count_lost = "dhcp_detect_handle not null but device_num=0, may cause unclosed socket fd \n",
    .released = "release dhcp_detect_handler success!\n",
    .ports_ready = "Overall %d devices ready to run dhcp detect\n",
    .no_ports = "No actual device need detected, skip dhcp detect!\n",
    .ports_asked = "Overall %d devices Send dhcp discovery success!\n",
    .ports_not_asked = "Error sending dhcp discovery packet\n",
    .port_ready = "device:%s ready to run dhcp detect\n",
    .port_not_asked = "Error sending dhcp discovery packet in dev:%s\n",
    .port_asked = nullptr, // said of PPPoE only
};

const t_discovery dhcp_discovery = {
    .batch = dhcp_detect_handle,
    .protocol = "dhcp",
    .frame_size = DHCP_FRAME_SIZE,
    .error_without_socket = DHCP_ERR_SOCKET,
    .may_broadcast = false,
    .must_know_lan_mac = true,
    .speakers = speakers(),
    .texts = TEXTS,
    .build = build_dhcp_discover,
    .filter = dhcp_offer_filter,
    .is_answer = is_offer,
    .tell_result = tell_result,
};
