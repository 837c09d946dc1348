// SPDX-License-Identifier: MIT
// The PADI that is sent and the PADO that comes back (RFC 2516), as bytes: no socket, no log. Any thread.
#pragma once

#include <cstdint>
#include <span>

#include "model/records.h"
#include "probes/wire/frame_filter.h"
#include "probes/wire/wire_formats.h"

constexpr uint16_t PPPOE_MAX_PAYLOAD = 1494;
constexpr size_t PPPOE_PAYLOAD_START = sizeof(t_ethernet_header) + sizeof(t_pppoe_header);
constexpr uint16_t PPPOE_TAG_END_OF_LIST = 0x0000;
constexpr uint16_t PPPOE_TAG_SERVICE_NAME = 0x0101;
constexpr uint16_t PPPOE_TAG_HOST_UNIQ = 0x0103;

// Writes a PADI into the beginning of `buffer`. Its size, or 0 when the buffer is too small.
size_t build_padi(std::span<uint8_t> buffer, const t_mac &mac, uint32_t host_uniq);

// The two headers every discovery frame begins with. What a short frame lacks reads as zero.
struct t_pppoe_start {
    t_ethernet_header ethernet;
    t_pppoe_header pppoe;
};
static_assert(sizeof(t_pppoe_start) == PPPOE_PAYLOAD_START);
t_pppoe_start read_pppoe_start(std::span<const uint8_t> frame);

// The first reason, in this order, for which a frame is no whole PADO.
enum class t_pado_flaw {
    none,
    broadcast_source,
    other_ether_type,
    other_code,
    length, // the payload is longer than what arrived
};
t_pado_flaw check_pado(std::span<const uint8_t> frame);

// Lets through what may be a PADO with this Host-Uniq. What is told of in the log at `level` passes as well, and
// what has more tags before the Host-Uniq than a filter can walk over.
t_frame_filter pado_filter(uint32_t host_uniq, int level);

struct t_pppoe_tag_view {
    uint16_t type;
    uint16_t length;
    bool whole;                     // header and value lie within the payload and within what arrived
    std::span<const uint8_t> value; // borrowed from the frame, empty when the tag is not whole
};

// The tag at `position` of a payload of `payload` bytes. Bytes that did not arrive read as zero.
t_pppoe_tag_view read_pppoe_tag(std::span<const uint8_t> frame, size_t payload, size_t position);
