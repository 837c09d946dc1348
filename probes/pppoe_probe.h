// SPDX-License-Identifier: MIT
// PPPoE discovery on many ports at once: one PADI per port (RFC 2516), a PADO that echoes its Host-Uniq marks it. Loop
// thread only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "model/records.h"
#include "probes/frame_lines.h"

extern "C" {
#include <libubox/uloop.h>
}

struct t_pppoe_detect_ctx {
    uint8_t pado_received;
    uint32_t host_uniq;
    t_device *dev;    // borrowed; null when the port could not be used
    uloop_fd watcher; // its descriptor is the raw socket, -1 when closed
};

struct t_pppoe_detect_handle {
    uint8_t finished;
    uint8_t device_num;
    t_pppoe_detect_ctx *contexts; // owned; null when no batch is open
    int filter_level;             // the log level that the contexts' filters are made for
    t_frame_lines lines;
};

extern t_pppoe_detect_handle pppoe_detect_handle;

constexpr int PPPOE_ERR_NOT_OPEN = -91; // also: the socket could not be made
constexpr int PPPOE_ERR_FRAME = -90;
constexpr int PPPOE_ERR_BIND = -89;
constexpr int PPPOE_ERR_SEND = -88;
constexpr int PPPOE_ERR_TAGS = -84;

// Opens a batch: 0 (single ports may have failed), ERR_INVALID_INPUT for an empty list, ERR_NO_MEMORY.
int send_pppoe_discovery_all(t_device_list_head *list);

// The same results as process_dhcp_discovery_all; answering ports are marked "pppoe".
int process_pppoe_discovery_all(t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, bool final);

void release_pppoe_detect_handle();

// Makes the filter of an open context for the current log level.
void filter_pados(const t_pppoe_detect_ctx &ctx);

int init_pppoe_sockfd(t_pppoe_detect_ctx *ctx);
int send_pppoe_discovery_packet(t_pppoe_detect_ctx *ctx);
void recv_pppoe_discovery_packet(uloop_fd *watcher, unsigned int events);

// 0 when the PADO of `size` bytes carries `host_uniq`; ERR_INVALID_INPUT or PPPOE_ERR_TAGS otherwise.
int packetIsForMe(const uint8_t *frame, size_t size, uint32_t host_uniq);
