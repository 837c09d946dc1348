// SPDX-License-Identifier: MIT
// PPPoE discovery: one PADI per port (RFC 2516), a PADO that echoes its Host-Uniq marks the port. Loop thread only.
#pragma once

#include "probes/discovery/discovery.h"

extern t_discovery_batch pppoe_detect_handle;
extern const t_discovery pppoe_discovery;

constexpr int PPPOE_ERR_TAGS = -84;

int send_pppoe_discovery_all(t_device_list_head *list);

// As collect_batch; answering ports are marked "pppoe".
int process_pppoe_discovery_all(t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, bool final);

void release_pppoe_detect_handle();

int init_pppoe_sockfd(t_discovery_port *port); // 0 or DISCOVERY_ERR_NOT_OPEN
int send_pppoe_discovery_packet(t_discovery_port *port);
void recv_pppoe_discovery_packet(uloop_fd *watcher, unsigned int events);

// 0 when the PADO of `size` bytes carries `host_uniq`; ERR_INVALID_INPUT or PPPOE_ERR_TAGS otherwise.
int packetIsForMe(const uint8_t *frame, size_t size, uint32_t host_uniq);
