// SPDX-License-Identifier: MIT
// The description of the PPPoE discovery, and what only PPPoE does: it looks for its own tag in an answer.
#include "probes/discovery/pppoe_discovery.h"

#include <arpa/inet.h>

#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/discovery/pppoe_frames.h"

t_discovery_batch pppoe_detect_handle;

constexpr const char *RECEIVING = "recv_pppoe_discovery_packet";
constexpr size_t PPPOE_FRAME_SIZE = 1520;
static_assert(PPPOE_FRAME_SIZE <= DISCOVERY_BUFFER_SIZE);

static bool may_tell(t_log_level level)
{
    return may_tell_of_frame(&pppoe_detect_handle.lines, level);
}

static t_frame_filter filter(uint32_t identifier, const t_mac &, int level)
{
    return pado_filter(identifier, level);
}

static void tell_flaw(t_pado_flaw flaw, std::span<const uint8_t> frame, const char *name)
{
    if (flaw == t_pado_flaw::none || !may_tell(LOG_LEVEL_Debug))
        return;
    switch (flaw) {
    case t_pado_flaw::broadcast_source:
        LOG_AS(RECEIVING, Debug, "Ignoring PADO packet from broadcast MAC address\n");
        return;
    case t_pado_flaw::other_ether_type:
        LOG_AS(RECEIVING, Debug, "Ignoring packet because it is not a pppoe disover packet!\n");
        return;
    case t_pado_flaw::other_code:
        LOG_AS(RECEIVING, Debug, "Ignoring packet because it is not a PADO packet!\n");
        return;
    case t_pado_flaw::length:
        LOG_AS(RECEIVING, Debug, "Bogus PPPoE length field (%u) dev=%s\n",
               ntohs(read_pppoe_start(frame).pppoe.length_be), name);
        return;
    case t_pado_flaw::none:
        return;
    }
}

static bool is_pado(t_discovery_port *port, std::span<const uint8_t> frame)
{
    const t_pado_flaw flaw = check_pado(frame);
    tell_flaw(flaw, frame, device_name(port->dev));
    if (flaw != t_pado_flaw::none)
        return false;
    if (packetIsForMe(frame.data(), frame.size(), port->identifier) == OK) {
        const t_mac server = read_pppoe_start(frame).ethernet.source;
        memcpy(port->result.server_mac, server.bytes, MAC_SIZE);
        return true;
    }
    if (may_tell(LOG_LEVEL_Info))
        LOG_AS(RECEIVING, Info, "read from socket parse error, try again! dev=%s\n", device_name(port->dev));
    return false;
}

static int check_header(const t_pppoe_header &header)
{
    const int version = header.version_type >> 4;
    const int type = header.version_type & 0xf;
    const uint16_t payload = ntohs(header.length_be);
    if (version == 1 && type == 1 && payload <= PPPOE_MAX_PAYLOAD)
        return OK;
    if (may_tell(LOG_LEVEL_Info)) {
        if (version != 1)
            LOG_AS("packetIsForMe", Info, "Invalid PPPoE version (%d)\n", version);
        else if (type != 1)
            LOG_AS("packetIsForMe", Info, "Invalid PPPoE type (%d)\n", type);
        else
            LOG_AS("packetIsForMe", Info, "Invalid PPPoE packet length (%u)\n", payload);
    }
    return ERR_INVALID_INPUT;
}

int packetIsForMe(const uint8_t *frame, size_t size, uint32_t host_uniq)
{
    const std::span<const uint8_t> bytes(frame, size);
    const t_pppoe_header header = read_pppoe_start(bytes).pppoe;
    if (check_header(header) != OK)
        return ERR_INVALID_INPUT;
    const uint16_t payload = ntohs(header.length_be);
    for (size_t position = 0; position < payload;) {
        const t_pppoe_tag_view tag = read_pppoe_tag(bytes, payload, position);
        if (tag.type == PPPOE_TAG_END_OF_LIST)
            return PPPOE_ERR_TAGS;
        if (!tag.whole) {
            if (may_tell(LOG_LEVEL_Info))
                LOG(Info, "Invalid PPPoE tag length (%u)\n", tag.length);
            return PPPOE_ERR_TAGS;
        }
        uint32_t value;
        if (tag.type == PPPOE_TAG_HOST_UNIQ && tag.length == sizeof value) {
            memcpy(&value, tag.value.data(), sizeof value);
            if (value == host_uniq)
                return OK;
            // Another one may follow.
            if (may_tell(LOG_LEVEL_Info))
                LOG(Info, "Invalid PPPoE unique host tag value (0x%08x)/(0x%08x)\n", value, host_uniq);
        }
        position += sizeof(t_pppoe_tag) + tag.length;
    }
    return ERR_INVALID_INPUT;
}

static consteval t_discovery_speakers speakers()
{
    t_discovery_speakers in = {};
    in.send_all = "send_pppoe_discovery_all";
    in.open = "init_pppoe_sockfd";
    in.send_packet = "send_pppoe_discovery_packet";
    in.receive = "recv_pppoe_discovery_packet";
    in.process = "process_pppoe_discovery_all";
    in.release = "release_pppoe_detect_handle";
    in.ask_linked = "pppoe_detect_for_all_link_device";
    in.ask_one = "pppoe_detect_for_specify_device";
    return in;
}

static_assert(announces(speakers().send_all, "Entering function: send_pppoe_discovery_all!\n") &&
              announces(speakers().send_packet, "Entering function: send_pppoe_discovery_packet!\n") &&
              announces(speakers().process, "Entering function: process_pppoe_discovery_all!\n") &&
              announces(speakers().release, "Entering function: release_pppoe_detect_handle!\n"));

static constexpr t_discovery_texts TEXTS = {
    .bad_list = "Invalid parameters! Send failed!\n",
    .no_lan_bridge = nullptr, // said of DHCP only
    .no_memory = "Failed to malloc %d pppoe_detect struct\n",
    .no_port = "Failed to load pppoe device!\n",
    .no_rights = "Cannot create raw socket -- pppoe must be run as root.\n",
    .no_socket = "Create pppoe request socket failed!\n",
    .not_opened = "Failed to init pppoe socket in dev:%s\n",
    .opened = "pppoe Discovery packet sockfd init success in dev:%s\n",
    .sending = "Ready to send pppoe Discovery packet via dev:%s\n",
    .not_sent = "Failed to send pppoe socket via dev:%s\n",
    .sent = "Send pppoe Discovery packet success via dev:%s\n",
    .not_open = "Skip sending pppoe discoery packet due to socket error!\n",
    .not_built = "Error while creating a pppoe discovery socket, device:%s\n",
    .not_written = "Error while writing to pppoe discovery socket, using device:%s\n",
    .heard = "recv pppoe discovery offer(PADO) packet from dev:%s\n",
    .understood = "Success parse pppoe discovery offer(PADO) packet in dev=%s\n",
    .nothing_sent = "pppoe detect array is null, no packet sent yet, treat as detect over!\n",
    .impossible = "Should never happen, valid pppoe detect array while device count is 0!\n",
    .looking = "Processing pppoe offer in eth:%s\n",
    .found = "dev:%s detect pppoe Service!\n",
    .silent = "No pppoe Service detect in dev:%s yet!\n",
    .nothing_open = "Release null pppoe_detect_handle fail!\n",
    .count_lost = "pppoe_detect_handle not null but device_num=0, may cause unclosed socket fd \n",
    .released = "release pppoe_detect_handler success!\n",
    .ports_ready = "Overall %d devices ready to run pppoe detect\n",
    .no_ports = "No actual device need detected, skip pppoe detect!\n",
    .ports_asked = "Overall %d devices Send pppoe discovery success!\n",
    .ports_not_asked = "Error sending pppoe discovery packet\n",
    .port_ready = "device:%s ready to run pppoe detect\n",
    .port_not_asked = "Error sending pppoe discovery packet in dev:%s\n",
    .port_asked = "device:%s Send pppoe discovery success!\n",
};

const t_discovery pppoe_discovery = {
    .batch = pppoe_detect_handle,
    .protocol = "pppoe",
    .frame_size = PPPOE_FRAME_SIZE,
    .error_without_socket = DISCOVERY_ERR_NOT_OPEN,
    .may_broadcast = true,
    .must_know_lan_mac = false,
    .speakers = speakers(),
    .texts = TEXTS,
    .build = build_padi,
    .filter = filter,
    .is_answer = is_pado,
    .tell_result = nullptr,
};
