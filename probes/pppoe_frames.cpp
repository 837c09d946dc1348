// SPDX-License-Identifier: MIT
// Building PADI frames and taking PADO frames apart.
#include "probes/pppoe_frames.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <net/ethernet.h>

namespace {

constexpr uint8_t PPPOE_VERSION_TYPE = 0x11;
constexpr uint8_t CODE_PADI = 0x09;
constexpr uint8_t CODE_PADO = 0x07;

// Copies a record out of a frame; bytes beyond its end stay zero.
template <typename Record> Record read_record(std::span<const uint8_t> frame, size_t position)
{
    Record record = {};
    const size_t there = frame.size() > position ? frame.size() - position : 0;
    if (there > 0)
        memcpy(&record, frame.data() + position, std::min(there, sizeof record));
    return record;
}

} // namespace

size_t build_padi(std::span<uint8_t> buffer, const uint8_t (&mac)[MAC_SIZE], uint32_t host_uniq)
{
    t_padi_frame frame = {};
    if (buffer.size() < sizeof frame)
        return 0;
    memcpy(frame.ethernet.destination, BROADCAST_MAC, MAC_SIZE);
    memcpy(frame.ethernet.source, mac, MAC_SIZE);
    frame.ethernet.ether_type_be = htons(ETH_P_PPP_DISC);
    frame.pppoe.version_type = PPPOE_VERSION_TYPE;
    frame.pppoe.code = CODE_PADI;
    frame.pppoe.length_be = htons(sizeof frame - PPPOE_PAYLOAD_START);
    frame.service_name.type_be = htons(PPPOE_TAG_SERVICE_NAME); // empty: any service
    frame.host_uniq.type_be = htons(PPPOE_TAG_HOST_UNIQ);
    frame.host_uniq.length_be = htons(sizeof host_uniq);
    frame.host_uniq_value = host_uniq;
    memcpy(buffer.data(), &frame, sizeof frame);
    return sizeof frame;
}

t_pppoe_start read_pppoe_start(std::span<const uint8_t> frame)
{
    return read_record<t_pppoe_start>(frame, 0);
}

t_pado_flaw check_pado(std::span<const uint8_t> frame)
{
    const t_pppoe_start start = read_pppoe_start(frame);
    if (memcmp(start.ethernet.source, BROADCAST_MAC, MAC_SIZE) == 0)
        return t_pado_flaw::broadcast_source;
    if (start.ethernet.ether_type_be != htons(ETH_P_PPP_DISC))
        return t_pado_flaw::other_ether_type;
    if (start.pppoe.code != CODE_PADO)
        return t_pado_flaw::other_code;
    if (ntohs(start.pppoe.length_be) + PPPOE_PAYLOAD_START > frame.size())
        return t_pado_flaw::length;
    return t_pado_flaw::none;
}

t_pppoe_tag_view read_pppoe_tag(std::span<const uint8_t> frame, size_t payload, size_t position)
{
    const t_pppoe_tag header = read_record<t_pppoe_tag>(frame, PPPOE_PAYLOAD_START + position);
    t_pppoe_tag_view tag = {
        .type = ntohs(header.type_be), .length = ntohs(header.length_be), .whole = false, .value = {}};
    const size_t value_start = position + sizeof header;
    const size_t end = value_start + tag.length;
    tag.whole = end <= payload && PPPOE_PAYLOAD_START + end <= frame.size();
    if (tag.whole)
        tag.value = frame.subspan(PPPOE_PAYLOAD_START + value_start, tag.length);
    return tag;
}
