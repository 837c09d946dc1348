// SPDX-License-Identifier: MIT
// The DISCOVER that is sent and the OFFER that comes back (RFC 2131), as bytes: no socket, no log. Any thread.
#pragma once

#include <cstdint>
#include <span>

#include "model/records.h"
#include "probes/wire/frame_filter.h"
#include "probes/wire/wire_formats.h"

// Writes a DISCOVER, zero-padded, into the beginning of `buffer`. Its size, or 0 when the buffer is too small.
size_t build_dhcp_discover(std::span<uint8_t> buffer, const t_mac &mac, uint32_t xid);

struct t_dhcp_offer {
    uint32_t xid; // host order by design, as in the DISCOVER
    uint32_t address_be;
    t_mac server_mac;
    std::span<const uint8_t> options; // borrowed from the frame
};

// Takes a received frame apart. False unless it is a boot reply to the DHCP client port; EtherType, IP version, source
// port and message type are not looked at.
bool parse_dhcp_offer(std::span<const uint8_t> frame, t_dhcp_offer *offer);

// Lets through what may be an offer with this transaction id from another host than the LAN bridge. What is told of in
// the log at `level` passes as well.
t_frame_filter dhcp_offer_filter(uint32_t xid, const t_mac &lan_mac, int level);

struct t_dhcp_option {
    uint8_t code;
    std::span<const uint8_t> value;
};

// Takes the next option off the front of `options`. False at a pad or end byte, and where the bytes end within an
// option.
bool next_dhcp_option(std::span<const uint8_t> *options, t_dhcp_option *option);

enum class t_dhcp_learned {
    nothing,
    gateway,
    dns_server,
};

// Keeps what the option tells in `result`: a single router, the first of the DNS servers.
t_dhcp_learned learn_dhcp_option(const t_dhcp_option &option, t_detect_result *result);
