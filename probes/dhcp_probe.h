// SPDX-License-Identifier: MIT
// DHCP discovery on many ports at once: one DISCOVER per port (RFC 2131), the first valid answer marks the port. Loop
// thread only.
#pragma once

#include <cstdint>

#include "model/records.h"
#include "probes/frame_lines.h"

extern "C" {
#include <libubox/uloop.h>
}

struct t_dhcp_detect_ctx {
    uint8_t offer_received;
    uint32_t random_xid;
    t_device *dev; // borrowed; null when the port could not be used
    t_detect_result result;
    uloop_fd watcher; // its descriptor is the raw socket, -1 when closed
};

struct t_dhcp_detect_handle {
    uint8_t finished;
    uint8_t device_num;
    t_dhcp_detect_ctx *contexts; // owned; null when no batch is open
    uint8_t lan_mac[MAC_SIZE];
    int filter_level; // the log level that the contexts' filters are made for
    t_frame_lines lines;
};

extern t_dhcp_detect_handle dhcp_detect_handle;

// Result codes of one port or of the batch.
constexpr int DHCP_ERR_SOCKET = -92;
constexpr int DHCP_ERR_NOT_OPEN = -91;
constexpr int DHCP_ERR_BIND = -89;
constexpr int DHCP_ERR_SEND = -88;
constexpr int DHCP_ERR_LAN_BRIDGE = -87;

// Opens a batch: 0 (single ports may have failed), ERR_INVALID_INPUT for an empty list, DHCP_ERR_LAN_BRIDGE,
// ERR_NO_MEMORY.
int send_dhcp_discovery_all(t_device_list_head *list);

// PROBE_NO_BATCH, ERR_INVALID_INPUT, PROBE_WAITING (the batch stays open), PROBE_ALL_ANSWERED or PROBE_SOME_SILENT
// (every answering port is marked "dhcp" and the batch is closed). `final` says that the time is over.
int process_dhcp_discovery_all(t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, bool final);

// Closes the batch without looking at it.
void release_dhcp_detect_handle();

// Makes the filter of an open context for the current log level.
void filter_dhcp_offers(const t_dhcp_detect_ctx &ctx);

int init_dhcp_sockfd(t_dhcp_detect_ctx *ctx);
int send_dhcp_discovery_packet(t_dhcp_detect_ctx *ctx);
void recv_dhcp_discovery_packet(uloop_fd *watcher, unsigned int events);
